// The generated tables: Huffman books are complete prefix codes whose decode
// trees give back every index and |q|^(4/3) holds over the whole escape
// range. The windows and band layouts are pinned by the exact decodes of the
// clips.
#include "codec/aac/tables.h"

#include <gtest/gtest.h>

#include <cmath>

#include "codec/aac/spectrum.h"

namespace tmx::aac {
namespace {

// Walks the decode tree along a codeword; -1 if it ends early or runs on.
int DecodeThroughTree(const HuffmanBook& book, std::uint32_t code, int length) {
  std::uint32_t node = 0;
  for (int i = length - 1; i >= 0; --i) {
    const std::uint16_t e = book.tree[2 * node + ((code >> i) & 1)];
    if (e & kHuffmanLeaf) return i == 0 ? (e & 0x7FFF) : -1;
    node = e;
  }
  return -1;
}

// A complete code (Kraft sum exactly 1) whose tree gives back every index is
// also a prefix code: a word that is a prefix of another ends its walk early.
void CheckBook(const HuffmanBook& book, int expectedSize) {
  ASSERT_EQ(book.size, expectedSize);
  std::uint64_t kraft = 0;  // in units of 2^-19, the longest word
  for (int i = 0; i < book.size; ++i) {
    const int n = book.lengths[i];
    ASSERT_TRUE(n >= 1 && n <= 19) << "entry " << i;
    ASSERT_LT(book.codes[i], 1u << n) << "entry " << i;
    kraft += std::uint64_t{1} << (19 - n);
    EXPECT_EQ(DecodeThroughTree(book, book.codes[i], n), i);
  }
  EXPECT_EQ(kraft, std::uint64_t{1} << 19) << "not a complete code";
}

TEST(AacTables, HuffmanBooksAreCompletePrefixCodes) {
  CheckBook(kScalefactorBook, 121);
  for (int b = 1; b <= 11; ++b) {
    SCOPED_TRACE(b);
    const HuffmanBook& book = kSpectralBooks[b];
    const int perElement = book.isSigned ? 2 * book.lav + 1 : book.lav + 1;
    CheckBook(book, book.dimension == 4 ? perElement * perElement * perElement * perElement
                                        : perElement * perElement);
  }
}

TEST(AacTables, BandLayoutsEndAtTheWindowLength) {
  for (int r = 0; r < kNumRates; ++r) {
    SCOPED_TRACE(r);
    for (int kind = 0; kind < 2; ++kind) {
      const int count = kind == 0 ? kNumSwbLong[r] : kNumSwbShort[r];
      const std::uint16_t* off = kind == 0 ? kSwbOffsetLong[r] : kSwbOffsetShort[r];
      const int tnsMax = kind == 0 ? kTnsMaxBandsLong[r] : kTnsMaxBandsShort[r];
      EXPECT_EQ(off[0], 0);
      EXPECT_EQ(off[count], kind == 0 ? 1024 : 128);
      for (int b = 0; b < count; ++b) {
        EXPECT_LT(off[b], off[b + 1]);
        EXPECT_EQ(off[b] % 4, 0);  // 4-tuples never cross a band edge
      }
      EXPECT_GT(tnsMax, 0);
      EXPECT_LE(tnsMax, count);
      EXPECT_LE(count, kind == 0 ? 51 : 15);
    }
  }
}

TEST(AacTables, PowerFourThirdsOverTheWholeRange) {
  for (std::uint32_t q = 0; q <= 8191 + 15; ++q) {
    int frac = 0;
    const std::uint32_t mantissa = Pow43(q, &frac);
    const double got = std::ldexp(static_cast<double>(mantissa), -frac);
    const double want = std::pow(static_cast<double>(q), 4.0 / 3.0);
    ASSERT_NEAR(got, want, want * 1e-8 + 4e-6) << q;
  }
}

}  // namespace
}  // namespace tmx::aac
