// Result-code plumbing shared by every internal step.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

// Returns from the enclosing function when a step yields a non-zero code.
#define TMX_RETURN_IF_ERROR(expr)                                    \
  do {                                                               \
    if (std::int32_t tmx_rc_ = (expr); tmx_rc_ != 0) return tmx_rc_; \
  } while (0)

namespace tmx {

// Four-character code with the first character in the most significant byte.
constexpr std::uint32_t FourCC(const char (&s)[5]) noexcept {
  return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16) |
         (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint32_t(std::uint8_t(s[3]));
}

// Lowers the capital letters of each byte of a code read from a file, so that
// "FTYP" compares equal to "ftyp". Other bytes are left as they are.
constexpr std::uint32_t LowerFourCC(std::uint32_t code) noexcept {
  std::uint32_t out = 0;
  for (int shift = 24; shift >= 0; shift -= 8) {
    std::uint32_t c = (code >> shift) & 0xFF;
    if (c >= 'A' && c <= 'Z') c += 'a' - 'A';
    out |= c << shift;
  }
  return out;
}

}  // namespace tmx
