// Conversions between wide-character strings (UTF-16 or UTF-32 code units,
// whichever wchar_t holds) and UTF-8.
#pragma once

#include <cstddef>
#include <span>

namespace tmx {

// Length of a terminated wide string, stopping at `limit` characters.
std::size_t WideLength(const wchar_t* s, std::size_t limit) noexcept;

// Writes the UTF-8 form of `in` and a terminator into `out`. Unpaired
// surrogates and values beyond U+10FFFF become U+FFFD. Returns false when
// `out` is too small.
bool WideToUtf8(std::span<const wchar_t> in, std::span<char> out) noexcept;

// Writes the wide form of UTF-8 text `in` and a terminator into `out`.
// Malformed sequences become U+FFFD. Returns false when `out` is too small.
bool Utf8ToWide(std::span<const char> in, std::span<wchar_t> out) noexcept;

}  // namespace tmx
