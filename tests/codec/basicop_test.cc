// The saturating operators: both ends of every range, shift counts of either
// sign, the division's results and the per-module overflow flags.
#include "codec/basicop.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace tmx {
namespace {

// Each test starts with a clear general flag and reads it back.
class BasicOpTest : public ::testing::Test {
 protected:
  void SetUp() override { overflow::general.store(0); }
  static bool Flagged() { return overflow::general.exchange(0) != 0; }
};

TEST_F(BasicOpTest, SixteenBitSumsSaturateAtBothEnds) {
  EXPECT_EQ(add(32767, 1), 32767);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(add(-32768, -1), -32768);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(sub(-32768, 1), -32768);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(sub(0, -32768), 32767);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(add(32766, 1), 32767);
  EXPECT_EQ(sub(-32767, 1), -32768);
  EXPECT_FALSE(Flagged());
}

TEST_F(BasicOpTest, ThirtyTwoBitSumsSaturateOnlyWhenTheSignFlips) {
  EXPECT_EQ(L_add(kMax32, 1), kMax32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_add(kMin32, -1), kMin32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_sub(kMin32, 1), kMin32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_sub(0, kMin32), kMax32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_add(kMax32, kMin32), -1);
  EXPECT_EQ(L_sub(-1, kMax32), kMin32);
  EXPECT_FALSE(Flagged());
}

TEST_F(BasicOpTest, ProductsSaturateOnlyForMinusOneSquared) {
  EXPECT_EQ(mult(-32768, -32768), 32767);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_mult(-32768, -32768), kMax32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(mult(-32768, 32767), -32767);
  EXPECT_EQ(mult(16384, 16384), 8192);
  EXPECT_EQ(mult(-1, 1), -1);  // the shift rounds towards minus infinity
  EXPECT_EQ(L_mult(-32768, 32767), -2147418112);
  EXPECT_EQ(L_mult(16384, 16384), 0x20000000);
  EXPECT_FALSE(Flagged());
}

TEST_F(BasicOpTest, SixteenBitShifts) {
  EXPECT_EQ(shl(1, 16), 32767);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(shl(-1, 16), -32768);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(shl(0, 20), 0);
  EXPECT_FALSE(Flagged());
  EXPECT_EQ(shl(0x4000, 1), 32767);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(shl(-0x4000, 1), -32768);
  EXPECT_FALSE(Flagged());
  EXPECT_EQ(shl(3, 2), 12);
  EXPECT_EQ(shl(100, -2), 25);
  EXPECT_EQ(shl(-100, -200), -1);  // right shift limited to 16
  EXPECT_EQ(shr(-5, 15), -1);
  EXPECT_EQ(shr(5, 15), 0);
  EXPECT_EQ(shr(5, -2), 20);
  EXPECT_EQ(shr(-7, 1), -4);
  EXPECT_FALSE(Flagged());
  EXPECT_EQ(shr(1, -300), 32767);  // left shift limited to 16, still saturating
  EXPECT_TRUE(Flagged());
}

TEST_F(BasicOpTest, ThirtyTwoBitShifts) {
  EXPECT_EQ(L_shl(0x40000000, 1), kMax32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_shl(-0x40000000, 1), kMin32);
  EXPECT_FALSE(Flagged());
  EXPECT_EQ(L_shl(-1, 31), kMin32);
  EXPECT_FALSE(Flagged());
  EXPECT_EQ(L_shl(-1, 32), kMin32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_shl(1, 32767), kMax32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(L_shl(0, 32767), 0);
  EXPECT_EQ(L_shl(1000, -3), 125);
  EXPECT_EQ(L_shl(kMin32, -32768), -1);
  EXPECT_EQ(L_shr(-1, 40), -1);
  EXPECT_EQ(L_shr(kMax32, 31), 0);
  EXPECT_EQ(L_shr(-9, 1), -5);
  EXPECT_EQ(L_shr(3, -4), 48);
  EXPECT_FALSE(Flagged());
  EXPECT_EQ(L_shr(3, -32768), kMax32);  // left shift limited to 32
  EXPECT_TRUE(Flagged());
}

TEST_F(BasicOpTest, NormalisationCounts) {
  EXPECT_EQ(norm_l(0), 0);
  EXPECT_EQ(norm_l(-1), 31);
  EXPECT_EQ(norm_l(1), 30);
  EXPECT_EQ(norm_l(kMax32), 0);
  EXPECT_EQ(norm_l(kMin32), 0);
  EXPECT_EQ(norm_l(0x40000000), 0);
  EXPECT_EQ(norm_l(0x3FFFFFFF), 1);
  EXPECT_EQ(norm_l(-0x40000000), 1);  // one's complement 0x3FFFFFFF
  EXPECT_EQ(norm_l(-0x40000001), 0);
  EXPECT_EQ(norm_l(-2), 30);
}

TEST_F(BasicOpTest, DivisionResults) {
  EXPECT_EQ(div_s(16384, 32767), 16384);
  EXPECT_EQ(div_s(1, 1), 32767);
  EXPECT_EQ(div_s(0, 5), 0);
  EXPECT_EQ(div_s(1, 3), 10922);
  EXPECT_EQ(div_s(1, 2), 16384);
  // Every quotient is the truncated Q15 value.
  for (int den = 1; den <= 32767; den += 397) {
    for (int num = 0; num <= den; num += 1 + den / 7) {
      const int want = num == den ? 32767 : (num * 32768) / den;
      ASSERT_EQ(div_s(static_cast<Word16>(num), static_cast<Word16>(den)), want)
          << num << "/" << den;
    }
  }
  // Arguments outside the range still give the steps' result.
  for (int den = 0; den <= 32767; den += 1091) {
    ASSERT_EQ(div_s(static_cast<Word16>(den + 1), static_cast<Word16>(den)), 32767) << den;
    ASSERT_EQ(div_s(32767, static_cast<Word16>(den)), 32767) << den;
    ASSERT_EQ(div_s(-1, static_cast<Word16>(den)), 0) << den;
    ASSERT_EQ(div_s(-32768, static_cast<Word16>(den)), 0) << den;
  }
  EXPECT_EQ(div_s(0, 0), 0);
}

TEST_F(BasicOpTest, SplitProducts) {
  Word16 hi, lo;
  L_Extract(0x12345678, &hi, &lo);
  EXPECT_EQ(hi, 0x1234);
  EXPECT_EQ(lo, 0x2B3C);
  EXPECT_EQ(L_Comp(hi, lo), 0x12345678);
  L_Extract(-3, &hi, &lo);
  EXPECT_EQ(hi, -1);
  EXPECT_EQ(lo, 0x7FFE);
  EXPECT_EQ(L_Comp(hi, lo), -4);

  // Products agree with the exact value to a few units of the last place.
  const Word32 xs[] = {kMax32, -0x7FFEFFFF, 0x40000000, -0x2468ACE0, 123456789, 1, -1};
  for (Word32 a : xs) {
    for (Word32 b : xs) {
      Word16 ah, al, bh, bl;
      L_Extract(a, &ah, &al);
      L_Extract(b, &bh, &bl);
      const double exact = static_cast<double>(a) * b / 2147483648.0;
      EXPECT_NEAR(Mpy_32(ah, al, bh, bl), exact, 6.0) << a << " * " << b;
      const double exact16 = static_cast<double>(a) * bh / 32768.0;
      EXPECT_NEAR(Mpy_32_16(ah, al, bh), exact16, 3.0) << a << " * " << bh;
    }
  }
  EXPECT_FALSE(Flagged());
  // -1 * -1 saturates inside both.
  EXPECT_EQ(Mpy_32_16(-32768, 0, -32768), kMax32);
  EXPECT_TRUE(Flagged());
  EXPECT_EQ(Mpy_32(-32768, 0, -32768, 0), kMax32);
  EXPECT_TRUE(Flagged());
}

TEST_F(BasicOpTest, SquareRootOfQ31) {
  EXPECT_EQ(L_sqrt(0), 0);
  EXPECT_EQ(L_sqrt(-5), 0);
  EXPECT_NEAR(L_sqrt(0x20000000), 0x40000000, 8);  // sqrt(0.25) = 0.5
  EXPECT_NEAR(L_sqrt(kMax32), kMax32, 1);
  EXPECT_NEAR(L_sqrt(1), 46341, 1);
  // Within a unit for small results and about 2^-26 relative for large ones.
  for (std::int64_t x = 1; x <= kMax32; x += 1 + x / 64) {
    const double exact = std::sqrt(static_cast<double>(x) * 2147483648.0);
    ASSERT_NEAR(L_sqrt(static_cast<Word32>(x)), exact, 1.0 + exact * std::ldexp(1.0, -26)) << x;
  }
}

TEST_F(BasicOpTest, EachModuleHasItsOwnFlag) {
  using Spectral = BasicOps<overflow::spectral>;
  using Filterbank = BasicOps<overflow::filterbank>;
  overflow::spectral.store(0);
  overflow::filterbank.store(0);
  EXPECT_EQ(Spectral::L_add(kMax32, kMax32), kMax32);
  EXPECT_EQ(overflow::spectral.load(), 1);
  EXPECT_EQ(overflow::filterbank.load(), 0);
  EXPECT_FALSE(Flagged());
  Filterbank::L_add(1, 1);  // operators never clear a flag
  EXPECT_EQ(overflow::spectral.load(), 1);
  EXPECT_EQ(Filterbank::sat16(40000), 32767);
  EXPECT_EQ(overflow::filterbank.load(), 1);
  overflow::spectral.store(0);
  overflow::filterbank.store(0);
}

TEST_F(BasicOpTest, ConstantsFromDecimals) {
  static_assert(Q15(0.8) == 26214);
  static_assert(Q15(1.0) == 32767);
  static_assert(Q15(-1.0) == -32768);
  static_assert(Q31(0.5) == 0x40000000);
  static_assert(Q31(-0.25) == -0x20000000);
  static_assert(QConst(1.5, 29) == 0x30000000);
  // The exact fast-path product rounds to nearest and saturates -1 * -1.
  EXPECT_EQ(Ops::MulQ31(Q31(0.5), Q31(0.5)), Q31(0.25));
  EXPECT_EQ(Ops::MulQ31(-3, 0x40000000), -1);  // -1.5 rounds up
  EXPECT_EQ(Ops::MulQ31(kMin32, kMin32), kMax32);
  EXPECT_TRUE(Flagged());
}

}  // namespace
}  // namespace tmx
