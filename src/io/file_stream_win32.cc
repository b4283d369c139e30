// File layer for Windows, on the wide-character file functions. Reads and
// writes name their offset, so the handle's own file pointer plays no part.
#ifdef _WIN32

#include <windows.h>

#include <cstdint>

#include "io/file_stream.h"

namespace tmx::platform {
namespace {

HANDLE AsHandle(NativeFile file) noexcept { return reinterpret_cast<HANDLE>(file); }

OVERLAPPED At(std::uint64_t offset) noexcept {
  OVERLAPPED at{};
  at.Offset = DWORD(offset);
  at.OffsetHigh = DWORD(offset >> 32);
  return at;
}

}  // namespace

bool OpenFile(const wchar_t* path, Access access, NativeFile* file) noexcept {
  HANDLE h = INVALID_HANDLE_VALUE;
  switch (access) {
    case Access::kCreate:
      h = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                      FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM, nullptr);
      break;
    case Access::kRead:
    case Access::kReadWrite: {
      const DWORD rights = access == Access::kRead ? GENERIC_READ : (GENERIC_READ | GENERIC_WRITE);
      h = CreateFileW(path, rights, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                      nullptr);
      break;
    }
  }
  if (h == nullptr || h == INVALID_HANDLE_VALUE) return false;
  *file = reinterpret_cast<NativeFile>(h);
  return true;
}

void CloseFile(NativeFile file) noexcept { CloseHandle(AsHandle(file)); }

std::int64_t ReadAt(NativeFile file, std::uint64_t offset, void* buffer,
                    std::uint32_t count) noexcept {
  auto* out = static_cast<char*>(buffer);
  std::uint32_t got = 0;
  while (got < count) {
    OVERLAPPED at = At(offset + got);
    DWORD n = 0;
    if (!ReadFile(AsHandle(file), out + got, count - got, &n, &at)) {
      if (GetLastError() == ERROR_HANDLE_EOF) break;
      return got > 0 ? got : -1;
    }
    if (n == 0) break;  // end of file
    got += n;
  }
  return got;
}

std::int64_t WriteAt(NativeFile file, std::uint64_t offset, const void* buffer,
                     std::uint32_t count) noexcept {
  const auto* in = static_cast<const char*>(buffer);
  std::uint32_t put = 0;
  while (put < count) {
    OVERLAPPED at = At(offset + put);
    DWORD n = 0;
    if (!WriteFile(AsHandle(file), in + put, count - put, &n, &at)) return put > 0 ? put : -1;
    if (n == 0) break;
    put += n;
  }
  return put;
}

std::int64_t FileSize(NativeFile file) noexcept {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(AsHandle(file), &size)) return -1;
  return size.QuadPart;
}

}  // namespace tmx::platform

#endif  // _WIN32
