// The generated tables: Huffman books are complete prefix codes whose decode
// trees give back every index, band layouts are consistent, windows are
// power-complementary and |q|^(4/3) holds over the whole escape range.
#include "codec/aac/tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "codec/aac/spectrum.h"

namespace tmx::aac {
namespace {

std::string Bits(std::uint32_t code, int length) {
  std::string s;
  for (int i = length - 1; i >= 0; --i) s += ((code >> i) & 1) ? '1' : '0';
  return s;
}

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

void CheckBook(const HuffmanBook& book, int expectedSize, const std::string& name) {
  SCOPED_TRACE(name);
  ASSERT_EQ(book.size, expectedSize);
  // Kraft sum exactly 1, in units of 2^-19 (the longest word).
  std::uint64_t kraft = 0;
  std::vector<std::string> words;
  for (int i = 0; i < book.size; ++i) {
    const int n = book.lengths[i];
    ASSERT_GE(n, 1);
    ASSERT_LE(n, 19);
    ASSERT_LT(book.codes[i], 1u << n) << "entry " << i;
    kraft += std::uint64_t{1} << (19 - n);
    words.push_back(Bits(book.codes[i], n));
  }
  EXPECT_EQ(kraft, std::uint64_t{1} << 19) << "not a complete code";
  // A prefix shows up between sorted neighbours.
  std::sort(words.begin(), words.end());
  for (std::size_t i = 1; i < words.size(); ++i) {
    EXPECT_NE(words[i].rfind(words[i - 1], 0), 0u)
        << words[i - 1] << " is a prefix of " << words[i];
  }
  for (int i = 0; i < book.size; ++i) {
    EXPECT_EQ(DecodeThroughTree(book, book.codes[i], book.lengths[i]), i);
  }
}

TEST(AacTables, HuffmanBooksAreCompletePrefixCodes) {
  CheckBook(kScalefactorBook, 121, "scalefactor");
  const int sizes[12] = {0, 81, 81, 81, 81, 81, 81, 64, 64, 169, 169, 289};
  for (int b = 1; b <= 11; ++b)
    CheckBook(kSpectralBooks[b], sizes[b], "spectral " + std::to_string(b));
}

TEST(AacTables, SpectralBookShapesMatchTheirSizes) {
  for (int b = 1; b <= 11; ++b) {
    const HuffmanBook& book = kSpectralBooks[b];
    SCOPED_TRACE(b);
    EXPECT_EQ(book.dimension, b <= 4 ? 4 : 2);
    EXPECT_EQ(book.isSigned, b == 1 || b == 2 || b == 5 || b == 6);
    EXPECT_EQ(book.escape, b == 11);
    const int perElement = book.isSigned ? 2 * book.lav + 1 : book.lav + 1;
    int size = 1;
    for (int i = 0; i < book.dimension; ++i) size *= perElement;
    EXPECT_EQ(size, book.size);
  }
}

TEST(AacTables, BandLayoutsEndAtTheWindowLength) {
  const std::uint32_t rates[kNumRates] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                          22050, 16000, 12000, 11025, 8000,  7350};
  for (int r = 0; r < kNumRates; ++r) {
    SCOPED_TRACE(rates[r]);
    EXPECT_EQ(kSampleRates[r], rates[r]);
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

TEST(AacTables, WindowsAreSymmetricPowerComplementary) {
  struct Case {
    const std::int32_t* rise;
    int n;
  };
  const Case cases[] = {{kSineLong, 1024}, {kSineShort, 128}, {kKbdLong, 1024}, {kKbdShort, 128}};
  for (const Case& c : cases) {
    for (int i = 0; i < c.n; ++i) {
      const double a = c.rise[i] / 2147483648.0;
      const double b = c.rise[c.n - 1 - i] / 2147483648.0;
      ASSERT_NEAR(a * a + b * b, 1.0, 1e-9) << "n " << c.n << " at " << i;
      if (i > 0) {
        ASSERT_GT(c.rise[i], c.rise[i - 1]);
      }
    }
  }
  // KBD rises later and steeper than the sine window.
  EXPECT_LT(kKbdLong[100], kSineLong[100]);
  EXPECT_LT(kKbdShort[10], kSineShort[10]);
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
