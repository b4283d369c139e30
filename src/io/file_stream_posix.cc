// File layer for POSIX systems: descriptors read and written at explicit
// offsets. Sharing follows the Windows rules with advisory locks: a reader
// shares with readers, a writer with nobody.
#ifndef _WIN32

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "io/file_stream.h"
#include "util/wide_string.h"

namespace tmx::platform {

bool OpenFile(const wchar_t* path, Access access, NativeFile* file) noexcept {
  // Worst case four UTF-8 bytes a character.
  char utf8[TMX_PATH_CAPACITY * 4];
  if (!WideToUtf8({path, WideLength(path, TMX_PATH_CAPACITY)}, utf8)) return false;
  int flags = O_RDONLY;
  if (access == Access::kCreate) flags = O_RDWR | O_CREAT;
  if (access == Access::kReadWrite) flags = O_RDWR;
  const int fd = ::open(utf8, flags | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  // A lock refused because another holds the file fails the open; a file
  // system without locks does not.
  const int lock = access == Access::kRead ? LOCK_SH : LOCK_EX;
  if (::flock(fd, lock | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    ::close(fd);
    return false;
  }
  *file = fd;
  return true;
}

void CloseFile(NativeFile file) noexcept { ::close(int(file)); }

std::int64_t ReadAt(NativeFile file, std::uint64_t offset, void* buffer,
                    std::uint32_t count) noexcept {
  auto* out = static_cast<char*>(buffer);
  std::uint32_t got = 0;
  while (got < count) {
    const ssize_t n = ::pread(int(file), out + got, count - got, off_t(offset + got));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return got > 0 ? got : -1;
    if (n == 0) break;  // end of file
    got += std::uint32_t(n);
  }
  return got;
}

std::int64_t WriteAt(NativeFile file, std::uint64_t offset, const void* buffer,
                     std::uint32_t count) noexcept {
  const auto* in = static_cast<const char*>(buffer);
  std::uint32_t put = 0;
  while (put < count) {
    const ssize_t n = ::pwrite(int(file), in + put, count - put, off_t(offset + put));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return put > 0 ? put : -1;
    if (n == 0) break;
    put += std::uint32_t(n);
  }
  return put;
}

std::int64_t FileSize(NativeFile file) noexcept {
  struct stat st;
  if (::fstat(int(file), &st) != 0) return -1;
  return st.st_size;
}

}  // namespace tmx::platform

#endif  // !_WIN32
