// Metadata lookups shared by the exports, the side-track readers and the
// metadata class.
#pragma once

#include <cstdint>
#include <span>

#include "api/file.h"

namespace tmx {

struct ItemValue {
  std::uint32_t locale;
  std::uint32_t kind;
  std::uint32_t offset;
  std::uint32_t size;
};

// Asks the handler for an item with the stream position saved and restored.
std::int32_t LookUpItem(TMXFile* file, std::uint32_t chapter, std::uint32_t key,
                        std::uint32_t locale, ItemValue* value) noexcept;

// Reads `out.size()` bytes at `offset`, restoring the stream position. A
// zero-length read succeeds without touching the stream.
std::int32_t ReadValue(TMXFile* file, std::uint32_t offset, std::span<std::uint8_t> out) noexcept;

// Reads `size` bytes at `offset` and converts them from text `kind` into
// `out` in the file's unicode format.
std::int32_t DeliverText(TMXFile* file, std::uint32_t offset, std::uint32_t size,
                         std::uint32_t kind, std::uint8_t* out, std::uint32_t capacity) noexcept;

// Buffer size a value of `size` bytes and text `kind` needs in `format`.
std::uint32_t NeededSize(std::uint32_t size, std::uint32_t kind, std::uint32_t format) noexcept;

}  // namespace tmx
