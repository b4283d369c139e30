// Conversion of stored text values into the caller's text format.
//
// A value is decoded by its text kind into code points and encoded into the
// output format; the work is done on the caller's buffer, without allocating.
// What every conversion does:
// - The source ends at its first zero character or at the end of the span;
//   nothing beyond the span is read.
// - U+FEFF is dropped wherever it occurs, and so are the non-characters
//   U+FDD0..U+FDEF. No byte-order mark is ever written.
// - UTF-8 sources: a malformed sequence is dropped as a whole and decoding
//   resumes at the next byte that is not a continuation byte. Malformed are:
//   stray continuation bytes, the lead bytes C0, C1 and F5..FF, sequences cut
//   short (by another byte, a zero byte or the end of the span), overlong
//   forms, encoded surrogates U+D800..U+DFFF and values above U+10FFFF.
// - UTF-16 sources are read in host-order 16-bit units; a source whose first
//   unit is U+FFFE is read byte-swapped (that first unit is the swapped mark
//   and is skipped). Surrogate pairs are decoded; an unpaired surrogate is
//   dropped and the unit after it is read on its own. A lone last byte of an
//   odd-length source is ignored.
// - Single-byte sources are ISO 8859-1 with decimal numeric character
//   references: "&#" followed by one or more decimal digits is the character
//   whose value is that number modulo 256; a ';' after the digits is
//   ordinary text. "&#" without a digit after it is literal text,
//   and so is the hexadecimal form "&#x". A reference whose value is 0 (such
//   as "&#0" or "&#256") ends the text like a zero byte.
// - UTF-16 output uses host-order units and surrogate pairs above U+FFFF.
//   Single-byte output keeps code points 32..126 and 160..255 and drops every
//   other character.
// - The output always ends with a terminator when there is room for one. When
//   the next character does not fit in front of the terminator, the text is
//   cut there: no part of a multi-byte sequence or of a surrogate pair is
//   written and nothing after it follows.
#pragma once

#include <cstdint>
#include <span>

namespace tmx {

// Text kinds of a stored value.
inline constexpr std::uint32_t kTextSingleByte = 0, kTextUtf8 = 1, kTextUtf16 = 3, kTextJpeg = 16;

// Output formats (the file's unicodeFormat): 1 UTF-8, 3 UTF-16 (host-order 16-bit units), any
// other value single-byte.
inline constexpr std::uint32_t kFormatUtf8 = 1, kFormatUtf16 = 3;

// Converts the value `source` (its bytes; the text ends at the first zero character or at the end
// of the span) of text kind `kind` into `out`, a buffer of `capacity` BYTES, in output format
// `format`: kind 1 from UTF-8, kind 3 from UTF-16, every other kind from single-byte text with
// decimal numeric character references. Never writes past capacity; always terminates when there
// is room for a terminator (one zero byte for UTF-8 and single-byte output, one zero 16-bit unit
// for UTF-16 output, whose capacity in units is capacity / 2, so a last odd byte is left alone);
// text that does not fit is cut, the last position holding the terminator. A capacity of 0, or of
// 1 for UTF-16 output, leaves `out` untouched. `out` may be unaligned. Returns 0.
std::int32_t ConvertText(std::span<const std::uint8_t> source, std::uint32_t kind,
                         std::uint32_t format, std::uint8_t* out, std::uint32_t capacity) noexcept;

}  // namespace tmx
