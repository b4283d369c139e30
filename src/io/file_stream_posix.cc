// File layer for POSIX systems. The handle field holds the descriptor plus
// one, so that a zero-filled stream starts with no handle. Sharing follows
// the Windows rules with advisory locks: a reader shares with readers, a
// writer with nobody.
#ifndef _WIN32

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "io/file_stream.h"
#include "util/alloc.h"
#include "util/wide_string.h"

namespace tmx::platform {
namespace {

TMXFileStream* AsFile(TMXStream* s) noexcept { return reinterpret_cast<TMXFileStream*>(s); }

// The descriptor of an open stream, or -1 for a null stream or handle.
int Descriptor(TMXStream* s) noexcept {
  if (!s) return -1;
  auto h = reinterpret_cast<std::intptr_t>(AsFile(s)->handle);
  if (h <= 0) return -1;  // null (0) or invalid (-1)
  return int(h - 1);
}

void SetDescriptor(TMXStream* s, int fd) noexcept {
  AsFile(s)->handle = reinterpret_cast<void*>(std::intptr_t(fd) + 1);
}

// Opens the stream's path with `flags` and takes the matching lock.
std::int32_t OpenPath(TMXStream* s, int flags, bool exclusive) noexcept {
  if (!s) return TMX_ERR_FILE;
  TMXFileStream* fs = AsFile(s);
  // Worst case four UTF-8 bytes a character.
  char path[TMX_PATH_CAPACITY * 4];
  const std::size_t length = WideLength(fs->path, TMX_PATH_CAPACITY);
  if (length == 0 || length >= TMX_PATH_CAPACITY || !WideToUtf8({fs->path, length}, path))
    return TMX_ERR_FILE;
  int fd = ::open(path, flags | O_CLOEXEC, 0666);
  if (fd < 0) return TMX_ERR_FILE;
  if (::flock(fd, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    ::close(fd);
    return TMX_ERR_FILE;
  }
  // A stream is opened once; a second open replaces the first handle
  // instead of leaking it.
  if (int old = Descriptor(s); old >= 0) ::close(old);
  SetDescriptor(s, fd);
  return TMX_OK;
}

}  // namespace

std::int32_t Create(TMXStream* s) noexcept { return OpenPath(s, O_RDWR | O_CREAT, true); }

std::int32_t Open(TMXStream* s, std::int32_t mode) noexcept {
  if (mode != TMX_STREAM_READ && mode != TMX_STREAM_READ_WRITE) return TMX_ERR_ARGUMENT;
  const bool write = mode == TMX_STREAM_READ_WRITE;
  return OpenPath(s, write ? O_RDWR : O_RDONLY, write);
}

std::int32_t Close(TMXStream* s) noexcept {
  int fd = Descriptor(s);
  if (fd < 0) return TMX_ERR_HANDLE;
  ::close(fd);
  AsFile(s)->handle = nullptr;
  Free(s);
  return TMX_OK;
}

std::uint32_t GetSize(TMXStream* s) noexcept {
  int fd = Descriptor(s);
  struct stat st;
  if (fd < 0 || ::fstat(fd, &st) != 0) return TMX_STREAM_UNKNOWN;
  return std::uint32_t(st.st_size);  // low 32 bits, as the Windows call reports
}

std::uint32_t Tell(TMXStream* s) noexcept {
  int fd = Descriptor(s);
  if (fd < 0) return TMX_STREAM_UNKNOWN;
  off_t pos = ::lseek(fd, 0, SEEK_CUR);
  return pos < 0 ? TMX_STREAM_UNKNOWN : std::uint32_t(pos);
}

std::int32_t Seek(TMXStream* s, std::uint32_t position) noexcept {
  int fd = Descriptor(s);
  if (fd < 0) return TMX_ERR_HANDLE;
  return ::lseek(fd, off_t(position), SEEK_SET) < 0 ? TMX_ERR_SEEK : TMX_OK;
}

std::int32_t Read(TMXStream* s, void* buffer, std::int32_t count, std::int32_t* done) noexcept {
  int fd = Descriptor(s);
  if (fd < 0) return TMX_ERR_HANDLE;
  if (!buffer || count < 0) return TMX_ERR_READ;
  ssize_t n;
  do {
    n = ::read(fd, buffer, std::size_t(count));
  } while (n < 0 && errno == EINTR);
  if (n < 0) return TMX_ERR_READ;
  if (done) *done = std::int32_t(n);
  return n == 0 ? TMX_ERR_READ : TMX_OK;
}

std::int32_t Write(TMXStream* s, const void* buffer, std::int32_t count,
                   std::int32_t* done) noexcept {
  int fd = Descriptor(s);
  if (fd < 0) return TMX_ERR_HANDLE;
  if (!buffer || count < 0) return TMX_ERR_WRITE;
  ssize_t n;
  do {
    n = ::write(fd, buffer, std::size_t(count));
  } while (n < 0 && errno == EINTR);
  if (n < 0) return TMX_ERR_WRITE;
  if (done) *done = std::int32_t(n);
  return n == 0 ? TMX_ERR_WRITE : TMX_OK;
}

}  // namespace tmx::platform

#endif  // !_WIN32
