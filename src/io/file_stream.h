// The built-in file-backed streams: a read/write table (position files,
// bookmark editing) and an input-only table (the programme itself).
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

// The platform layer, shared by both tables.
namespace platform {
std::int32_t Create(TMXStream* s) noexcept;
std::int32_t Open(TMXStream* s, std::int32_t mode) noexcept;
std::int32_t Close(TMXStream* s) noexcept;
std::uint32_t GetSize(TMXStream* s) noexcept;
std::uint32_t Tell(TMXStream* s) noexcept;
std::int32_t Seek(TMXStream* s, std::uint32_t position) noexcept;
std::int32_t Read(TMXStream* s, void* buffer, std::int32_t count, std::int32_t* done) noexcept;
std::int32_t Write(TMXStream* s, const void* buffer, std::int32_t count,
                   std::int32_t* done) noexcept;
}  // namespace platform

}  // namespace tmx
