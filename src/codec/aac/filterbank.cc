#include "codec/aac/filterbank.h"

#include <cstring>

#include "codec/aac/cpu.h"
#include "codec/aac/tables.h"
#include "codec/basicop.h"

namespace tmx::aac {
namespace {

using Op = BasicOps<overflow::filterbank>;

// Offsets of the stages of L = 16, 64 and 256 points in kFftRadix4Twiddle.
constexpr int kRadix4Offset16 = 0;
constexpr int kRadix4Offset64 = 24;
constexpr int kRadix4Offset256 = 120;

// ---------------------------------------------------------------------------
// Portable transform. Every stage stores 32-bit values, saturated; inside a
// stage values are kept in 64 bits.

// (ar + i ai) (wr + i wi) >> shift with rounding, w a Q31 twiddle of
// magnitude at most 1; kept in 64 bits (each part below 2^(63 - shift + 1)).
[[gnu::always_inline]] inline void Rotate(std::int64_t ar, std::int64_t ai, std::int32_t wr,
                                          std::int32_t wi, int shift, std::int64_t* re,
                                          std::int64_t* im) noexcept {
  const std::int64_t half = std::int64_t{1} << (shift - 1);
  *re = (ar * wr - ai * wi + half) >> shift;
  *im = (ar * wi + ai * wr + half) >> shift;
}

// Radix-4 butterfly of a decimation-in-time FFT. t0..t3 are the sub-DFT
// values of the residues 0, 1, 2 and 3 (mod 4) at one frequency, already
// rotated; the four outputs go to x[a], x[b], x[c], x[d] (complex indexes, a
// quarter of the DFT length apart), saturated to 32 bits.
[[gnu::always_inline]] inline void Butterfly4(std::int32_t* x, int a, int b, int c, int d,
                                              std::int64_t t0r, std::int64_t t0i, std::int64_t t1r,
                                              std::int64_t t1i, std::int64_t t2r, std::int64_t t2i,
                                              std::int64_t t3r, std::int64_t t3i) noexcept {
  const std::int64_t s02r = t0r + t2r, s02i = t0i + t2i;
  const std::int64_t d02r = t0r - t2r, d02i = t0i - t2i;
  const std::int64_t s13r = t1r + t3r, s13i = t1i + t3i;
  const std::int64_t d13r = t1r - t3r, d13i = t1i - t3i;
  x[2 * a] = Op::Sat32(s02r + s13r);
  x[2 * a + 1] = Op::Sat32(s02i + s13i);
  x[2 * b] = Op::Sat32(d02r + d13i);  // (t0 - t2) - i (t1 - t3)
  x[2 * b + 1] = Op::Sat32(d02i - d13r);
  x[2 * c] = Op::Sat32(s02r - s13r);
  x[2 * c + 1] = Op::Sat32(s02i - s13i);
  x[2 * d] = Op::Sat32(d02r - d13i);  // (t0 - t2) + i (t1 - t3)
  x[2 * d + 1] = Op::Sat32(d02i + d13r);
}

// The DCT-IV of m = 1024 or 128 coefficients runs through an n = m/2 point
// complex FFT: v[p] = (X[2p] + i X[m-1-2p]) pre[p], V = FFT(v),
// u[2q] = Re(V[q] post[q]), u[m-1-2q] = -Im(V[q] post[q]).
//
// First stage: pre-twiddle, bit reversal and the first radix-4 stage
// (twiddles 1) in one pass from coef to x. Output group g (x[4g..4g+3])
// takes v[p0], v[p0 + n/4], v[p0 + n/2], v[p0 + 3n/4] (residues 0, 1, 2, 3
// of its 4-point DFT), p0 the bit-reversed index of 4g. The pre-twiddle
// shifts by 31 (long: Q3 stays Q3) or 29 (short: Q3 becomes Q5).
void FirstStage(const std::int32_t* coef, int m, std::int32_t* x) noexcept {
  const bool isLong = m == 1024;
  const int n = m / 2;
  const int revStep = 512 / n;  // kBitReverse512[j * revStep] reverses log2(n) bits
  const std::int32_t* pre = isLong ? kPreTwiddleLong : kPreTwiddleShort;
  const int shift = isLong ? 31 : 29;
  for (int g = 0; g < n / 4; ++g) {
    const int p0 = kBitReverse512[4 * g * revStep];
    std::int64_t vr[4], vi[4];
    for (int r = 0; r < 4; ++r) {
      const int p = p0 + r * (n / 4);
      Rotate(coef[2 * p], coef[m - 1 - 2 * p], pre[2 * p], pre[2 * p + 1], shift, &vr[r], &vi[r]);
    }
    Butterfly4(x, 4 * g, 4 * g + 1, 4 * g + 2, 4 * g + 3, vr[0], vi[0], vr[1], vi[1], vr[2], vi[2],
               vr[3], vi[3]);
  }
}

// One radix-4 stage over x (n complex points, bit-reversed order): DFTs of
// size / 4 points become DFTs of `size` points. tw: the stage's twiddles.
void Radix4Stage(std::int32_t* x, int n, int size, const std::int32_t* tw) noexcept {
  const int q = size / 4;
  for (int i = 0; i < n; i += size) {
    // k = 0: all twiddles are 1.
    const int a = i, b = i + q, c = i + 2 * q, d = i + 3 * q;
    Butterfly4(x, a, b, c, d, x[2 * a], x[2 * a + 1], x[2 * c], x[2 * c + 1], x[2 * b],
               x[2 * b + 1], x[2 * d], x[2 * d + 1]);
  }
  for (int k = 1; k < q; ++k) {
    const std::int32_t* w1 = tw + 2 * k;  // w^k, w^2k, w^3k
    const std::int32_t* w2 = w1 + 2 * q;
    const std::int32_t* w3 = w2 + 2 * q;
    for (int i = k; i < n; i += size) {
      const int a = i, b = i + q, c = i + 2 * q, d = i + 3 * q;
      // Residue 2 sits at b, residue 1 at c (bit-reversed order).
      std::int64_t t1r, t1i, t2r, t2i, t3r, t3i;
      Rotate(x[2 * c], x[2 * c + 1], w1[0], w1[1], 31, &t1r, &t1i);
      Rotate(x[2 * b], x[2 * b + 1], w2[0], w2[1], 31, &t2r, &t2i);
      Rotate(x[2 * d], x[2 * d + 1], w3[0], w3[1], 31, &t3r, &t3i);
      Butterfly4(x, a, b, c, d, x[2 * a], x[2 * a + 1], t1r, t1i, t2r, t2i, t3r, t3i);
    }
  }
}

// m = 1024: the last FFT stage (radix 2), V[q] = E[q] + w^q O[q],
// V[q + 256] = E[q] - w^q O[q] with w = exp(-2 pi i / 512), then the
// post-twiddle into coef; Q3 / 1024 is Q12 / 2 (shift 32).
void LastStageLong(const std::int32_t* x, std::int32_t* coef) noexcept {
  for (int q = 0; q < 256; ++q) {
    std::int64_t wr, wi;
    Rotate(x[2 * (q + 256)], x[2 * (q + 256) + 1], kFftTwiddle[2 * q], kFftTwiddle[2 * q + 1], 31,
           &wr, &wi);
    const std::int32_t e0r = Op::Sat32(x[2 * q] + wr), e0i = Op::Sat32(x[2 * q + 1] + wi);
    const std::int32_t e1r = Op::Sat32(x[2 * q] - wr), e1i = Op::Sat32(x[2 * q + 1] - wi);
    const int q1 = q + 256;
    std::int64_t re, im;
    Rotate(e0r, e0i, kPostTwiddleLong[2 * q], kPostTwiddleLong[2 * q + 1], 32, &re, &im);
    coef[2 * q] = Op::Sat32(re);
    coef[1023 - 2 * q] = Op::Sat32(-im);
    Rotate(e1r, e1i, kPostTwiddleLong[2 * q1], kPostTwiddleLong[2 * q1 + 1], 32, &re, &im);
    coef[2 * q1] = Op::Sat32(re);
    coef[1023 - 2 * q1] = Op::Sat32(-im);
  }
}

// m = 128: the post-twiddle into coef; Q5 / 128 is Q12 (shift 31).
void PostShort(const std::int32_t* x, std::int32_t* coef) noexcept {
  for (int q = 0; q < 64; ++q) {
    std::int64_t re, im;
    Rotate(x[2 * q], x[2 * q + 1], kPostTwiddleShort[2 * q], kPostTwiddleShort[2 * q + 1], 31, &re,
           &im);
    coef[2 * q] = Op::Sat32(re);
    coef[127 - 2 * q] = Op::Sat32(-im);
  }
}

void DctIvPortable(std::int32_t* coef, int m, std::int32_t* x) noexcept {
  const int n = m / 2;
  FirstStage(coef, m, x);
  Radix4Stage(x, n, 16, kFftRadix4Twiddle + kRadix4Offset16);
  Radix4Stage(x, n, 64, kFftRadix4Twiddle + kRadix4Offset64);
  if (m == 1024) {
    Radix4Stage(x, n, 256, kFftRadix4Twiddle + kRadix4Offset256);
    LastStageLong(x, coef);
  } else {
    PostShort(x, coef);
  }
}

// a w with rounding, w a Q31 window value in [0, 1): (a w + 2^30) >> 31. The
// result's magnitude stays below 2^31 and may be negated.
inline std::int32_t Window(std::int32_t a, std::int32_t w) noexcept {
  return static_cast<std::int32_t>((std::int64_t{a} * w + (std::int64_t{1} << 30)) >> 31);
}

// Overlap-add of a Q12 sample and a windowed Q12 value, overlap + sign a w
// (w Q31, sign +1 or -1), rounded once to a 16-bit sample.
template <int kSign>
inline std::int16_t OverlapAdd(std::int32_t overlap, std::int32_t a, std::int32_t w) noexcept {
  // Q43: |overlap 2^31| <= 2^62 and |a w| < 2^62.
  const std::int64_t s =
      std::int64_t{overlap} * (std::int64_t{1} << 31) + kSign * (std::int64_t{a} * w);
  const std::int64_t v = (s + (std::int64_t{1} << 42)) >> 43;
  return Op::sat16(static_cast<Word32>(v));  // |v| < 2^20
}

// A long window (only long): u the DCT-IV (Q12). The frame's samples are
// u[512 + j] at j and -u[512 + j] at 1023 - j (first half, overlap-added to
// the output), -u[j] at 1535 - j and at 1536 + j (second half, kept).
void WindowLongPortable(const std::int32_t* u, const std::int32_t* rise, const std::int32_t* fall,
                        std::int32_t* ov, std::int16_t* pcm, int stride) noexcept {
  for (int j = 0; j < 512; ++j) {
    const std::int32_t a = u[512 + j];
    pcm[j * stride] = OverlapAdd<1>(ov[j], a, rise[j]);
    pcm[(1023 - j) * stride] = OverlapAdd<-1>(ov[1023 - j], a, rise[1023 - j]);
  }
  // fall is mirrored: fall[1023 - n] weighs sample 1024 + n.
  for (int j = 0; j < 512; ++j) {
    const std::int32_t b = u[j];
    ov[511 - j] = -Window(b, fall[512 + j]);
    ov[512 + j] = -Window(b, fall[511 - j]);
  }
}

#ifdef TMX_AAC_AVX2
// ---------------------------------------------------------------------------
// AVX2 transform and long window. A stage runs here only when the
// magnitudes of its input prove that no value can leave 32 bits; it then
// gives exactly what the portable stage gives (which saturates nothing in
// that case). Otherwise the portable stage runs. Complex values are
// interleaved (re, im) 32-bit pairs, four to a vector.

// Bounds of the OR of the input magnitudes under which a stage cannot
// overflow: a radix-4 stage gives at most (1 + 3 sqrt 2) M + 3 < 2^31 for
// M < 2^28; the first stage 4 (sqrt 2 M 2^(31 - shift) + 1), below 2^31 for
// |X| < 2^28 (long) or 2^26 (short); the last radix-2 stage (1 + sqrt 2) M + 1
// and the post-twiddles sqrt 2 M + 1 for M < 2^29.
constexpr std::uint32_t kRadix4Limit = 1u << 28;
constexpr std::uint32_t kFirstLimitLong = 1u << 28;
constexpr std::uint32_t kFirstLimitShort = 1u << 26;
constexpr std::uint32_t kLastLimit = 1u << 29;

// OR of the 32-bit lanes.
TMX_AVX2 inline std::uint32_t OrLanes(__m256i v) noexcept {
  __m128i s = _mm_or_si128(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  s = _mm_or_si128(s, _mm_shuffle_epi32(s, 0x4E));
  s = _mm_or_si128(s, _mm_shuffle_epi32(s, 0xB1));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(s));
}

// OR of |x[i]| over count values (a multiple of 8); at least the largest
// magnitude, and below 2^k exactly when every magnitude is.
TMX_AVX2 std::uint32_t OrAbs(const std::int32_t* x, int count) noexcept {
  __m256i acc = _mm256_setzero_si256();
  for (int i = 0; i < count; i += 8) {
    acc = _mm256_or_si256(
        acc, _mm256_abs_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + i))));
  }
  return OrLanes(acc);
}

TMX_AVX2 inline __m256i Load(const std::int32_t* p) noexcept {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
TMX_AVX2 inline void Store(std::int32_t* p, __m256i v) noexcept {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

// Four complex rotations, as Rotate: the real parts are the even lanes of xr,
// the imaginary parts the even lanes of xi, w holds (re, im) twiddle pairs.
// The results must fit in 32 bits; they come back as (re, im) pairs.
template <int kShift>
TMX_AVX2 inline __m256i RotateV(__m256i xr, __m256i xi, __m256i w) noexcept {
  const __m256i wi = _mm256_srli_epi64(w, 32);
  const __m256i half = _mm256_set1_epi64x(std::int64_t{1} << (kShift - 1));
  const __m256i re =
      _mm256_add_epi64(_mm256_sub_epi64(_mm256_mul_epi32(xr, w), _mm256_mul_epi32(xi, wi)), half);
  const __m256i im =
      _mm256_add_epi64(_mm256_add_epi64(_mm256_mul_epi32(xr, wi), _mm256_mul_epi32(xi, w)), half);
  // Bits kShift .. kShift + 31 of each 64-bit result: the real part to the
  // low half, the imaginary part to the high half.
  return _mm256_blend_epi32(_mm256_srli_epi64(re, kShift), _mm256_slli_epi64(im, 32 - kShift),
                            0xAA);
}
// Rotation of (re, im) pairs.
template <int kShift>
TMX_AVX2 inline __m256i RotatePairs(__m256i x, __m256i w) noexcept {
  return RotateV<kShift>(x, _mm256_srli_epi64(x, 32), w);
}

// Radix-4 butterflies as Butterfly4, four at a time, without saturation.
TMX_AVX2 inline void Butterfly4V(__m256i t0, __m256i t1, __m256i t2, __m256i t3, __m256i* x0,
                                 __m256i* x1, __m256i* x2, __m256i* x3) noexcept {
  const __m256i s02 = _mm256_add_epi32(t0, t2);
  const __m256i d02 = _mm256_sub_epi32(t0, t2);
  const __m256i s13 = _mm256_add_epi32(t1, t3);
  const __m256i d13 = _mm256_sub_epi32(t1, t3);
  *x0 = _mm256_add_epi32(s02, s13);
  *x2 = _mm256_sub_epi32(s02, s13);
  const __m256i sw = _mm256_shuffle_epi32(d13, 0xB1);  // (im, re) of t1 - t3
  const __m256i p = _mm256_add_epi32(d02, sw);
  const __m256i m = _mm256_sub_epi32(d02, sw);
  *x1 = _mm256_blend_epi32(p, m, 0xAA);  // (t0 - t2) - i (t1 - t3)
  *x3 = _mm256_blend_epi32(m, p, 0xAA);  // (t0 - t2) + i (t1 - t3)
}

TMX_AVX2 inline __m256i AbsOr(__m256i acc, __m256i a, __m256i b, __m256i c, __m256i d) noexcept {
  const __m256i ab = _mm256_or_si256(_mm256_abs_epi32(a), _mm256_abs_epi32(b));
  const __m256i cd = _mm256_or_si256(_mm256_abs_epi32(c), _mm256_abs_epi32(d));
  return _mm256_or_si256(acc, _mm256_or_si256(ab, cd));
}

// v[p .. p+3] of the pre-twiddle: real parts X[2p + 2i] (even lanes of the 8
// values from 2p), imaginary parts X[m-1-2p-2i] (the 8 values ending at
// m-1-2p, reversed).
template <int kShift>
TMX_AVX2 inline __m256i PreTwiddleV(const std::int32_t* coef, int m, const std::int32_t* pre,
                                    int p) noexcept {
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const __m256i front = Load(coef + 2 * p);
  const __m256i back = _mm256_permutevar8x32_epi32(Load(coef + m - 8 - 2 * p), reverse);
  return RotateV<kShift>(front, back, Load(pre + 2 * p));
}

// FirstStage for four output groups at a time: p0 runs over consecutive
// values, so the pre-twiddle reads contiguous coefficients; each group's
// four outputs are then gathered by a 4 x 4 transpose and stored at x[4g],
// g the bit-reversed p0. Returns the OR of the output magnitudes.
template <bool kLong>
TMX_AVX2 std::uint32_t FirstStageV(const std::int32_t* coef, std::int32_t* x) noexcept {
  constexpr int m = kLong ? 1024 : 128;
  constexpr int n = m / 2;
  constexpr int shift = kLong ? 31 : 29;
  constexpr int groupShift = kLong ? 2 : 5;  // kBitReverse512[p0] >> groupShift = g
  const std::int32_t* pre = kLong ? kPreTwiddleLong : kPreTwiddleShort;
  __m256i acc = _mm256_setzero_si256();
  for (int p0 = 0; p0 < n / 4; p0 += 4) {
    const __m256i t0 = PreTwiddleV<shift>(coef, m, pre, p0);
    const __m256i t1 = PreTwiddleV<shift>(coef, m, pre, p0 + n / 4);
    const __m256i t2 = PreTwiddleV<shift>(coef, m, pre, p0 + n / 2);
    const __m256i t3 = PreTwiddleV<shift>(coef, m, pre, p0 + 3 * n / 4);
    __m256i x0, x1, x2, x3;
    Butterfly4V(t0, t1, t2, t3, &x0, &x1, &x2, &x3);
    acc = AbsOr(acc, x0, x1, x2, x3);
    const __m256i a = _mm256_unpacklo_epi64(x0, x1);  // groups 0, 2
    const __m256i b = _mm256_unpackhi_epi64(x0, x1);  // groups 1, 3
    const __m256i c = _mm256_unpacklo_epi64(x2, x3);
    const __m256i d = _mm256_unpackhi_epi64(x2, x3);
    Store(x + 8 * (kBitReverse512[p0] >> groupShift), _mm256_permute2x128_si256(a, c, 0x20));
    Store(x + 8 * (kBitReverse512[p0 + 1] >> groupShift), _mm256_permute2x128_si256(b, d, 0x20));
    Store(x + 8 * (kBitReverse512[p0 + 2] >> groupShift), _mm256_permute2x128_si256(a, c, 0x31));
    Store(x + 8 * (kBitReverse512[p0 + 3] >> groupShift), _mm256_permute2x128_si256(b, d, 0x31));
  }
  return OrLanes(acc);
}

// Radix4Stage, four consecutive k at a time (size >= 16). Returns the OR of
// the output magnitudes.
TMX_AVX2 std::uint32_t Radix4StageV(std::int32_t* x, int n, int size,
                                    const std::int32_t* tw) noexcept {
  const int q = size / 4;
  __m256i acc = _mm256_setzero_si256();
  for (int k = 0; k < q; k += 4) {
    const __m256i w1 = Load(tw + 2 * k);
    const __m256i w2 = Load(tw + 2 * q + 2 * k);
    const __m256i w3 = Load(tw + 4 * q + 2 * k);
    for (int i = k; i < n; i += size) {
      std::int32_t* pa = x + 2 * i;
      const __m256i a = Load(pa);
      const __m256i b = Load(pa + 2 * q);
      const __m256i c = Load(pa + 4 * q);
      const __m256i d = Load(pa + 6 * q);
      __m256i t1 = RotatePairs<31>(c, w1);
      __m256i t2 = RotatePairs<31>(b, w2);
      __m256i t3 = RotatePairs<31>(d, w3);
      if (k == 0) {
        // The portable stage takes the twiddles of k = 0 as exactly 1.
        t1 = _mm256_blend_epi32(t1, c, 0x03);
        t2 = _mm256_blend_epi32(t2, b, 0x03);
        t3 = _mm256_blend_epi32(t3, d, 0x03);
      }
      __m256i x0, x1, x2, x3;
      Butterfly4V(a, t1, t2, t3, &x0, &x1, &x2, &x3);
      acc = AbsOr(acc, x0, x1, x2, x3);
      Store(pa, x0);
      Store(pa + 2 * q, x1);
      Store(pa + 4 * q, x2);
      Store(pa + 6 * q, x3);
    }
  }
  return OrLanes(acc);
}

// (re, im) pairs in reverse order with the imaginary parts negated.
TMX_AVX2 inline __m256i NegReverse(__m256i v) noexcept {
  return _mm256_sub_epi32(_mm256_setzero_si256(), _mm256_permute4x64_epi64(v, 0x1B));
}
// Real parts (even lanes) of a, the rest from b.
TMX_AVX2 inline __m256i RealsWith(__m256i a, __m256i b) noexcept {
  return _mm256_blend_epi32(a, b, 0xAA);
}

// V[q .. q+3] and V[q+256 .. q+259] of LastStageLong, post-twiddled.
TMX_AVX2 inline void LastBlock(const std::int32_t* x, int q, __m256i* r0, __m256i* r1) noexcept {
  const __m256i e = Load(x + 2 * q);
  const __m256i wo = RotatePairs<31>(Load(x + 2 * (q + 256)), Load(kFftTwiddle + 2 * q));
  *r0 = RotatePairs<32>(_mm256_add_epi32(e, wo), Load(kPostTwiddleLong + 2 * q));
  *r1 = RotatePairs<32>(_mm256_sub_epi32(e, wo), Load(kPostTwiddleLong + 2 * (q + 256)));
}

// LastStageLong: blocks of q = q0 .. q0+3 and its mirror q1 = 252 - q0, whose
// outputs interleave (u[2q] even, u[1023 - 2q] odd).
TMX_AVX2 void LastStageLongV(const std::int32_t* x, std::int32_t* coef) noexcept {
  for (int q0 = 0; q0 < 128; q0 += 4) {
    const int q1 = 252 - q0;
    __m256i a0, a1, b0, b1;  // block q0: V[q], V[q + 256]; block q1 likewise
    LastBlock(x, q0, &a0, &a1);
    LastBlock(x, q1, &b0, &b1);
    Store(coef + 2 * q0, RealsWith(a0, NegReverse(b1)));
    Store(coef + 1016 - 2 * q0, RealsWith(b1, NegReverse(a0)));
    Store(coef + 512 + 2 * q0, RealsWith(a1, NegReverse(b0)));
    Store(coef + 504 - 2 * q0, RealsWith(b0, NegReverse(a1)));
  }
}

// PostShort: blocks q0 and 60 - q0.
TMX_AVX2 void PostShortV(const std::int32_t* x, std::int32_t* coef) noexcept {
  for (int q0 = 0; q0 < 32; q0 += 4) {
    const int q1 = 60 - q0;
    const __m256i a = RotatePairs<31>(Load(x + 2 * q0), Load(kPostTwiddleShort + 2 * q0));
    const __m256i b = RotatePairs<31>(Load(x + 2 * q1), Load(kPostTwiddleShort + 2 * q1));
    Store(coef + 2 * q0, RealsWith(a, NegReverse(b)));
    Store(coef + 120 - 2 * q0, RealsWith(b, NegReverse(a)));
  }
}

TMX_AVX2 void DctIvAvx2(std::int32_t* coef, int m, std::int32_t* x) noexcept {
  const bool isLong = m == 1024;
  const int n = m / 2;
  std::uint32_t bound = OrAbs(coef, m);
  if (bound < (isLong ? kFirstLimitLong : kFirstLimitShort)) {
    bound = isLong ? FirstStageV<true>(coef, x) : FirstStageV<false>(coef, x);
  } else {
    FirstStage(coef, m, x);
    bound = OrAbs(x, m);
  }
  const int sizes[3] = {16, 64, 256};
  const int offsets[3] = {kRadix4Offset16, kRadix4Offset64, kRadix4Offset256};
  for (int s = 0; s < (isLong ? 3 : 2); ++s) {
    if (bound < kRadix4Limit) {
      bound = Radix4StageV(x, n, sizes[s], kFftRadix4Twiddle + offsets[s]);
    } else {
      Radix4Stage(x, n, sizes[s], kFftRadix4Twiddle + offsets[s]);
      bound = OrAbs(x, m);
    }
  }
  if (isLong) {
    if (bound < kLastLimit) {
      LastStageLongV(x, coef);
    } else {
      LastStageLong(x, coef);
    }
  } else if (bound < kLastLimit) {
    PostShortV(x, coef);
  } else {
    PostShort(x, coef);
  }
}

// Window(a, w) for 8 lanes: bits 31 .. 62 of a w + 2^30.
TMX_AVX2 inline __m256i WindowV(__m256i a, __m256i w) noexcept {
  const __m256i half = _mm256_set1_epi64x(std::int64_t{1} << 30);
  const __m256i even = _mm256_add_epi64(_mm256_mul_epi32(a, w), half);
  const __m256i odd =
      _mm256_add_epi64(_mm256_mul_epi32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(w, 32)), half);
  return _mm256_blend_epi32(_mm256_srli_epi64(even, 31), _mm256_slli_epi64(odd, 1), 0xAA);
}

// o 2^31 + sign a w + 2^42 in the even lanes' 64 bits.
template <int kSign>
TMX_AVX2 inline __m256i OverlapSumV(__m256i o, __m256i a, __m256i w) noexcept {
  const __m256i aw = _mm256_mul_epi32(a, w);
  const __m256i o31 = _mm256_mul_epi32(o, _mm256_set1_epi32(kMin32));  // -o 2^31
  const __m256i s = kSign > 0 ? _mm256_sub_epi64(aw, o31)
                              : _mm256_sub_epi64(_mm256_setzero_si256(), _mm256_add_epi64(aw, o31));
  return _mm256_add_epi64(s, _mm256_set1_epi64x(std::int64_t{1} << 42));
}

// OverlapAdd for 8 lanes, before saturation: (o 2^31 + sign a w + 2^42) >> 43
// as the high half of the 64-bit sum (>> 32), then >> 11.
template <int kSign>
TMX_AVX2 inline __m256i OverlapAddV(__m256i o, __m256i a, __m256i w) noexcept {
  const __m256i even = OverlapSumV<kSign>(o, a, w);
  const __m256i odd = OverlapSumV<kSign>(_mm256_srli_epi64(o, 32), _mm256_srli_epi64(a, 32),
                                         _mm256_srli_epi64(w, 32));
  return _mm256_srai_epi32(_mm256_blend_epi32(_mm256_srli_epi64(even, 32), odd, 0xAA), 11);
}

// 8 samples to 16 bits with saturation; *range collects v + 32768, which
// leaves 16 bits where a sample saturates.
TMX_AVX2 inline __m256i Clamp16(__m256i v, __m256i* range) noexcept {
  *range = _mm256_or_si256(*range, _mm256_add_epi32(v, _mm256_set1_epi32(32768)));
  return _mm256_max_epi32(_mm256_min_epi32(v, _mm256_set1_epi32(kMax16)),
                          _mm256_set1_epi32(kMin16));
}

// Stores the low 16 bits of 8 lanes at pcm[0], pcm[stride], ... (stride 1
// or 2; with 2 the samples between are kept).
TMX_AVX2 inline void StorePcm(std::int16_t* pcm, int stride, __m256i v) noexcept {
  if (stride == 1) {
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(v, v), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pcm), _mm256_castsi256_si128(packed));
    return;
  }
  __m256i* p = reinterpret_cast<__m256i*>(pcm);
  _mm256_storeu_si256(p, _mm256_blend_epi16(_mm256_loadu_si256(p), v, 0x55));
}

TMX_AVX2 void WindowLongAvx2(const std::int32_t* u, const std::int32_t* rise,
                             const std::int32_t* fall, std::int32_t* ov, std::int16_t* pcm,
                             int stride) noexcept {
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  __m256i range = _mm256_setzero_si256();
  for (int j = 0; j < 512; j += 8) {
    // Samples j .. j+7 and, mirrored, 1023-j .. 1016-j.
    const __m256i a = Load(u + 512 + j);
    const __m256i up = OverlapAddV<1>(Load(ov + j), a, Load(rise + j));
    const __m256i down =
        OverlapAddV<-1>(_mm256_permutevar8x32_epi32(Load(ov + 1016 - j), reverse), a,
                        _mm256_permutevar8x32_epi32(Load(rise + 1016 - j), reverse));
    StorePcm(pcm + j * stride, stride, Clamp16(up, &range));
    const __m256i downPcm = _mm256_permutevar8x32_epi32(Clamp16(down, &range), reverse);
    if (j == 0 && stride == 2) {
      // The last sample of the channel may end the buffer: no wide store.
      alignas(32) std::int32_t tmp[8];
      _mm256_store_si256(reinterpret_cast<__m256i*>(tmp), downPcm);
      for (int i = 0; i < 8; ++i) pcm[(1016 + i) * 2] = static_cast<std::int16_t>(tmp[i]);
    } else {
      StorePcm(pcm + (1016 - j) * stride, stride, downPcm);
    }
  }
  if (_mm256_movemask_epi8(_mm256_cmpeq_epi32(
          _mm256_and_si256(range, _mm256_set1_epi32(static_cast<std::int32_t>(0xFFFF0000u))),
          _mm256_setzero_si256())) != -1) {
    Op::Saturated();  // some sample saturated, as Op::sat16 records it
  }
  for (int j = 0; j < 512; j += 8) {
    const __m256i b = Load(u + j);
    // ov[511 - j - i] = -Window(u[j + i], fall[512 + j + i]),
    // ov[512 + j + i] = -Window(u[j + i], fall[511 - j - i]).
    const __m256i lo = _mm256_sub_epi32(_mm256_setzero_si256(), WindowV(b, Load(fall + 512 + j)));
    const __m256i hi =
        _mm256_sub_epi32(_mm256_setzero_si256(),
                         WindowV(b, _mm256_permutevar8x32_epi32(Load(fall + 504 - j), reverse)));
    Store(ov + 504 - j, _mm256_permutevar8x32_epi32(lo, reverse));
    Store(ov + 512 + j, hi);
  }
}
#endif  // TMX_AAC_AVX2

// DCT-IV of m = 1024 or 128 coefficients (Q3) in place, scaled by 2/N = 1/m,
// result in Q12. x: scratch of m values.
//
// The transform gains m, so full-scale output is 2^28 in Q3 for m = 1024;
// short windows gain 8 times less and are computed in Q5 instead. The FFT
// works on bit-reversed input with radix-4 stages; for m = 1024 its last
// stage (radix 2) is done together with the post-twiddle.
void DctIv(std::int32_t* coef, int m, std::int32_t* x) noexcept {
#ifdef TMX_AAC_AVX2
  if (UseAvx2()) {
    DctIvAvx2(coef, m, x);
    return;
  }
#endif
  DctIvPortable(coef, m, x);
}

// -v, saturated (only -2^31 saturates).
inline std::int32_t Negate(std::int32_t v) noexcept { return v == kMin32 ? Op::L_negate(v) : -v; }

// u (m values of a DCT-IV) unfolded into the 2m samples of the IMDCT.
void Unfold(const std::int32_t* u, int m, std::int32_t* out) noexcept {
  const int half = m / 2;
  for (int n = 0; n < half; ++n) out[n] = u[n + half];
  for (int n = half; n < 3 * half; ++n) out[n] = Negate(u[3 * half - 1 - n]);
  for (int n = 3 * half; n < 2 * m; ++n) out[n] = Negate(u[n - 3 * half]);
}

// One short window's 256 samples, windowed, added (saturating) into dst:
// u the window's DCT-IV; the samples are u[64 + j] at j and -u[64 + j] at
// 127 - j (rising half), -u[j] at 191 - j and at 192 + j (falling half).
void AddShortWindow(const std::int32_t* u, const std::int32_t* rise, const std::int32_t* fall,
                    std::int32_t* dst) noexcept {
  for (int j = 0; j < 64; ++j) {
    const std::int32_t a = u[64 + j];
    dst[j] = Op::L_add(dst[j], Window(a, rise[j]));
    dst[127 - j] = Op::L_add(dst[127 - j], -Window(a, rise[127 - j]));
    // fall is mirrored: fall[127 - n] weighs sample 128 + n.
    const std::int32_t b = u[j];
    dst[191 - j] = Op::L_add(dst[191 - j], -Window(b, fall[64 + j]));
    dst[192 + j] = Op::L_add(dst[192 + j], -Window(b, fall[63 - j]));
  }
}

const std::int32_t* LongWindow(int shape) noexcept { return shape ? kKbdLong : kSineLong; }
const std::int32_t* ShortWindow(int shape) noexcept { return shape ? kKbdShort : kSineShort; }

}  // namespace

void InverseMdct(std::int32_t* coef, int m, std::int32_t* out, std::int32_t* fft) noexcept {
  DctIv(coef, m, fft);
  Unfold(coef, m, out);
}

void SynthesizeChannel(const IcsInfo& ics, std::int32_t* coef, ChannelHistory* history,
                       FilterbankWork* work, std::int16_t* pcm, int stride) noexcept {
  std::int32_t* t = work->time;
  std::int32_t* ov = history->overlap;
  const int prev = history->previousShape;
  const int cur = ics.windowShape;
  history->previousShape = static_cast<std::uint8_t>(cur);
  if (ics.windowSequence == kOnlyLong) {
    DctIv(coef, 1024, work->fft);
#ifdef TMX_AAC_AVX2
    if ((stride == 1 || stride == 2) && UseAvx2()) {
      WindowLongAvx2(coef, LongWindow(prev), LongWindow(cur), ov, pcm, stride);
      return;
    }
#endif
    WindowLongPortable(coef, LongWindow(prev), LongWindow(cur), ov, pcm, stride);
    return;
  }
  if (ics.windowSequence == kEightShort) {
    std::memset(t, 0, sizeof(work->time));
    for (int w = 0; w < 8; ++w) {
      DctIv(coef + 128 * w, 128, work->fft);
      AddShortWindow(coef + 128 * w, ShortWindow(w == 0 ? prev : cur), ShortWindow(cur),
                     t + 448 + 128 * w);
    }
  } else {
    DctIv(coef, 1024, work->fft);
    Unfold(coef, 1024, t);
    if (ics.windowSequence == kLongStop) {
      const std::int32_t* rise = ShortWindow(prev);
      for (int n = 0; n < 448; ++n) t[n] = 0;
      for (int n = 0; n < 128; ++n) t[448 + n] = Window(t[448 + n], rise[n]);
    } else {
      const std::int32_t* rise = LongWindow(prev);
      for (int n = 0; n < 1024; ++n) t[n] = Window(t[n], rise[n]);
    }
    if (ics.windowSequence == kLongStart) {
      const std::int32_t* fall = ShortWindow(cur);
      for (int n = 0; n < 128; ++n) t[1472 + n] = Window(t[1472 + n], fall[127 - n]);
      for (int n = 1600; n < 2048; ++n) t[n] = 0;
    } else {
      const std::int32_t* fall = LongWindow(cur);
      for (int n = 0; n < 1024; ++n) t[1024 + n] = Window(t[1024 + n], fall[1023 - n]);
    }
  }
  // Overlap-add, round Q12 to 16 bits, keep the second half. In 64 bits the
  // sum needs no saturation before the final one: a sum beyond 32 bits
  // saturates the sample either way.
  for (int n = 0; n < 1024; ++n) {
    const std::int64_t s = std::int64_t{ov[n]} + t[n] + (1 << 11);
    pcm[n * stride] = Op::sat16(static_cast<Word32>(s >> 12));  // |s >> 12| < 2^20
  }
  std::memcpy(ov, t + 1024, sizeof(history->overlap));
}

}  // namespace tmx::aac
