// Saturating fixed-point operators shared by the decoders.
//
// Word16 is a Q15 fraction, Word32 a Q31 fraction unless a caller says
// otherwise. Every operator that saturates sets its module's overflow flag to 1
// and never clears it. Decoders on several threads set the same flags, so the
// flags are atomics written with relaxed stores (a plain store on common
// processors); only the tests read them. A module picks its flag by naming its
// operator set, e.g. `using Op = tmx::BasicOps<tmx::overflow::spectral>;`,
// and calling `Op::L_add(a, b)`; the free functions below use the general
// flag.
//
// The 64-bit helpers at the end (MulQ31, Sat32 ...) are the fast path the AAC
// filterbank uses: they give the exact rounded product the split-form
// operators approximate.
#pragma once

#include <atomic>
#include <cstdint>

namespace tmx {

using Word16 = std::int16_t;
using Word32 = std::int32_t;
using Flag = std::int32_t;

inline constexpr Word16 kMax16 = 32767;
inline constexpr Word16 kMin16 = -32768;
inline constexpr Word32 kMax32 = 2147483647;
inline constexpr Word32 kMin32 = -kMax32 - 1;

// Q15 / Q31 constants from decimals, rounded to nearest and saturated, e.g.
// Q15(0.8) == 26214. Meant for constant expressions.
constexpr Word16 Q15(double x) {
  const double v = x * 32768.0;
  if (v >= 32767.0) return kMax16;
  if (v <= -32768.0) return kMin16;
  return static_cast<Word16>(v < 0 ? v - 0.5 : v + 0.5);
}
constexpr Word32 Q31(double x) {
  const double v = x * 2147483648.0;
  if (v >= 2147483647.0) return kMax32;
  if (v <= -2147483648.0) return kMin32;
  return static_cast<Word32>(v < 0 ? v - 0.5 : v + 0.5);
}
// Any Q format: x * 2^q rounded, for |x * 2^q| < 2^31.
constexpr Word32 QConst(double x, int q) {
  double v = x;
  for (int i = 0; i < q; ++i) v *= 2.0;
  return static_cast<Word32>(v < 0 ? v - 0.5 : v + 0.5);
}

// One overflow flag word per decoder module.
namespace overflow {
inline std::atomic<Flag> general{0};     // operators called through the free functions
inline std::atomic<Flag> bitReader{0};   // AAC bit buffer and syntax parsing
inline std::atomic<Flag> spectral{0};    // AAC inverse quantisation and stereo/PNS/TNS tools
inline std::atomic<Flag> filterbank{0};  // AAC IMDCT, windowing and output rounding
inline std::atomic<Flag> speech{0};      // speech decoder
}  // namespace overflow

template <std::atomic<Flag>& Overflow>
struct BasicOps {
  // Records a saturation in the module's flag.
  static void Saturated() noexcept { Overflow.store(1, std::memory_order_relaxed); }

  // 32-bit value to 16 bits, saturated. (One test for the common case: the
  // value is in range exactly when it survives the narrowing.)
  static Word16 sat16(Word32 x) noexcept {
    const Word16 y = static_cast<Word16>(x);
    if (y == x) [[likely]]
      return y;
    Saturated();
    return x > 0 ? kMax16 : kMin16;
  }
  // 64-bit value to 32 bits, saturated (tested as sat16).
  static Word32 Sat32(std::int64_t x) noexcept {
    const Word32 y = static_cast<Word32>(x);
    if (y == x) [[likely]]
      return y;
    Saturated();
    return x > 0 ? kMax32 : kMin32;
  }

  // 16+16 -> 16 bits, saturated.
  static Word16 add(Word16 a, Word16 b) noexcept { return sat16(Word32{a} + b); }
  // 16-16 -> 16 bits, saturated.
  static Word16 sub(Word16 a, Word16 b) noexcept { return sat16(Word32{a} - b); }
  // 32+32 -> 32 bits, saturated.
  static Word32 L_add(Word32 a, Word32 b) noexcept { return Sat32(std::int64_t{a} + b); }
  // 32-32 -> 32 bits, saturated.
  static Word32 L_sub(Word32 a, Word32 b) noexcept { return Sat32(std::int64_t{a} - b); }
  // Q15 x Q15 -> Q15: 16x16 product, 15-bit shift right; only -1 * -1 saturates.
  static Word16 mult(Word16 a, Word16 b) noexcept { return sat16((Word32{a} * b) >> 15); }
  // Q15 x Q15 -> Q31: 16x16 product doubled; only -1 * -1 saturates.
  static Word32 L_mult(Word16 a, Word16 b) noexcept {
    const Word32 p = Word32{a} * b;
    if (p == (Word32{1} << 30)) {  // -1 * -1
      Saturated();
      return kMax32;
    }
    return p * 2;
  }
  // 16-bit left shift, saturated; a negative count shifts right (at most 16).
  static Word16 shl(Word16 v, Word16 count) noexcept {
    if (count < 0) return shr(v, static_cast<Word16>(count < -16 ? 16 : -count));
    if (v == 0) return 0;
    if (count >= 16) {
      Saturated();
      return v > 0 ? kMax16 : kMin16;
    }
    return sat16(Word32{v} * (Word32{1} << count));
  }
  // 16-bit arithmetic right shift; a negative count shifts left (at most 16).
  static Word16 shr(Word16 v, Word16 count) noexcept {
    if (count < 0) return shl(v, static_cast<Word16>(count < -16 ? 16 : -count));
    if (count >= 15) return v < 0 ? Word16{-1} : Word16{0};
    return static_cast<Word16>(v >> count);
  }
  // 32-bit left shift, saturated; a negative count shifts right (at most 32).
  static Word32 L_shl(Word32 v, Word16 count) noexcept {
    if (count <= 0) return L_shr(v, static_cast<Word16>(count < -32 ? 32 : -count));
    return Sat32(std::int64_t{v} << (count > 32 ? 32 : count));
  }
  // 32-bit arithmetic right shift; a negative count shifts left (at most 32).
  static Word32 L_shr(Word32 v, Word16 count) noexcept {
    if (count < 0) return L_shl(v, static_cast<Word16>(count < -32 ? 32 : -count));
    if (count >= 31) return v < 0 ? -1 : 0;
    return v >> count;
  }
  // Q15 quotient num/den for 0 <= num <= den, by 15 steps of restoring division.
  // Other arguments still run the steps, which gives 32767 for num > den >= 0
  // and 0 for num < 0 <= den.
  static Word16 div_s(Word16 num, Word16 den) noexcept {
    if (num == 0) return 0;
    if (num == den) return kMax16;
    Word16 out = 0;
    Word32 r = num;
    for (int i = 0; i < 15; ++i) {
      r = L_shl(r, 1);
      out = static_cast<Word16>(out * 2);
      if (r >= den) {
        r = L_sub(r, den);
        out = add(out, 1);
      }
    }
    return out;
  }

  // 16-bit negation; -32768 saturates.
  static Word16 negate(Word16 v) noexcept { return sat16(-Word32{v}); }
  // 16-bit magnitude; -32768 saturates.
  static Word16 abs_s(Word16 v) noexcept { return sat16(v < 0 ? -Word32{v} : Word32{v}); }
  // 32-bit negation; -2^31 saturates.
  static Word32 L_negate(Word32 v) noexcept { return Sat32(-std::int64_t{v}); }
  // 32-bit magnitude; -2^31 saturates.
  static Word32 L_abs(Word32 v) noexcept { return Sat32(v < 0 ? -std::int64_t{v} : v); }
  // Q31 -> Q15 with rounding: (v + 2^15) >> 16, saturated.
  static Word16 round16(Word32 v) noexcept {
    return static_cast<Word16>(L_add(v, Word32{1} << 15) >> 16);
  }

  // 32x16 product in split form: (hi, lo) Q31 times n Q15 -> Q31, saturated.
  static Word32 Mpy_32_16(Word16 hi, Word16 lo, Word16 n) noexcept {
    return L_add(L_mult(hi, n), Word32{mult(lo, n)} * 2);
  }
  // 32x32 product in split form: Q31 x Q31 -> Q31 without the lo*lo term, saturated.
  static Word32 Mpy_32(Word16 hi1, Word16 lo1, Word16 hi2, Word16 lo2) noexcept {
    Word32 r = L_mult(hi1, hi2);
    r = L_add(r, Word32{mult(hi1, lo2)} * 2);
    return L_add(r, Word32{mult(lo1, hi2)} * 2);
  }

  // Square root of a Q31 value in Q31 (sqrt(x / 2^31) * 2^31); 0 for x <= 0.
  // The normalised value's inverse square root (Q30) starts from a quadratic
  // guess and takes three Newton steps, all in split arithmetic.
  static Word32 L_sqrt(Word32 x) noexcept {
    if (x <= 0) return 0;
    const Word16 e = static_cast<Word16>(norm_l(x) & ~1);
    const Word32 xn = x << e;  // Q31 in [0.25, 1)
    Word16 xh, xl;
    L_Extract(xn, &xh, &xl);
    // First guess of 1/sqrt(f) on [0.25, 1): 2.6286 - 3.1340 f + 1.5232 f^2,
    // coefficients Q13, sum Q29.
    constexpr Word16 kC0 = static_cast<Word16>(QConst(2.6286, 13));
    constexpr Word16 kC1 = static_cast<Word16>(QConst(-3.1340, 13));
    constexpr Word16 kC2 = static_cast<Word16>(QConst(1.5232, 13));
    Word32 acc = L_add(Word32{kC0} << 16, L_mult(kC1, xh));  // Q29
    acc = L_add(acc, L_mult(kC2, mult(xh, xh)));             // Q29
    Word32 y = L_shl(acc, 1);                                // Q30, saturates only at f = 0.25
    for (int i = 0; i < 3; ++i) {
      Word16 yh, yl, sh, sl;
      L_Extract(y, &yh, &yl);
      const Word32 y2 = Mpy_32(yh, yl, yh, yl);  // Q29: y^2
      L_Extract(y2, &sh, &sl);
      const Word32 h = Mpy_32(xh, xl, sh, sl);     // Q29: f y^2, i.e. Q30 of f y^2 / 2
      const Word32 t = L_sub(QConst(1.5, 30), h);  // Q30: 1.5 - f y^2 / 2
      L_Extract(t, &sh, &sl);
      y = L_shl(Mpy_32(yh, yl, sh, sl), 1);  // Q30
    }
    Word16 yh, yl;
    L_Extract(y, &yh, &yl);
    const Word32 s = Mpy_32(xh, xl, yh, yl);  // Q30 of sqrt(f)
    return L_shr(s, static_cast<Word16>(e / 2 - 1));
  }

  // Count of left shifts that normalise v into [2^30, 2^31) (negative values on
  // their one's complement); 0 for 0, 31 for -1.
  static Word16 norm_l(Word32 v) noexcept {
    if (v == 0) return 0;
    if (v == -1) return 31;
    std::uint32_t u = static_cast<std::uint32_t>(v < 0 ? ~v : v);
    Word16 n = 0;
    while (u < (1u << 30)) {
      u <<= 1;
      ++n;
    }
    return n;
  }
  // Splits a Word32 into (hi, lo): hi = v >> 16, lo = (v >> 1) & 0x7FFF.
  static void L_Extract(Word32 v, Word16* hi, Word16* lo) noexcept {
    *hi = static_cast<Word16>(v >> 16);
    *lo = static_cast<Word16>((v >> 1) & 0x7FFF);
  }
  // Joins a split number: hi * 2^16 + lo * 2.
  static Word32 L_Comp(Word16 hi, Word16 lo) noexcept {
    return static_cast<Word32>(static_cast<std::uint32_t>(hi) << 16) + Word32{lo} * 2;
  }

  // Fast path, exact: Q31 x Q31 -> Q31, 32x32 product, 31-bit shift right with
  // rounding; only -1 * -1 saturates.
  static Word32 MulQ31(Word32 a, Word32 b) noexcept {
    return Sat32((std::int64_t{a} * b + (std::int64_t{1} << 30)) >> 31);
  }
  // Fast path, exact: a x b >> s with rounding, 0 < s < 63, saturated to 32 bits.
  static Word32 MulShift(Word32 a, Word32 b, int s) noexcept {
    return Sat32((std::int64_t{a} * b + (std::int64_t{1} << (s - 1))) >> s);
  }
};

// The operators on the general flag.
using Ops = BasicOps<overflow::general>;
inline Word16 add(Word16 a, Word16 b) noexcept { return Ops::add(a, b); }
inline Word16 sub(Word16 a, Word16 b) noexcept { return Ops::sub(a, b); }
inline Word32 L_add(Word32 a, Word32 b) noexcept { return Ops::L_add(a, b); }
inline Word32 L_sub(Word32 a, Word32 b) noexcept { return Ops::L_sub(a, b); }
inline Word16 mult(Word16 a, Word16 b) noexcept { return Ops::mult(a, b); }
inline Word32 L_mult(Word16 a, Word16 b) noexcept { return Ops::L_mult(a, b); }
inline Word16 shl(Word16 v, Word16 n) noexcept { return Ops::shl(v, n); }
inline Word16 shr(Word16 v, Word16 n) noexcept { return Ops::shr(v, n); }
inline Word32 L_shl(Word32 v, Word16 n) noexcept { return Ops::L_shl(v, n); }
inline Word32 L_shr(Word32 v, Word16 n) noexcept { return Ops::L_shr(v, n); }
inline Word16 div_s(Word16 num, Word16 den) noexcept { return Ops::div_s(num, den); }
inline Word16 norm_l(Word32 v) noexcept { return Ops::norm_l(v); }
inline Word16 negate(Word16 v) noexcept { return Ops::negate(v); }
inline Word16 abs_s(Word16 v) noexcept { return Ops::abs_s(v); }
inline Word32 L_negate(Word32 v) noexcept { return Ops::L_negate(v); }
inline Word32 L_abs(Word32 v) noexcept { return Ops::L_abs(v); }
inline Word16 round16(Word32 v) noexcept { return Ops::round16(v); }
inline void L_Extract(Word32 v, Word16* hi, Word16* lo) noexcept { Ops::L_Extract(v, hi, lo); }
inline Word32 L_Comp(Word16 hi, Word16 lo) noexcept { return Ops::L_Comp(hi, lo); }
inline Word32 Mpy_32_16(Word16 hi, Word16 lo, Word16 n) noexcept {
  return Ops::Mpy_32_16(hi, lo, n);
}
inline Word32 Mpy_32(Word16 hi1, Word16 lo1, Word16 hi2, Word16 lo2) noexcept {
  return Ops::Mpy_32(hi1, lo1, hi2, lo2);
}
inline Word32 L_sqrt(Word32 x) noexcept { return Ops::L_sqrt(x); }

}  // namespace tmx
