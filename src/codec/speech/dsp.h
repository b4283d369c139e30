// Fixed-point building blocks of the speech decoder (and of the encoder's
// local decoder): cosine, log2 and power of two, LSF to LPC conversion, the
// half-sample interpolator and the short-term filters.
#pragma once

#include "codec/basicop.h"
#include "codec/speech/tables.h"

namespace tmx::speech {

using SOp = BasicOps<overflow::speech>;

// cos(pi x) for x in Q15 (0 .. 32767), Q15.
Word16 CosPi(Word16 x) noexcept;
// log2(x) of a positive integer, Q10; 0 for x <= 0.
Word16 Log2(Word32 x) noexcept;
// 2^y for y in Q10, Q16, saturated.
Word32 Pow2(Word16 y) noexcept;

// Sorts ten LSFs (Q15) and spreads them to at least `minGap` apart inside
// (minGap, 32767 - minGap).
void StabiliseLsf(Word16* lsf, Word16 minGap) noexcept;
// LSFs (Q15 fractions of the Nyquist frequency) to the prediction-error
// filter a[0..10], Q12 with a[0] = 1.
void LsfToLpc(const Word16* lsf, Word16* a) noexcept;
// a[i] * gamma^i, Q12 (gamma Q15).
void WeightLpc(const Word16* a, Word16 gamma, Word16* out) noexcept;

// Half-sample interpolator: taps for the sample half-way between x[-1] and
// x[0] are kHalfTaps[k] * (x[-1-k] + x[k]), k < kHalfTapCount.
inline constexpr int kHalfTapCount = 8;
extern const Word16 kHalfTaps[kHalfTapCount];  // Q15

// Adaptive-codebook vector of `n` samples at delay lag2 / 2 written to
// exc[0..n); exc[-1] back to the largest delay plus the interpolator's reach
// must hold the past excitation. Samples of the vector itself serve as
// history for delays shorter than n. Q0 in, Q0 out.
void AdaptiveVector(Word16* exc, int lag2, int n) noexcept;

// y = x / A(z): 1/A synthesis in place of a Q0 signal with `mem` holding the
// last ten outputs (mem[9] the most recent), updated. a Q12.
void Synthesis(const Word16* a, const Word16* x, Word16* y, int n, Word16* mem) noexcept;
// y = A(z) x; x[-10 .. -1] must hold the history. a Q12, x and y Q0.
void Residual(const Word16* a, const Word16* x, Word16* y, int n) noexcept;

// sqrt(num / den) in Q12, saturated to 8; 0 when num <= 0, 1.0 when den <= 0.
Word16 SqrtRatio(Word32 num, Word32 den) noexcept;
// Sum of squares of x[0..n) >> 4, saturated.
Word32 Energy(const Word16* x, int n) noexcept;

}  // namespace tmx::speech
