#include "util/wide_string.h"

#include <cstdint>

namespace tmx {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr bool kWide16 = sizeof(wchar_t) == 2;

bool IsHighSurrogate(char32_t c) noexcept { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char32_t c) noexcept { return c >= 0xDC00 && c <= 0xDFFF; }

// Appends one code point as UTF-8; false when it does not fit (one byte is
// always kept back for the terminator).
bool PutUtf8(char32_t c, std::span<char> out, std::size_t& n) noexcept {
  char buf[4];
  std::size_t len;
  if (c < 0x80) {
    buf[0] = char(c);
    len = 1;
  } else if (c < 0x800) {
    buf[0] = char(0xC0 | (c >> 6));
    buf[1] = char(0x80 | (c & 0x3F));
    len = 2;
  } else if (c < 0x10000) {
    buf[0] = char(0xE0 | (c >> 12));
    buf[1] = char(0x80 | ((c >> 6) & 0x3F));
    buf[2] = char(0x80 | (c & 0x3F));
    len = 3;
  } else {
    buf[0] = char(0xF0 | (c >> 18));
    buf[1] = char(0x80 | ((c >> 12) & 0x3F));
    buf[2] = char(0x80 | ((c >> 6) & 0x3F));
    buf[3] = char(0x80 | (c & 0x3F));
    len = 4;
  }
  if (out.size() - n < len + 1) return false;
  for (std::size_t i = 0; i < len; ++i) out[n++] = buf[i];
  return true;
}

bool PutWide(char32_t c, std::span<wchar_t> out, std::size_t& n) noexcept {
  if constexpr (kWide16) {
    if (c >= 0x10000) {
      if (out.size() - n < 3) return false;
      c -= 0x10000;
      out[n++] = wchar_t(0xD800 + (c >> 10));
      out[n++] = wchar_t(0xDC00 + (c & 0x3FF));
      return true;
    }
  }
  if (out.size() - n < 2) return false;
  out[n++] = wchar_t(c);
  return true;
}

// Decodes one UTF-8 sequence starting at in[i]; advances i.
char32_t NextUtf8(std::span<const char> in, std::size_t& i) noexcept {
  const auto b0 = std::uint8_t(in[i++]);
  if (b0 < 0x80) return b0;
  std::size_t extra;
  char32_t c;
  char32_t minimum;
  if ((b0 & 0xE0) == 0xC0) {
    extra = 1, c = b0 & 0x1F, minimum = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    extra = 2, c = b0 & 0x0F, minimum = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    extra = 3, c = b0 & 0x07, minimum = 0x10000;
  } else {
    return kReplacement;
  }
  for (std::size_t k = 0; k < extra; ++k) {
    if (i >= in.size() || (std::uint8_t(in[i]) & 0xC0) != 0x80) return kReplacement;
    c = (c << 6) | (std::uint8_t(in[i++]) & 0x3F);
  }
  if (c < minimum || c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c)) return kReplacement;
  return c;
}

}  // namespace

std::size_t WideLength(const wchar_t* s, std::size_t limit) noexcept {
  std::size_t n = 0;
  while (n < limit && s[n] != 0) ++n;
  return n;
}

bool WideToUtf8(std::span<const wchar_t> in, std::span<char> out) noexcept {
  if (out.empty()) return false;
  std::size_t n = 0;
  for (std::size_t i = 0; i < in.size(); ++i) {
    auto c = char32_t(std::uint32_t(in[i]) & (kWide16 ? 0xFFFFu : 0xFFFFFFFFu));
    if (IsHighSurrogate(c) && i + 1 < in.size() && IsLowSurrogate(char32_t(in[i + 1]))) {
      c = 0x10000 + ((c - 0xD800) << 10) + (char32_t(in[i + 1]) - 0xDC00);
      ++i;
    } else if (IsHighSurrogate(c) || IsLowSurrogate(c) || c > 0x10FFFF) {
      c = kReplacement;
    }
    if (!PutUtf8(c, out, n)) return false;
  }
  out[n] = 0;
  return true;
}

bool Utf8ToWide(std::span<const char> in, std::span<wchar_t> out) noexcept {
  if (out.empty()) return false;
  std::size_t n = 0;
  for (std::size_t i = 0; i < in.size();) {
    if (!PutWide(NextUtf8(in, i), out, n)) return false;
  }
  out[n] = 0;
  return true;
}

}  // namespace tmx
