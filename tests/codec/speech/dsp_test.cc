// The fixed-point steps of the speech decoder against double-precision
// references.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "codec/speech/decoder.h"
#include "codec/speech/dsp.h"
#include "codec/speech/layout.h"

namespace tmx::speech {
namespace {

constexpr double kPi = 3.14159265358979323846;

TEST(SpeechDsp, CosineLogAndPowerFollowTheirFunctions) {
  for (int x = 0; x < 32768; x += 97)
    EXPECT_NEAR(CosPi(static_cast<Word16>(x)) / 32768.0, std::cos(kPi * x / 32768), 4e-4) << x;
  for (Word32 v : {1, 2, 3, 1000, 65535, 123456789, 2147483647})
    EXPECT_NEAR(Log2(v) / 1024.0, std::log2(double(v)), 2e-3) << v;
  EXPECT_EQ(Log2(0), 0);
  EXPECT_EQ(Log2(-5), 0);
  for (double y : {-10.0, -1.5, 0.0, 0.3, 3.5, 7.25, 14.0})
    EXPECT_NEAR(Pow2(static_cast<Word16>(std::lround(y * 1024))) / 65536.0 / std::exp2(y), 1.0,
                2e-3 + 4e-5 / std::exp2(y))
        << y;
  EXPECT_EQ(Pow2(static_cast<Word16>(20 * 1024)), kMax32);  // saturates
}

TEST(SpeechDsp, SqrtRatioOverTheRange) {
  for (Word32 num : {1, 7, 1000, 99999, 1 << 20, 2000000000})
    for (Word32 den : {1, 3, 1000, 77777, 1 << 24, 2100000000}) {
      const double want = std::sqrt(double(num) / den);
      const double got = SqrtRatio(num, den) / 4096.0;
      if (want >= 7.99)
        EXPECT_EQ(SqrtRatio(num, den), kMax16);
      else
        EXPECT_NEAR(got, want, 2e-3 * want + 1.0 / 4096) << num << "/" << den;
    }
  EXPECT_EQ(SqrtRatio(0, 5), 0);
  EXPECT_EQ(SqrtRatio(5, 0), 4096);
}

TEST(SpeechDsp, LsfToLpcMatchesTheProductOfItsFactors) {
  const double sets[2][10] = {{0.04, 0.09, 0.16, 0.22, 0.31, 0.42, 0.5, 0.63, 0.75, 0.88},
                              {0.02, 0.03, 0.1, 0.12, 0.3, 0.33, 0.6, 0.62, 0.9, 0.95}};
  for (const auto& lsf : sets) {
    Word16 q[kOrder], a[kOrder + 1];
    for (int i = 0; i < kOrder; ++i) q[i] = Q15(lsf[i]);
    LsfToLpc(q, a);
    double p[12] = {1}, r[12] = {1};
    auto mul = [](double* f, double w) {
      for (int j = 11; j >= 1; --j)
        f[j] += -2 * std::cos(kPi * w) * f[j - 1] + (j >= 2 ? f[j - 2] : 0);
    };
    for (int k = 0; k < 5; ++k) mul(p, lsf[2 * k]), mul(r, lsf[2 * k + 1]);
    EXPECT_EQ(a[0], 4096);
    for (int i = 1; i <= kOrder; ++i)
      EXPECT_NEAR(a[i] / 4096.0, 0.5 * (p[i] + p[i - 1] + r[i] - r[i - 1]), 4e-3) << i;
  }
}

TEST(SpeechDsp, StabilisedLsfsAreOrderedAndSpaced) {
  Word16 lsf[kOrder] = {9000, 100, 9010, 32767, 32000, 5, 15000, 14990, 20000, 0};
  StabiliseLsf(lsf, 400);
  EXPECT_GE(lsf[0], 400);
  EXPECT_LE(lsf[kOrder - 1], 32767 - 400);
  for (int i = 1; i < kOrder; ++i) EXPECT_GE(lsf[i] - lsf[i - 1], 400) << i;
}

TEST(SpeechDsp, HalfSampleDelayOfASlowSine) {
  // A sine well inside the band, delayed by 30.5 samples.
  std::vector<Word16> buf(400);
  const double f = 0.031;
  for (int i = 0; i < 400; ++i)
    buf[i] = static_cast<Word16>(std::lround(10000 * std::sin(2 * kPi * f * i)));
  Word16* cur = buf.data() + 300;
  AdaptiveVector(cur, 61, 48);
  // Up to where the interpolator's reach (8 taps) stays in the history.
  for (int i = 0; i < 30 - 8; ++i)
    EXPECT_NEAR(cur[i], 10000 * std::sin(2 * kPi * f * (300 + i - 30.5)), 60) << i;
  // An even delay copies, also across the vector itself (delay under its length).
  AdaptiveVector(cur, 40, 48);
  for (int i = 0; i < 48; ++i) EXPECT_EQ(cur[i], cur[i - 20]);
}

TEST(SpeechDsp, FixedVectorPulsesAndSigns) {
  const FrameShape& three = *ShapeForMode(3);
  Word16 code[kMaxSubframe];
  // Track 0: positions 2 and 5 (0 + 3 * index), same sign, positive.
  // Track 1: first 7, second 1: the second comes first, so its sign flips.
  // Track 2: both on index 4: one double pulse, negative.
  const int fcb[3] = {2 | (5 << 4), 7 | (1 << 4), 4 | (4 << 4) | 256};
  FixedVector(three, fcb, 48, code);  // no sharpening inside the subframe
  std::vector<Word16> want(48, 0);
  want[6] = 4096, want[15] = 4096, want[22] = 4096, want[4] = -4096, want[14] = -8192;
  EXPECT_EQ(std::vector<Word16>(code, code + 48), want);
  // Sharpening at 20 adds 0.8 times the vector 20 samples back.
  FixedVector(three, fcb, 20, code);
  EXPECT_EQ(code[26], Q15(0.8) * 4096 >> 15);
  EXPECT_EQ(code[46], static_cast<Word16>(((Q15(0.8) * 4096) >> 15) * Q15(0.8) >> 15));
}

}  // namespace
}  // namespace tmx::speech
