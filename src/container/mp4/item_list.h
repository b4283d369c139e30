// The MP4 reader's side of metadata: items of an "ilst" list and their
// "data" variants.
#pragma once

#include <cstdint>

#include "container/container.h"

namespace tmx::mp4 {

inline constexpr std::uint32_t kFileLevel = 0xFFFFFFFF;

// Handler operation: locates the value of `key` for the file (chapter
// kFileLevel) or a chapter. *locale is the wanted locale in and the chosen
// one out. 0, -7 (no item list), -17, -25 or a stream error.
std::int32_t GetMetadataItem(Container* file, std::uint32_t chapter, std::uint32_t key,
                             std::uint32_t* locale, std::uint32_t* kind, std::uint32_t* offset,
                             std::uint32_t* size) noexcept;

// Handler operation: the distinct locale words of every "data" atom of the
// file-level list in order of first appearance. *count is the capacity in
// and the number found out; -19 when the capacity is smaller.
std::int32_t GetMetadataLocaleList(Container* file, std::uint32_t* locales,
                                   std::uint32_t* count) noexcept;

// The text kind of a "data" atom's value type: 1 UTF-8, 2 UTF-16, 13 JPEG.
std::uint32_t KindForValueType(std::uint32_t valueType) noexcept;

}  // namespace tmx::mp4
