// Base64 (RFC 4648 alphabet, "=" padding) for callers. Neither function is told
// the size of its output and neither writes a terminator or line breaks.
#include "util/base64.h"

#include <array>
#include <cstdint>

#include "tmxsdk.h"

namespace tmx {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Every byte outside the alphabet, "=" included, decodes as 0.
constexpr std::array<std::uint8_t, 256> kDecode = [] {
  std::array<std::uint8_t, 256> table{};
  for (std::uint8_t v = 0; v < 64; ++v) table[std::uint8_t(kAlphabet[v])] = v;
  return table;
}();

std::uint32_t Value(const char* input, std::int32_t at) noexcept {
  return kDecode[std::uint8_t(input[at])];
}

}  // namespace

std::int32_t Base64Encode(const unsigned char* input, std::int32_t length, char* output) noexcept {
  if (length <= 0) return 0;
  const std::int32_t groups = length / 3;
  char* o = output;
  const unsigned char* in = input;
  for (std::int32_t g = 0; g < groups; ++g, in += 3) {
    *o++ = kAlphabet[in[0] >> 2];
    *o++ = kAlphabet[((in[0] & 3) << 4) | (in[1] >> 4)];
    *o++ = kAlphabet[((in[1] & 15) << 2) | (in[2] >> 6)];
    *o++ = kAlphabet[in[2] & 63];
  }
  switch (length - 3 * groups) {
    case 1:
      *o++ = kAlphabet[in[0] >> 2];
      *o++ = kAlphabet[(in[0] & 3) << 4];
      *o++ = '=';
      *o++ = '=';
      break;
    case 2:
      *o++ = kAlphabet[in[0] >> 2];
      *o++ = kAlphabet[((in[0] & 3) << 4) | (in[1] >> 4)];
      *o++ = kAlphabet[(in[1] & 15) << 2];
      *o++ = '=';
      break;
    default: break;
  }
  return std::int32_t(o - output);
}

// Decodes all quartets but the last in full, then the tail: the last
// length % 4 characters, or the last quartet when the length is a multiple of
// four. The tail starts right after the quartets decoded in full, which for a
// length that is not a multiple of four is the start of the last complete
// quartet, so the characters after the tail are never looked at. The tail
// ends at its first "=". Bytes written for a short tail beyond the count
// returned stay in the output.
std::int32_t Base64Decode(const char* input, std::int32_t length, unsigned char* output) noexcept {
  if (length <= 0) return 0;
  const std::int32_t quartets = length / 4;
  const std::int32_t full = quartets > 1 ? quartets - 1 : 0;
  unsigned char* o = output;
  std::int32_t at = 0;
  for (std::int32_t q = 0; q < full; ++q, at += 4) {
    const std::uint32_t a = Value(input, at), b = Value(input, at + 1), c = Value(input, at + 2),
                        d = Value(input, at + 3);
    *o++ = static_cast<unsigned char>((a << 2) | (b >> 4));
    *o++ = static_cast<unsigned char>((b << 4) | (c >> 2));
    *o++ = static_cast<unsigned char>((c << 6) | d);
  }

  const std::int32_t rest = length - 4 * quartets;
  const std::int32_t tailLength = rest != 0 ? rest : 4;
  std::uint32_t v[4] = {0, 0, 0, 0};
  std::int32_t k = 0;
  while (k < tailLength && input[at + k] != '=') {
    v[k] = Value(input, at + k);
    ++k;
  }
  std::int32_t tailCount = 0;
  switch (k) {
    case 4:
    case 3:
      o[0] = static_cast<unsigned char>((v[0] << 2) | (v[1] >> 4));
      o[1] = static_cast<unsigned char>((v[1] << 4) | (v[2] >> 2));
      o[2] = static_cast<unsigned char>((v[2] << 6) | v[3]);
      tailCount = k == 4 ? 3 : 2;
      break;
    case 2:
      o[0] = static_cast<unsigned char>((v[0] << 2) | (v[1] >> 4));
      o[1] = static_cast<unsigned char>(v[1] << 4);
      tailCount = 1;
      break;
    case 1: o[0] = static_cast<unsigned char>(v[0] << 2); break;
    default: break;
  }
  return 3 * full + tailCount;
}

}  // namespace tmx
