// Constant tables of the AAC-LC decoder. The Huffman books, band offsets and
// TNS limits are the standard's; the rest is computed. tables.cc is generated
// by scripts/gen_aac_tables.py.
#pragma once

#include <cstdint>

namespace tmx::aac {

inline constexpr int kNumRates = 13;
inline constexpr int kPow43Size = 1026;

// Sampling rate in Hz of each 4-bit sampling-frequency index.
extern const std::uint32_t kSampleRates[kNumRates];

// One Huffman book. tree[2 * node + bit] is the next node, or 0x8000 | index
// at a leaf; node 0 is the root and bits are read most significant first.
//
// lookup[] decodes a word in one or two steps from the next bits of the
// stream. An entry of the root table (indexed by the next lookupBits bits) is
// either a word, payload << 8 | length, or a link, offset << 8 |
// kLookupLink | s: the word is then lookup[offset + next s bits after the
// first lookupBits]. In the spectral books of magnitudes the sign bits that
// follow a word belong to it (length included), so the payload always holds
// signed values: 6-bit two's complement fields, the first value in bits 26 to
// 31, the next in bits 20 to 25 and so on. In the scalefactor book the
// payload is the index.
struct HuffmanBook {
  const std::uint32_t* codes;
  const std::uint8_t* lengths;
  const std::uint16_t* tree;
  const std::uint32_t* lookup;
  std::uint16_t size;
  std::uint8_t dimension;  // values per codeword
  std::uint8_t lav;        // largest absolute value (16 = escape in book 11)
  bool isSigned;           // false: magnitudes followed by sign bits
  bool escape;
  std::uint8_t lookupBits;  // index bits of the root lookup table
};
inline constexpr std::uint16_t kHuffmanLeaf = 0x8000;
inline constexpr std::uint32_t kLookupLink = 0x20;

// The entry of `book` for the word at the top of `bits` (the next 32 bits of
// the stream, most significant first): payload << 8 | word length.
inline std::uint32_t LookUp(const HuffmanBook& book, std::uint32_t bits) noexcept {
  std::uint32_t e = book.lookup[bits >> (32 - book.lookupBits)];
  if (e & kLookupLink) e = book.lookup[(e >> 8) + ((bits << book.lookupBits) >> (32 - (e & 31)))];
  return e;
}

// Index i stands for the scalefactor difference i - 60.
extern const HuffmanBook kScalefactorBook;
// Books 1 to 11; entry 0 is empty.
extern const HuffmanBook kSpectralBooks[12];

// Scalefactor bands per rate index: counts, and offsets with a final entry at
// the window length (1024 or 128).
extern const std::uint8_t kNumSwbLong[kNumRates];
extern const std::uint8_t kNumSwbShort[kNumRates];
extern const std::uint16_t* const kSwbOffsetLong[kNumRates];
extern const std::uint16_t* const kSwbOffsetShort[kNumRates];
// Highest band TNS may reach in the LC object type.
extern const std::uint8_t kTnsMaxBandsLong[kNumRates];
extern const std::uint8_t kTnsMaxBandsShort[kNumRates];

// |q|^(4/3), Q18, for q < kPow43Size.
extern const std::uint32_t kPow43[kPow43Size];

// Rising halves of the windows, Q31; the falling half is the mirror image.
extern const std::int32_t kSineLong[1024];
extern const std::int32_t kSineShort[128];
extern const std::int32_t kKbdLong[1024];  // alpha 4
extern const std::int32_t kKbdShort[128];  // alpha 6

// exp(-2 pi i k / 512), k < 256, as Q31 (re, im) pairs.
extern const std::int32_t kFftTwiddle[512];
// Radix-4 FFT twiddles, Q31 (re, im) pairs: for the stages of L = 16, 64 and
// 256 points (offsets 0, 24 and 120), w = exp(-2 pi i / L), the L / 4 values
// w^k (k < L / 4), then the w^2k, then the w^3k.
extern const std::int32_t kFftRadix4Twiddle[504];
// Bit reversal of 9-bit indexes.
extern const std::uint16_t kBitReverse512[512];
// DCT-IV twiddles, Q31 (re, im) pairs, p < M / 2 for M = 1024 and 128:
// pre exp(-i pi (4p + 1) / 4M), post exp(-i pi p / M).
extern const std::int32_t kPreTwiddleLong[1024];
extern const std::int32_t kPostTwiddleLong[1024];
extern const std::int32_t kPreTwiddleShort[128];
extern const std::int32_t kPostTwiddleShort[128];

// TNS reflection coefficients, Q31: kTnsCoef3[c + 4] for 3-bit resolution,
// kTnsCoef4[c + 8] for 4-bit resolution, c the signed transmitted value.
extern const std::int32_t kTnsCoef3[8];
extern const std::int32_t kTnsCoef4[16];

}  // namespace tmx::aac
