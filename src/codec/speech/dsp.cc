#include "codec/speech/dsp.h"

#include <array>

namespace tmx::speech {
namespace {

// Compile-time helpers for the tables below (the decoder takes no floating
// point at run time).
constexpr double kPi = 3.14159265358979323846;

constexpr double CosSeries(double x) {
  while (x > kPi) x -= 2 * kPi;
  while (x < -kPi) x += 2 * kPi;
  double term = 1, sum = 1;
  for (int k = 1; k < 30; ++k) {
    term *= -x * x / ((2 * k - 1) * (2 * k));
    sum += term;
  }
  return sum;
}
constexpr double LnSeries(double y) {  // y > 0, via atanh
  const double z = (y - 1) / (y + 1);
  double term = z, sum = 0;
  for (int k = 0; k < 60; ++k) {
    sum += term / (2 * k + 1);
    term *= z * z;
  }
  return 2 * sum;
}
constexpr double ExpSeries(double x) {
  double term = 1, sum = 1;
  for (int k = 1; k < 40; ++k) {
    term *= x / k;
    sum += term;
  }
  return sum;
}

// cos(pi i / 128), i = 0..128, Q15.
constexpr std::array<Word16, 129> kCos = [] {
  std::array<Word16, 129> t{};
  for (int i = 0; i <= 128; ++i) t[i] = Q15(CosSeries(kPi * i / 128));
  return t;
}();
// log2(1 + i / 32), i = 0..32, Q15.
constexpr std::array<Word16, 33> kLog2 = [] {
  std::array<Word16, 33> t{};
  for (int i = 0; i <= 32; ++i) t[i] = Q15(LnSeries(1 + i / 32.0) / LnSeries(2.0));
  return t;
}();
// 2^(i / 32), i = 0..32, Q14 held in 32 bits (the last entry is 2.0).
constexpr std::array<Word32, 33> kPow2 = [] {
  std::array<Word32, 33> t{};
  for (int i = 0; i <= 32; ++i) t[i] = QConst(ExpSeries(LnSeries(2.0) * i / 32), 14);
  return t;
}();

}  // namespace

// Windowed sinc at offsets k + 1/2: sin(pi (k + 1/2)) / (pi (k + 1/2)) =
// (-1)^k / (pi (k + 1/2)), shaped by (1 - (t / (K + 1/2))^2)^2.
constexpr std::array<Word16, kHalfTapCount> kHalfTapArray = [] {
  std::array<Word16, kHalfTapCount> t{};
  for (int k = 0; k < kHalfTapCount; ++k) {
    const double x = k + 0.5;
    const double w = 1 - (x / (kHalfTapCount + 0.5)) * (x / (kHalfTapCount + 0.5));
    t[k] = Q15((k % 2 ? -1.0 : 1.0) / (kPi * x) * w * w);
  }
  return t;
}();
const Word16 kHalfTaps[kHalfTapCount] = {kHalfTapArray[0], kHalfTapArray[1], kHalfTapArray[2],
                                         kHalfTapArray[3], kHalfTapArray[4], kHalfTapArray[5],
                                         kHalfTapArray[6], kHalfTapArray[7]};

Word16 CosPi(Word16 x) noexcept {
  const int i = (x >> 8) & 127;
  const Word16 frac = static_cast<Word16>((x & 255) << 7);  // Q15
  const Word16 d = SOp::sub(kCos[i + 1], kCos[i]);
  return SOp::add(kCos[i], SOp::mult(d, frac));
}

Word16 Log2(Word32 x) noexcept {
  if (x <= 0) return 0;
  const Word16 e = SOp::norm_l(x);
  const Word32 xn = x << e;  // [2^30, 2^31)
  const int i = (xn >> 25) & 31;
  const Word16 frac = static_cast<Word16>((xn >> 10) & 0x7FFF);  // Q15 inside the segment
  const Word16 d = SOp::sub(kLog2[i + 1], kLog2[i]);
  const Word16 mant = SOp::add(kLog2[i], SOp::mult(d, frac));  // Q15
  // (30 - e) in Q10 plus the mantissa's log in Q10.
  return SOp::add(static_cast<Word16>((30 - e) << 10), SOp::shr(mant, 5));
}

Word32 Pow2(Word16 y) noexcept {
  const Word16 whole = static_cast<Word16>(y >> 10);  // floor
  const int frac = y & 1023;                          // Q10
  const int i = frac >> 5;
  const Word16 sub = static_cast<Word16>((frac & 31) << 10);                      // Q15
  const Word32 d = kPow2[i + 1] - kPow2[i];                                       // Q14, < 2^10
  const Word32 m = SOp::L_add(kPow2[i], SOp::mult(static_cast<Word16>(d), sub));  // Q14
  return SOp::L_shl(m, static_cast<Word16>(whole + 2));                           // Q16
}

void StabiliseLsf(Word16* lsf, Word16 minGap) noexcept {
  for (int i = 1; i < kOrder; ++i)
    for (int j = i; j > 0 && lsf[j] < lsf[j - 1]; --j) {
      const Word16 t = lsf[j];
      lsf[j] = lsf[j - 1];
      lsf[j - 1] = t;
    }
  Word16 low = minGap;
  for (int i = 0; i < kOrder; ++i) {
    if (lsf[i] < low) lsf[i] = low;
    low = SOp::add(lsf[i], minGap);
  }
  Word16 high = SOp::sub(kMax16, minGap);
  for (int i = kOrder - 1; i >= 0; --i) {
    if (lsf[i] > high) lsf[i] = high;
    high = SOp::sub(lsf[i], minGap);
  }
}

namespace {

// Coefficients 0..5 of prod_k (1 - 2 q_k z^-1 + z^-2) over the five cosines
// q[0], q[2], .. q[8] (Q15), in Q22. Degree 10 and symmetric, so the lower
// half is all A(z) needs; coefficients above the running degree stay 0.
void SumPolynomial(const Word16* q, Word32* f) noexcept {
  f[0] = QConst(1.0, 22);
  for (int j = 1; j <= 5; ++j) f[j] = 0;
  for (int k = 0; k < 5; ++k) {
    const Word16 qk = q[2 * k];
    // f[j] = f[j] - 2 qk f[j-1] + f[j-2], from the top down.
    for (int j = 5; j >= 1; --j) {
      Word16 hi, lo;
      SOp::L_Extract(f[j - 1], &hi, &lo);
      Word32 v = SOp::L_sub(f[j], SOp::L_shl(SOp::Mpy_32_16(hi, lo, qk), 1));
      if (j >= 2) v = SOp::L_add(v, f[j - 2]);
      f[j] = v;
    }
  }
}

}  // namespace

void LsfToLpc(const Word16* lsf, Word16* a) noexcept {
  Word16 q[kOrder];
  for (int i = 0; i < kOrder; ++i) q[i] = CosPi(lsf[i]);
  // P(z) from the even-numbered LSFs, Q(z) from the odd-numbered ones.
  Word32 p[6], r[6];
  SumPolynomial(q, p);
  SumPolynomial(q + 1, r);
  // A(z) = (P(z) (1 + z^-1) + Q(z) (1 - z^-1)) / 2.
  a[0] = 4096;
  for (int i = 1; i <= 5; ++i) {
    const Word32 pi = SOp::L_add(p[i], p[i - 1]);
    const Word32 qi = SOp::L_sub(r[i], r[i - 1]);
    // a[i] = (pi + qi) / 2 and a[11 - i] = (pi - qi) / 2, Q22 -> Q12.
    a[i] = SOp::round16(SOp::L_shl(SOp::L_add(pi, qi), 5));
    a[kOrder + 1 - i] = SOp::round16(SOp::L_shl(SOp::L_sub(pi, qi), 5));
  }
}

void WeightLpc(const Word16* a, Word16 gamma, Word16* out) noexcept {
  out[0] = a[0];
  Word16 g = gamma;
  for (int i = 1; i <= kOrder; ++i) {
    out[i] = SOp::round16(SOp::L_mult(a[i], g));
    g = SOp::mult(g, gamma);
  }
}

void AdaptiveVector(Word16* exc, int lag2, int n) noexcept {
  const int t = lag2 >> 1;
  if ((lag2 & 1) == 0) {
    for (int i = 0; i < n; ++i) exc[i] = exc[i - t];
    return;
  }
  // Half-way between exc[i - t - 1] and exc[i - t].
  for (int i = 0; i < n; ++i) {
    const Word16* x = exc + i - t;
    Word32 acc = 0;
    for (int k = 0; k < kHalfTapCount; ++k) {
      acc = SOp::L_add(acc, SOp::L_mult(x[-1 - k], kHalfTaps[k]));
      acc = SOp::L_add(acc, SOp::L_mult(x[k], kHalfTaps[k]));
    }
    exc[i] = SOp::round16(acc);
  }
}

void Synthesis(const Word16* a, const Word16* x, Word16* y, int n, Word16* mem) noexcept {
  Word16 hist[kOrder + 160];
  Word16* h = hist + kOrder;
  for (int i = 0; i < kOrder; ++i) hist[i] = mem[i];
  for (int i = 0; i < n; ++i) {
    Word32 acc = SOp::L_mult(x[i], 4096);  // Q13
    for (int k = 1; k <= kOrder; ++k) acc = SOp::L_sub(acc, SOp::L_mult(a[k], h[i - k]));
    h[i] = SOp::round16(SOp::L_shl(acc, 3));
  }
  for (int i = 0; i < n; ++i) y[i] = h[i];
  for (int i = 0; i < kOrder; ++i) mem[i] = h[n - kOrder + i];
}

void Residual(const Word16* a, const Word16* x, Word16* y, int n) noexcept {
  for (int i = 0; i < n; ++i) {
    Word32 acc = SOp::L_mult(x[i], 4096);  // Q13
    for (int k = 1; k <= kOrder; ++k) acc = SOp::L_add(acc, SOp::L_mult(a[k], x[i - k]));
    y[i] = SOp::round16(SOp::L_shl(acc, 3));
  }
}

Word32 Energy(const Word16* x, int n) noexcept {
  Word32 acc = 0;
  for (int i = 0; i < n; ++i) acc = SOp::L_add(acc, SOp::L_shr(SOp::L_mult(x[i], x[i]), 5));
  return acc;
}

Word16 SqrtRatio(Word32 num, Word32 den) noexcept {
  if (num <= 0) return 0;
  if (den <= 0) return 4096;
  const Word16 nn = SOp::norm_l(num), nd = SOp::norm_l(den);
  const Word16 n16 = SOp::shr(SOp::round16(SOp::L_shl(num, nn)), 1);  // [0.25, 0.5)
  const Word16 d16 = SOp::round16(SOp::L_shl(den, nd));               // [0.5, 1)
  const Word16 q = SOp::div_s(n16, d16);                              // Q15, [0.25, 1)
  // ratio = q * 2^e: sqrt(q) in Q31 times 2^(e / 2), an odd e taking a
  // factor 1 / sqrt(2) and one more step.
  int e = 1 + nd - nn;
  Word32 s = SOp::L_sqrt(Word32{q} << 16);  // Q31
  if (e & 1) {
    Word16 hi, lo;
    SOp::L_Extract(s, &hi, &lo);
    s = SOp::Mpy_32_16(hi, lo, Q15(0.70710678118654752));
    e += 1;
  }
  const Word32 r = SOp::L_shr(s, static_cast<Word16>(19 - e / 2));  // Q31 -> Q12
  return r > kMax16 ? kMax16 : static_cast<Word16>(r);
}

}  // namespace tmx::speech
