// The metadata keys callers use ("@tit", "@aut", ...) and what they are
// called in each container.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tmx {

struct MetadataKey {
  std::uint32_t key;                // "@" code the caller passes
  std::string_view dictionaryName;  // name in the older container's dictionary
  std::uint32_t itemType;           // item type in the MP4 item list
};

// Every key the library knows, in search order.
std::span<const MetadataKey> MetadataKeys() noexcept;
// The item type of a key; a key outside the table is its own item type.
std::uint32_t ItemTypeForKey(std::uint32_t key) noexcept;
// The dictionary name of a key; empty for keys outside the table.
std::string_view DictionaryNameForKey(std::uint32_t key) noexcept;

// Keys whose values are handed over as raw bytes.
inline constexpr std::uint32_t kCoverKey = 0x40636172;      // "@car"
inline constexpr std::uint32_t kUserAliasKey = 0x4075616C;  // "@ual"

}  // namespace tmx
