// File layer for Windows, on the wide-character file functions.
#ifdef _WIN32

#include <windows.h>

#include <cstdint>

#include "io/file_stream.h"
#include "util/alloc.h"

namespace tmx::platform {
namespace {

TMXFileStream* AsFile(TMXStream* s) noexcept { return reinterpret_cast<TMXFileStream*>(s); }

HANDLE Handle(TMXStream* s) noexcept {
  return s ? static_cast<HANDLE>(AsFile(s)->handle) : nullptr;
}

bool Usable(HANDLE h) noexcept { return h != nullptr && h != INVALID_HANDLE_VALUE; }

std::int32_t Adopt(TMXStream* s, HANDLE h) noexcept {
  if (!Usable(h)) {
    (void)GetLastError();
    return TMX_ERR_FILE;
  }
  if (HANDLE old = Handle(s); Usable(old)) CloseHandle(old);
  AsFile(s)->handle = h;
  return TMX_OK;
}

}  // namespace

std::int32_t Create(TMXStream* s) noexcept {
  if (!s) return TMX_ERR_FILE;
  HANDLE h = CreateFileW(AsFile(s)->path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                         FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM, nullptr);
  return Adopt(s, h);
}

std::int32_t Open(TMXStream* s, std::int32_t mode) noexcept {
  if (mode != TMX_STREAM_READ && mode != TMX_STREAM_READ_WRITE) return TMX_ERR_ARGUMENT;
  if (!s) return TMX_ERR_FILE;
  DWORD access = mode == TMX_STREAM_READ ? GENERIC_READ : (GENERIC_READ | GENERIC_WRITE);
  HANDLE h = CreateFileW(AsFile(s)->path, access, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  return Adopt(s, h);
}

std::int32_t Close(TMXStream* s) noexcept {
  HANDLE h = Handle(s);
  if (!Usable(h)) return TMX_ERR_HANDLE;
  CloseHandle(h);
  AsFile(s)->handle = nullptr;
  Free(s);
  return TMX_OK;
}

std::uint32_t GetSize(TMXStream* s) noexcept {
  HANDLE h = Handle(s);
  if (!Usable(h)) return TMX_STREAM_UNKNOWN;
  return GetFileSize(h, nullptr);
}

std::uint32_t Tell(TMXStream* s) noexcept {
  HANDLE h = Handle(s);
  if (!Usable(h)) return TMX_STREAM_UNKNOWN;
  return SetFilePointer(h, 0, nullptr, FILE_CURRENT);
}

std::int32_t Seek(TMXStream* s, std::uint32_t position) noexcept {
  HANDLE h = Handle(s);
  if (h == nullptr) return TMX_ERR_HANDLE;
  DWORD target = position;
  LONG high = 0;
  // Positions above 2 GiB go through the high word so they are not taken as
  // negative distances.
  DWORD r = SetFilePointer(h, LONG(target), &high, FILE_BEGIN);
  return r == INVALID_SET_FILE_POINTER ? TMX_ERR_SEEK : TMX_OK;
}

std::int32_t Read(TMXStream* s, void* buffer, std::int32_t count, std::int32_t* done) noexcept {
  HANDLE h = Handle(s);
  if (!Usable(h)) return TMX_ERR_HANDLE;
  if (!buffer || count < 0) return TMX_ERR_READ;
  DWORD n = 0;
  if (!ReadFile(h, buffer, DWORD(count), &n, nullptr)) return TMX_ERR_READ;
  if (done) *done = std::int32_t(n);
  return n == 0 ? TMX_ERR_READ : TMX_OK;
}

std::int32_t Write(TMXStream* s, const void* buffer, std::int32_t count,
                   std::int32_t* done) noexcept {
  HANDLE h = Handle(s);
  if (!Usable(h)) return TMX_ERR_HANDLE;
  if (!buffer || count < 0) return TMX_ERR_WRITE;
  DWORD n = 0;
  if (!WriteFile(h, buffer, DWORD(count), &n, nullptr)) return TMX_ERR_WRITE;
  if (done) *done = std::int32_t(n);
  return n == 0 ? TMX_ERR_WRITE : TMX_OK;
}

}  // namespace tmx::platform

#endif  // _WIN32
