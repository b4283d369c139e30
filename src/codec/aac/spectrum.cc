#include "codec/aac/spectrum.h"

#include <algorithm>

#include "codec/aac/cpu.h"
#include "codec/aac/tables.h"
#include "codec/basicop.h"

namespace tmx::aac {
namespace {

using Op = BasicOps<overflow::spectral>;

// 2^(r/4), r = 0..3, Q30.
constexpr Word32 kPow2Quarter[4] = {QConst(1.0, 30), QConst(1.189207115002721, 30),
                                    QConst(1.4142135623730951, 30), QConst(1.681792830507429, 30)};
constexpr Word32 kSqrtHalf = Q31(0.7071067811865476);

// p >> shift with rounding (p << -shift for a negative shift), saturated.
Word32 ShiftRound(std::int64_t p, int shift) noexcept {
  if (shift <= 0) {
    if (p == 0) return 0;
    if (shift < -31) return Op::Sat32(p > 0 ? std::int64_t{kMax32} + 1 : std::int64_t{kMin32} - 1);
    const std::int64_t limit = std::int64_t{1} << (62 + shift);
    if (p >= limit || p <= -limit)
      return Op::Sat32(p > 0 ? std::int64_t{kMax32} + 1 : std::int64_t{kMin32} - 1);
    return Op::Sat32(p * (std::int64_t{1} << -shift));
  }
  if (shift >= 63) return 0;
  return Op::Sat32((p + (std::int64_t{1} << (shift - 1))) >> shift);
}

// x * 2^(s/4), rounded and saturated.
Word32 ScaleQuarterPow(Word32 x, int s) noexcept {
  return ShiftRound(std::int64_t{x} * kPow2Quarter[s & 3], 30 - (s >> 2));
}

// Calls f(lines, count) for every window's part of band b in group g.
template <class F>
void ForBandLines(const IcsInfo& ics, int firstWindow, int g, int b, std::int32_t* coef, F&& f) {
  const int start = ics.swbOffset[b];
  const int count = ics.swbOffset[b + 1] - start;
  for (int w = 0; w < ics.groupLength[g]; ++w) {
    f(coef + (firstWindow + w) * ics.windowLength + start, count, firstWindow + w);
  }
}

}  // namespace

std::uint32_t Pow43(std::uint32_t q, int* fracBits) noexcept {
  if (q < 1024) {
    *fracBits = 18;
    return kPow43[q];
  }
  // q = 8a + b: q^(4/3) = 16 a^(4/3) (1 + t)^(4/3), t = b / 8a <= 7 / 1024,
  // with the series 1 + 4t/3 + 2t^2/9 - 4t^3/81 (the next term is below 2^-34).
  const std::uint32_t a = q >> 3;
  const std::uint64_t base = kPow43[a];                      // Q18 of a^(4/3) is Q14 of 16 a^(4/3)
  const std::uint64_t t = (std::uint64_t{q & 7} << 27) / a;  // Q30
  const std::uint64_t t2 = (t * t) >> 30;                    // Q30
  const std::uint64_t t3 = (t2 * t) >> 30;                   // Q30
  const std::uint64_t corr = (4 * t) / 3 + (2 * t2) / 9 - (4 * t3) / 81;  // Q30
  *fracBits = 14;
  return static_cast<std::uint32_t>(base + ((base * corr + (1u << 29)) >> 30));
}

namespace {

// One line: sign(q) |q|^(4/3) gain 2^e in Q3, gain Q30; the general case
// (any |q| up to 8206, any exponent).
Word32 DequantizeLine(std::int32_t q, std::uint64_t gain, int e) noexcept {
  if (q == 0) return 0;
  int frac;
  const std::uint32_t mant = Pow43(static_cast<std::uint32_t>(q < 0 ? -q : q), &frac);
  // mant (Q frac) * gain (Q30) * 2^e -> Q3
  const int shift = frac + 27 - e;
  Word32 v;
  if (shift <= 0) {
    v = Op::Sat32(std::int64_t{kMax32} + 1);
  } else if (shift >= 64) {
    v = 0;
  } else {
    const std::uint64_t p = mant * gain;  // < 2^63
    const std::uint64_t r = (p + (std::uint64_t{1} << (shift - 1))) >> shift;
    v = Op::Sat32(static_cast<std::int64_t>(std::min<std::uint64_t>(r, std::uint64_t{1} << 32)));
  }
  return q < 0 ? -v : v;
}

// Lines of one band whose results are known to fit in 31 bits (every
// |q| < kPow43Size, shift 1 to 63): sign(q) ((kPow43[|q|] gain +
// 2^(shift - 1)) >> shift), as DequantizeLine gives when nothing saturates.
void DequantizeLines(std::int32_t* line, int count, std::uint64_t gain, int shift) noexcept {
  const std::uint64_t half = std::uint64_t{1} << (shift - 1);
  for (int k = 0; k < count; ++k) {
    const std::int32_t q = line[k];
    const std::int32_t sign = q >> 31;  // 0 or -1
    const auto v = static_cast<std::int32_t>((kPow43[(q ^ sign) - sign] * gain + half) >> shift);
    line[k] = (v ^ sign) - sign;
  }
}

#ifdef TMX_AAC_AVX2
// DequantizeLines, 8 lines at a time (count a multiple of 4).
TMX_AVX2 void DequantizeLinesAvx2(std::int32_t* line, int count, std::uint64_t gain,
                                  int shift) noexcept {
  const int* table = reinterpret_cast<const int*>(kPow43);
  const __m256i g = _mm256_set1_epi64x(static_cast<std::int64_t>(gain));  // < 2^31
  const __m256i half =
      _mm256_set1_epi64x(static_cast<std::int64_t>(std::uint64_t{1} << (shift - 1)));
  const __m128i count64 = _mm_cvtsi32_si128(shift);
  int k = 0;
  for (; k + 8 <= count; k += 8) {
    const __m256i q = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(line + k));
    const __m256i mant = _mm256_i32gather_epi32(table, _mm256_abs_epi32(q), 4);
    const __m256i even =
        _mm256_srl_epi64(_mm256_add_epi64(_mm256_mul_epu32(mant, g), half), count64);
    const __m256i odd = _mm256_srl_epi64(
        _mm256_add_epi64(_mm256_mul_epu32(_mm256_srli_epi64(mant, 32), g), half), count64);
    const __m256i v = _mm256_blend_epi32(even, _mm256_slli_epi64(odd, 32), 0xAA);
    const __m256i sign = _mm256_srai_epi32(q, 31);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(line + k),
                        _mm256_sub_epi32(_mm256_xor_si256(v, sign), sign));
  }
  if (k < count) DequantizeLines(line + k, count - k, gain, shift);
}
#endif

// OR of |q| over a band's lines (at least their largest magnitude), capped
// at 2^30.
std::uint32_t OrMagnitudes(const std::int32_t* line, int count) noexcept {
  std::uint32_t acc = 0;
  for (int k = 0; k < count; ++k) {
    const std::int32_t q = line[k];
    acc |= static_cast<std::uint32_t>((q ^ (q >> 31)) - (q >> 31));
  }
  return acc > (1u << 30) ? (1u << 30) : acc;
}

}  // namespace

void Dequantize(const ChannelStream& cs, std::int32_t* coef) noexcept {
  [[maybe_unused]] const bool avx2 = UseAvx2();  // always false off x86-64
  const IcsInfo& ics = cs.ics;
  int window = 0;
  for (int g = 0; g < ics.numGroups; ++g) {
    for (int b = 0; b < ics.maxSfb; ++b) {
      const int type = cs.bandType[g][b];
      if (type == kZeroBand || type > 11) continue;
      const int s = cs.scale[g][b] - 100;
      const std::uint64_t gain = static_cast<std::uint64_t>(kPow2Quarter[s & 3]);  // Q30
      const int e = s >> 2;
      // Lines below kPow43Size in magnitude take kPow43 (Q18) directly: the
      // product Q18 * Q30 = Q48 goes to Q3 by a right shift of 45 - e. The
      // book's largest value bounds a band's lines unless pulses were added
      // or the book has escapes; the lines themselves bound them then.
      const int shift = 45 - e;  // 7 .. 70 for scalefactors 0 .. 255
      const bool bounded = type < 11 && !cs.pulsePresent;
      ForBandLines(ics, window, g, b, coef, [&](std::int32_t* line, int count, int) {
        const std::uint32_t largest =
            bounded ? kSpectralBooks[type].lav : OrMagnitudes(line, count);
        if (shift < 64 && largest < static_cast<std::uint32_t>(kPow43Size) &&
            ((kPow43[largest] * gain + (std::uint64_t{1} << (shift - 1))) >> shift) <=
                static_cast<std::uint64_t>(kMax32)) {
#ifdef TMX_AAC_AVX2
          if (avx2) {
            DequantizeLinesAvx2(line, count, gain, shift);
            return;
          }
#endif
          DequantizeLines(line, count, gain, shift);
          return;
        }
        for (int k = 0; k < count; ++k) line[k] = DequantizeLine(line[k], gain, e);
      });
    }
    window += ics.groupLength[g];
  }
}

void ApplyNoise(const ChannelStream& cs, std::int32_t* coef, std::uint32_t* state,
                NoiseSeeds* seeds, const ChannelStream* left, const PairInfo* pair) noexcept {
  const IcsInfo& ics = cs.ics;
  int window = 0;
  for (int g = 0; g < ics.numGroups; ++g) {
    for (int b = 0; b < ics.maxSfb; ++b) {
      if (cs.bandType[g][b] != kNoiseBand) continue;
      const bool shared = left && pair && pair->msUsed[g][b] && left->bandType[g][b] == kNoiseBand;
      const int nrg = cs.scale[g][b];
      ForBandLines(ics, window, g, b, coef, [&](std::int32_t* line, int count, int w) {
        std::uint32_t s = shared ? seeds->seed[w][b] : *state;
        if (!left) seeds->seed[w][b] = s;
        std::uint64_t energy = 0;
        for (int k = 0; k < count; ++k) {
          s = s * 1664525u + 1013904223u;
          const std::int32_t v = static_cast<std::int32_t>(s) >> 16;  // 16-bit noise sample
          line[k] = v;
          energy += static_cast<std::uint64_t>(std::int64_t{v} * v);
        }
        if (!shared) *state = s;
        if (energy == 0) return;
        // Scale to unit band energy times 2^(nrg / 2):
        // line = v 2^(nrg / 4) / sqrt(E), E the sum of v^2, result Q3.
        int j = 0;  // En = E 4^j lands in [2^29, 2^31)
        while (energy >= (std::uint64_t{1} << 31)) {
          energy >>= 2;
          --j;
        }
        while (energy < (std::uint64_t{1} << 29)) {
          energy <<= 2;
          ++j;
        }
        // L_sqrt(En) = sqrt(En 2^31) = sqrt(E) 2^(j + 15.5), in [2^30, 2^31).
        const Word32 root = Op::L_sqrt(static_cast<Word32>(energy));
        // f = 2^((nrg & 3) / 4) 2^30 / root (about 2^30); f2 = f / sqrt(2).
        const Word32 f = static_cast<Word32>((std::int64_t{kPow2Quarter[nrg & 3]} << 30) / root);
        const Word32 f2 = Op::MulQ31(f, kSqrtHalf);
        // v f2 2^(e + j - 41) = v 2^(nrg / 4) 2^3 / sqrt(E), e = nrg >> 2.
        const int shift = 41 - (nrg >> 2) - j;
        for (int k = 0; k < count; ++k) line[k] = ShiftRound(std::int64_t{line[k]} * f2, shift);
      });
    }
    window += ics.groupLength[g];
  }
}

void ApplyMidSide(const ChannelStream& left, const ChannelStream& right, const PairInfo& pair,
                  std::int32_t* l, std::int32_t* r) noexcept {
  const IcsInfo& ics = left.ics;
  int window = 0;
  for (int g = 0; g < ics.numGroups; ++g) {
    for (int b = 0; b < ics.maxSfb; ++b) {
      if (!pair.msUsed[g][b]) continue;
      const int lt = left.bandType[g][b];
      const int rt = right.bandType[g][b];
      if (rt >= kIntensityOutOfPhase || lt >= kIntensityOutOfPhase) continue;
      if (lt == kNoiseBand && rt == kNoiseBand) continue;
      const int start = ics.swbOffset[b];
      const int count = ics.swbOffset[b + 1] - start;
      for (int w = 0; w < ics.groupLength[g]; ++w) {
        const int base = (window + w) * ics.windowLength + start;
        for (int k = base; k < base + count; ++k) {
          const Word32 m = l[k];
          const Word32 s = r[k];
          l[k] = Op::L_add(m, s);
          r[k] = Op::L_sub(m, s);
        }
      }
    }
    window += ics.groupLength[g];
  }
}

void ApplyIntensity(const ChannelStream& right, const PairInfo& pair, const std::int32_t* l,
                    std::int32_t* r) noexcept {
  const IcsInfo& ics = right.ics;
  int window = 0;
  for (int g = 0; g < ics.numGroups; ++g) {
    for (int b = 0; b < ics.maxSfb; ++b) {
      const int type = right.bandType[g][b];
      if (type != kIntensityOutOfPhase && type != kIntensityInPhase) continue;
      bool negative = type == kIntensityOutOfPhase;
      if (pair.msMaskPresent == 1 && pair.msUsed[g][b]) negative = !negative;
      const int s = -right.scale[g][b];
      const int start = ics.swbOffset[b];
      const int count = ics.swbOffset[b + 1] - start;
      // x * 2^(s/4) = x kPow2Quarter[s & 3] (Q30) >> (30 - (s >> 2)), rounded.
      const std::int64_t gain = kPow2Quarter[s & 3];
      const int shift = 30 - (s >> 2);
      for (int w = 0; w < ics.groupLength[g]; ++w) {
        const int base = (window + w) * ics.windowLength + start;
        if (shift > 0 && shift < 63) {
          const std::int64_t half = std::int64_t{1} << (shift - 1);
          for (int k = base; k < base + count; ++k) {
            const Word32 v = Op::Sat32((l[k] * gain + half) >> shift);  // |l gain| < 2^62
            r[k] = negative ? Op::L_negate(v) : v;
          }
          continue;
        }
        for (int k = base; k < base + count; ++k) {
          const Word32 v = ScaleQuarterPow(l[k], s);
          r[k] = negative ? Op::L_negate(v) : v;
        }
      }
    }
    window += ics.groupLength[g];
  }
}

void ApplyTns(const ChannelStream& cs, std::int32_t* coef) noexcept {
  if (!cs.tnsPresent) return;
  const IcsInfo& ics = cs.ics;
  const int limit = std::min<int>(ics.tnsMaxBands, ics.maxSfb);
  for (int w = 0; w < ics.numWindows; ++w) {
    std::int32_t* x = coef + w * ics.windowLength;
    int top = ics.numSwb;
    for (int f = 0; f < cs.tns.numFilters[w]; ++f) {
      const TnsFilter& filt = cs.tns.filter[w][f];
      const int bottom = std::max(top - filt.length, 0);
      const int order = filt.order;
      const int start = ics.swbOffset[std::min(bottom, limit)];
      const int end = ics.swbOffset[std::min(top, limit)];
      top = bottom;
      if (order == 0 || end <= start) continue;

      // Reflection coefficients (Q31) to direct-form coefficients a[1..order], Q24.
      Word32 a[kMaxTnsOrder + 1] = {};
      for (int m = 1; m <= order; ++m) {
        const std::int64_t k = filt.refl[m - 1];
        Word32 next[kMaxTnsOrder + 1];
        for (int i = 1; i < m; ++i)
          next[i] = Op::Sat32(a[i] + ((k * a[m - i] + (std::int64_t{1} << 30)) >> 31));
        for (int i = 1; i < m; ++i) a[i] = next[i];
        a[m] = static_cast<Word32>((k + 64) >> 7);
      }

      // y[n] = x[n] - sum a[i] y[n - i], run up or down the band range; the
      // sum is kept with 8 extra fractional bits (Q11).
      Word32 history[kMaxTnsOrder] = {};  // y[n - 1] first
      const int step = filt.direction ? -1 : 1;
      int n = filt.direction ? end - 1 : start;
      for (int c = end - start; c > 0; --c, n += step) {
        std::int64_t acc = std::int64_t{x[n]} * 256;
        for (int i = 0; i < order; ++i) acc -= (std::int64_t{a[i + 1]} * history[i]) >> 16;
        const Word32 y = Op::Sat32((acc + 128) >> 8);
        for (int i = order - 1; i > 0; --i) history[i] = history[i - 1];
        history[0] = y;
        x[n] = y;
      }
    }
  }
}

}  // namespace tmx::aac
