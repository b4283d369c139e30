// The built-in file-backed streams: a read/write table (position files,
// bookmark editing) and an input-only table (the programme itself).
//
// An open stream reads through a buffer of its own, so that the many small
// fields of a programme cost a few system calls per buffer rather than one
// each. Writes go straight to the file.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

namespace tmx {

extern const TMXStreamOps kReadWriteFileOps;
extern const TMXStreamOps kInputFileOps;

// Whether `s` uses one of the built-in tables, whose Close also frees the
// stream object.
inline bool IsFileStream(const TMXStream* s) noexcept {
  return s->ops == &kReadWriteFileOps || s->ops == &kInputFileOps;
}

// Allocates a file stream for `path` with the read/write or the input-only
// table. Null when allocation fails or the path does not fit in
// TMX_PATH_CAPACITY characters with its terminator.
TMXStream* MakeFileStream(const wchar_t* path, bool writable) noexcept;

// Releases a file stream the library made: closes it when open, otherwise
// frees the never-opened object.
void DisposeFileStream(TMXStream* stream) noexcept;

// Bytes an open file stream buffers for reading.
inline constexpr std::uint32_t kFileBufferSize = 64 * 1024;

// The operating system's side: files addressed by absolute offsets, so that
// the stream keeps its position itself.
namespace platform {

// A file handle or descriptor, as an integer.
using NativeFile = std::intptr_t;

enum class Access {
  kCreate,     // read and write, created when missing, shared with nobody
  kRead,       // read only, shared with readers
  kReadWrite,  // read and write, shared with nobody
};

// Opens `path` (terminated, fewer than TMX_PATH_CAPACITY characters).
// False when the file cannot be opened or another stream holds it.
bool OpenFile(const wchar_t* path, Access access, NativeFile* file) noexcept;
void CloseFile(NativeFile file) noexcept;
// Reads up to `count` bytes at `offset`, fewer only at the end of the file.
// Returns the count, or -1 when the first attempt fails.
std::int64_t ReadAt(NativeFile file, std::uint64_t offset, void* buffer,
                    std::uint32_t count) noexcept;
// Writes at `offset`; returns the count written, or -1.
std::int64_t WriteAt(NativeFile file, std::uint64_t offset, const void* buffer,
                     std::uint32_t count) noexcept;
// The file's size, or -1.
std::int64_t FileSize(NativeFile file) noexcept;

}  // namespace platform

}  // namespace tmx
