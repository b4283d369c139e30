#include "codec/aac/filterbank.h"

#include <cstring>
#include <utility>

#include "codec/aac/tables.h"
#include "codec/basicop.h"

namespace tmx::aac {
namespace {

using Op = BasicOps<overflow::filterbank>;

// (ar + i ai) (br + i bi) >> shift, b a Q31 twiddle: each part rounded once.
inline void ComplexMul(Word32 ar, Word32 ai, Word32 br, Word32 bi, Word32* re, Word32* im,
                       int shift = 31) noexcept {
  const std::int64_t half = std::int64_t{1} << (shift - 1);
  *re = Op::Sat32((std::int64_t{ar} * br - std::int64_t{ai} * bi + half) >> shift);
  *im = Op::Sat32((std::int64_t{ar} * bi + std::int64_t{ai} * br + half) >> shift);
}

// In-place forward complex FFT of n = 64 or 512 points (interleaved re, im),
// radix 2, decimation in time, no scaling; sums saturate.
void Fft(std::int32_t* x, int n) noexcept {
  // Bit-reversal permutation.
  for (int i = 1, j = 0; i < n; ++i) {
    int bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) {
      std::swap(x[2 * i], x[2 * j]);
      std::swap(x[2 * i + 1], x[2 * j + 1]);
    }
  }
  for (int len = 2; len <= n; len <<= 1) {
    const int half = len >> 1;
    const int stride = 512 / len;  // twiddle step in the 512-point table
    for (int i = 0; i < n; i += len) {
      for (int j = 0; j < half; ++j) {
        std::int32_t* a = x + 2 * (i + j);
        std::int32_t* b = x + 2 * (i + j + half);
        Word32 tr, ti;
        if (j == 0) {
          tr = b[0];
          ti = b[1];
        } else {
          const std::int32_t* w = kFftTwiddle + 2 * (j * stride);
          ComplexMul(b[0], b[1], w[0], w[1], &tr, &ti);
        }
        b[0] = Op::L_sub(a[0], tr);
        b[1] = Op::L_sub(a[1], ti);
        a[0] = Op::L_add(a[0], tr);
        a[1] = Op::L_add(a[1], ti);
      }
    }
  }
}

const std::int32_t* LongWindow(int shape) noexcept { return shape ? kKbdLong : kSineLong; }
const std::int32_t* ShortWindow(int shape) noexcept { return shape ? kKbdShort : kSineShort; }

}  // namespace

void InverseMdct(std::int32_t* coef, int m, std::int32_t* out, std::int32_t* fft) noexcept {
  const bool isLong = m == 1024;
  const int quarter = m / 2;  // FFT points
  const std::int32_t* pre = isLong ? kPreTwiddleLong : kPreTwiddleShort;
  const std::int32_t* post = isLong ? kPostTwiddleLong : kPostTwiddleShort;
  // DCT-IV through an m/2-point FFT: v[p] = (X[2p] + i X[m-1-2p]) pre[p].
  // The transform gains m, so full-scale output is 2^28 in Q3 for m = 1024;
  // short windows gain 8 times less and are computed in Q5 instead.
  const int preShift = isLong ? 31 : 29;
  for (int p = 0; p < quarter; ++p) {
    ComplexMul(coef[2 * p], coef[m - 1 - 2 * p], pre[2 * p], pre[2 * p + 1], &fft[2 * p],
               &fft[2 * p + 1], preShift);
  }
  Fft(fft, quarter);
  // u[2q] = Re(V[q] post[q]), u[m-1-2q] = -Im(V[q] post[q]); coef holds u.
  for (int q = 0; q < quarter; ++q) {
    Word32 re, im;
    ComplexMul(fft[2 * q], fft[2 * q + 1], post[2 * q], post[2 * q + 1], &re, &im);
    coef[2 * q] = re;
    coef[m - 1 - 2 * q] = Op::L_negate(im);
  }
  // Unfold into 2m samples scaled by 2/N = 1/m: Q3 / 1024 -> Q12 is a shift
  // right by one (long); Q5 / 128 -> Q12 is none (short).
  const int half = m / 2;
  auto scale = [isLong](Word32 u) -> Word32 {
    return isLong ? static_cast<Word32>((std::int64_t{u} + 1) >> 1) : u;
  };
  for (int n = 0; n < half; ++n) out[n] = scale(coef[n + half]);
  for (int n = half; n < 3 * half; ++n) out[n] = Op::L_negate(scale(coef[3 * half - 1 - n]));
  for (int n = 3 * half; n < 2 * m; ++n) out[n] = Op::L_negate(scale(coef[n - 3 * half]));
}

void SynthesizeChannel(const IcsInfo& ics, std::int32_t* coef, ChannelHistory* history,
                       FilterbankWork* work, std::int16_t* pcm, int stride) noexcept {
  std::int32_t* t = work->time;
  const int prev = history->previousShape;
  const int cur = ics.windowShape;
  if (ics.windowSequence == kEightShort) {
    std::memset(t, 0, sizeof(work->time));
    std::int32_t z[256];
    for (int w = 0; w < 8; ++w) {
      InverseMdct(coef + 128 * w, 128, z, work->fft);
      const std::int32_t* rise = ShortWindow(w == 0 ? prev : cur);
      const std::int32_t* fall = ShortWindow(cur);
      std::int32_t* dst = t + 448 + 128 * w;
      for (int n = 0; n < 128; ++n) dst[n] = Op::L_add(dst[n], Op::MulQ31(z[n], rise[n]));
      for (int n = 0; n < 128; ++n)
        dst[128 + n] = Op::L_add(dst[128 + n], Op::MulQ31(z[128 + n], fall[127 - n]));
    }
  } else {
    InverseMdct(coef, 1024, t, work->fft);
    if (ics.windowSequence == kLongStop) {
      const std::int32_t* rise = ShortWindow(prev);
      for (int n = 0; n < 448; ++n) t[n] = 0;
      for (int n = 0; n < 128; ++n) t[448 + n] = Op::MulQ31(t[448 + n], rise[n]);
    } else {
      const std::int32_t* rise = LongWindow(prev);
      for (int n = 0; n < 1024; ++n) t[n] = Op::MulQ31(t[n], rise[n]);
    }
    if (ics.windowSequence == kLongStart) {
      const std::int32_t* fall = ShortWindow(cur);
      for (int n = 0; n < 128; ++n) t[1472 + n] = Op::MulQ31(t[1472 + n], fall[127 - n]);
      for (int n = 1600; n < 2048; ++n) t[n] = 0;
    } else {
      const std::int32_t* fall = LongWindow(cur);
      for (int n = 0; n < 1024; ++n) t[1024 + n] = Op::MulQ31(t[1024 + n], fall[1023 - n]);
    }
  }
  // Overlap-add, round Q12 to 16 bits, keep the second half.
  for (int n = 0; n < 1024; ++n) {
    const Word32 s = Op::L_add(history->overlap[n], t[n]);
    pcm[n * stride] = Op::sat16(Op::L_add(s, 1 << 11) >> 12);
  }
  std::memcpy(history->overlap, t + 1024, sizeof(history->overlap));
  history->previousShape = static_cast<std::uint8_t>(cur);
}

}  // namespace tmx::aac
