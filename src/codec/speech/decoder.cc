#include "codec/speech/decoder.h"

#include <cstring>

#include "codec/speech/dsp.h"

namespace tmx::speech {
namespace {

// Pitch sharpening of the fixed-codebook vector: c[n] += 0.8 c[n - T].
constexpr Word16 kSharpening = Q15(0.8);
// Post-filter output gain smoothing per sample.
constexpr Word16 kGainSmoothing = Q15(0.9);
// Bounds of the gain predictor's memory, Q10 (log2 units).
constexpr Word16 kGainMemLimit = static_cast<Word16>(QConst(14.0, 10));

// Smallest LSF distance: about 50 Hz at either sampling rate.
constexpr FrameShape kShapes[4] = {
    // mode 1: five subframes, two single-pulse tracks in one 10-bit field
    {1, 5, 48, 5, false, 8, 5, 40, 358, 2, 3, 1, Q15(0.0125), Q15(0.70), Q15(0.75), Q15(0.1)},
    // mode 2: three subframes, three single-pulse tracks
    {2, 3, 48, 5, false, 8, 5, 40, 358, 3, 3, 1, Q15(0.0125), Q15(0.70), Q15(0.75), Q15(0.1)},
    // mode 3: three subframes, three tracks of two pulses
    {3, 3, 48, 5, false, 8, 5, 40, 358, 3, 3, 2, Q15(0.0125), Q15(0.70), Q15(0.75), Q15(0.1)},
    // mode 4: two subframes at 16 kHz, five tracks of two pulses
    {4, 2, 80, 6, true, 9, 6, 68, 579, 5, 5, 2, Q15(0.00625), Q15(0.70), Q15(0.75), Q15(0.1)},
};

// log2 of a subframe length, Q10, at compile time: log2(n) = k + log2(m)
// with m = n / 2^k in [1, 2), ln(m) by its atanh series.
constexpr Word16 Log2Length(int n) {
  int k = 0;
  double m = n;
  while (m >= 2) m /= 2, ++k;
  const double z = (m - 1) / (m + 1);
  double term = z, sum = 0;
  for (int i = 0; i < 60; ++i) sum += term / (2 * i + 1), term *= z * z;
  const double ln2 = 0.69314718055994531;
  return static_cast<Word16>(QConst(k + 2 * sum / ln2, 10));
}

// Mode 4 codes the band up to 7 kHz, as 16 kHz speech coders usually do:
// its output passes a fourth-order Butterworth low-pass at 7 kHz (two
// biquads, bilinear design, coefficients Q14), which removes the coding
// noise the envelope leaves between 7 and 8 kHz.
struct Biquad {
  Word16 b0, b1, b2, a1, a2;  // Q14; y = b0 x + b1 x' + b2 x'' - a1 y' - a2 y''
};
constexpr double kLowPassK = 5.0273394921;  // tan(pi 7000 / 16000)
constexpr Biquad LowPassSection(double q) {
  const double k = kLowPassK, norm = 1 / (1 + k / q + k * k);
  return {static_cast<Word16>(QConst(k * k * norm, 14)),
          static_cast<Word16>(QConst(2 * k * k * norm, 14)),
          static_cast<Word16>(QConst(k * k * norm, 14)),
          static_cast<Word16>(QConst(2 * (k * k - 1) * norm, 14)),
          static_cast<Word16>(QConst((1 - k / q + k * k) * norm, 14))};
}
// Section quality factors of a fourth-order Butterworth: 1 / (2 cos(pi/8))
// and 1 / (2 cos(3 pi/8)).
constexpr Biquad kLowPass[2] = {LowPassSection(0.5411961001), LowPassSection(1.3065629649)};

void LowPass(Word16* mem, Word16* x, int n) noexcept {
  for (int s = 0; s < 2; ++s) {
    const Biquad& f = kLowPass[s];
    Word16* m = mem + 4 * s;  // x', x'', y', y''
    for (int i = 0; i < n; ++i) {
      Word32 acc = SOp::L_mult(x[i], f.b0);  // Q15
      acc = SOp::L_add(acc, SOp::L_mult(m[0], f.b1));
      acc = SOp::L_add(acc, SOp::L_mult(m[1], f.b2));
      acc = SOp::L_sub(acc, SOp::L_mult(m[2], f.a1));
      acc = SOp::L_sub(acc, SOp::L_mult(m[3], f.a2));
      const Word16 y = SOp::round16(SOp::L_shl(acc, 1));
      m[1] = m[0];
      m[0] = x[i];
      m[3] = m[2];
      m[2] = y;
      x[i] = y;
    }
  }
}

void PostFilter(DecoderState* st, const Word16* a, const Word16* syn, Word16* out, int n) noexcept {
  const FrameShape& shape = *st->shape;
  Word16 an[kOrder + 1], ad[kOrder + 1];
  WeightLpc(a, shape.postNum, an);
  WeightLpc(a, shape.postDen, ad);

  // Residual of the synthesis through An(z), with its history.
  Word16 in[kOrder + kMaxSubframe];
  std::memcpy(in, st->postRes, sizeof st->postRes);
  std::memcpy(in + kOrder, syn, sizeof(Word16) * n);
  Word16 res[kMaxSubframe];
  Residual(an, in + kOrder, res, n);
  std::memcpy(st->postRes, in + n, sizeof st->postRes);

  // Tilt of An/Ad from its first two autocorrelation terms; a low-pass
  // tilt (positive r1) is compensated by 1 - mu z^-1.
  Word16 h[20] = {};
  std::memcpy(h, an, sizeof an);
  Word16 zero[kOrder] = {};
  Synthesis(ad, h, h, 20, zero);  // Q12 impulse response
  Word32 r0 = 0, r1 = 0;
  for (int i = 0; i < 20; ++i) {
    r0 = SOp::L_add(r0, SOp::L_shr(SOp::L_mult(h[i], h[i]), 6));
    if (i < 19) r1 = SOp::L_add(r1, SOp::L_shr(SOp::L_mult(h[i], h[i + 1]), 6));
  }
  Word16 mu = 0;  // Q15
  if (r1 > 0 && r0 > 0) {
    const Word16 e = SOp::norm_l(r0);
    const Word16 den = SOp::round16(SOp::L_shl(r0, e));
    const Word16 num = SOp::round16(SOp::L_shl(r1, e));
    mu = SOp::mult(shape.postTilt, SOp::div_s(num < den ? num : den, den));
  }
  Word16 prev = st->postTiltMem;
  for (int i = 0; i < n; ++i) {
    const Word16 cur = res[i];
    res[i] = SOp::sub(cur, SOp::mult(mu, prev));
    prev = cur;
  }
  st->postTiltMem = prev;
  Word16 y[kMaxSubframe];
  Synthesis(ad, res, y, n, st->postSyn);

  // Match the energy of the synthesis before the post-filter.
  const Word16 target = SqrtRatio(Energy(syn, n), Energy(y, n));  // Q12
  Word16 g = st->postGain;
  for (int i = 0; i < n; ++i) {
    g = SOp::add(SOp::mult(g, kGainSmoothing), SOp::mult(target, SOp::sub(kMax16, kGainSmoothing)));
    out[i] = SOp::round16(SOp::L_shl(SOp::L_mult(y[i], g), 3));
  }
  st->postGain = g;
}

}  // namespace

const FrameShape* ShapeForMode(int mode) noexcept {
  return mode >= 1 && mode <= 4 ? &kShapes[mode - 1] : nullptr;
}

const GainQuantizer& GainTable(const FrameShape& shape, const Tables& tables) noexcept {
  return shape.wide ? tables.wideGain : tables.narrowGain;
}

void InitDecoder(DecoderState* st, int mode, const Tables* tables) noexcept {
  std::memset(st, 0, sizeof *st);
  st->shape = ShapeForMode(mode);
  st->tables = tables;
  const LsfQuantizer& q = st->shape->wide ? tables->wideLsf : tables->narrowLsf;
  std::memcpy(st->prevLsf, q.mean, sizeof st->prevLsf);
  st->postGain = 4096;
}

void SplitParams(const FrameShape& shape, const Word16* p, Word16* envelope,
                 SubframeParams* sub) noexcept {
  for (int i = 0; i < shape.envelopeFields; ++i) envelope[i] = *p++;
  for (int s = 0; s < shape.subframes; ++s) {
    SubframeParams& q = sub[s];
    q.pitch = *p++;
    if (shape.mode == 1) {
      const int f = *p++;
      q.fcb[0] = f & 31;
      q.fcb[1] = (f >> 5) & 31;
      q.gain = *p++;
    } else if (shape.mode == 4) {
      const int low = *p++;
      for (int t = 0; t < shape.tracks; ++t) q.fcb[t] = *p++;
      q.gain = low | (*p++ << 4);
    } else {
      for (int t = 0; t < shape.tracks; ++t) q.fcb[t] = *p++;
      q.gain = *p++;
    }
  }
}

int JoinParams(const FrameShape& shape, const Word16* envelope, const SubframeParams* sub,
               Word16* params) noexcept {
  Word16* p = params;
  if (shape.mode == 2 || shape.mode == 3) *p++ = static_cast<Word16>(shape.mode == 2 ? 1 : 0);
  for (int i = 0; i < shape.envelopeFields; ++i) *p++ = envelope[i];
  for (int s = 0; s < shape.subframes; ++s) {
    const SubframeParams& q = sub[s];
    *p++ = static_cast<Word16>(q.pitch);
    if (shape.mode == 1) {
      *p++ = static_cast<Word16>(q.fcb[0] | (q.fcb[1] << 5));
      *p++ = static_cast<Word16>(q.gain);
    } else if (shape.mode == 4) {
      *p++ = static_cast<Word16>(q.gain & 15);
      for (int t = 0; t < shape.tracks; ++t) *p++ = static_cast<Word16>(q.fcb[t]);
      *p++ = static_cast<Word16>(q.gain >> 4);
    } else {
      for (int t = 0; t < shape.tracks; ++t) *p++ = static_cast<Word16>(q.fcb[t]);
      *p++ = static_cast<Word16>(q.gain);
    }
  }
  return static_cast<int>(p - params);
}

void DecodeLsf(const FrameShape& shape, const Tables& tables, const Word16* envelope,
               const Word16* prevLsf, Word16* lsf) noexcept {
  const LsfQuantizer& q = shape.wide ? tables.wideLsf : tables.narrowLsf;
  const Word16* e = envelope;
  int predicted = 0;
  if (shape.wide) predicted = *e++ & 1;
  const Word16* s1 = q.stage1[predicted] + (*e++ % q.stage1Size) * kOrder;
  for (int i = 0; i < kOrder; ++i) {
    Word16 v = SOp::add(q.mean[i], s1[i]);
    if (predicted) v = SOp::add(v, SOp::mult(q.prediction, SOp::sub(prevLsf[i], q.mean[i])));
    lsf[i] = v;
  }
  for (int k = 0; k < kLsfSplits; ++k) {
    const Word16* c = q.split[k] + (*e++ % q.splitSize[k]) * q.splitDim[k];
    for (int d = 0; d < q.splitDim[k]; ++d) {
      Word16& v = lsf[q.splitStart[k] + d];
      v = SOp::add(v, c[d]);
    }
  }
  StabiliseLsf(lsf, shape.lsfMinGap);
}

void InterpolateLsf(const FrameShape& shape, const Word16* prevLsf, const Word16* curLsf, int s,
                    Word16* out) noexcept {
  // Weight of the current frame, Q15: (s + 1) / subframes.
  const Word16 w =
      s + 1 >= shape.subframes ? kMax16 : static_cast<Word16>(((s + 1) * 32768) / shape.subframes);
  for (int i = 0; i < kOrder; ++i)
    out[i] = SOp::add(prevLsf[i], SOp::mult(w, SOp::sub(curLsf[i], prevLsf[i])));
  if (w == kMax16)
    for (int i = 0; i < kOrder; ++i) out[i] = curLsf[i];
}

int DecodeLag2(const FrameShape& shape, int subframe, int field, int prevLag2) noexcept {
  int lag2;
  if (subframe == 0) {
    if (shape.wide)
      lag2 = 68 + field;  // 34.0 .. 289.5 in half samples
    else
      lag2 = field < 192 ? 40 + field : 232 + 2 * (field - 192);  // 20.0 .. 115.5, 116 .. 179
  } else {
    lag2 = prevLag2 + field - (1 << (shape.pitchOtherBits - 1));
  }
  if (lag2 < shape.minLag2) lag2 = shape.minLag2;
  if (lag2 > shape.maxLag2) lag2 = shape.maxLag2;
  return lag2;
}

void FixedVector(const FrameShape& shape, const int* fcb, int lag, Word16* code) noexcept {
  const int n = shape.subframeLength;
  for (int i = 0; i < n; ++i) code[i] = 0;
  constexpr Word16 kPulse = 4096;  // 1.0 in Q12
  for (int t = 0; t < shape.tracks; ++t) {
    const int f = fcb[t];
    if (shape.pulsesPerTrack == 1) {
      const int pos = t + shape.trackStride * (f & 15);
      code[pos] = SOp::add(code[pos], (f >> 4) & 1 ? -kPulse : kPulse);
    } else {
      // Two pulses: the second has the first's sign when it does not come
      // before it, the opposite sign when it does.
      const int pa = f & 15, pb = (f >> 4) & 15;
      const Word16 sa = (f >> 8) & 1 ? -kPulse : kPulse;
      const Word16 sb = pb >= pa ? sa : SOp::negate(sa);
      const int ia = t + shape.trackStride * pa, ib = t + shape.trackStride * pb;
      code[ia] = SOp::add(code[ia], sa);
      code[ib] = SOp::add(code[ib], sb);
    }
  }
  for (int i = lag; i < n; ++i) code[i] = SOp::add(code[i], SOp::mult(code[i - lag], kSharpening));
}

Word16 PredictedLogGain(const FrameShape& shape, const GainQuantizer& gq, const Word16* gainMem,
                        const Word16* code) noexcept {
  // Per-sample energy of the code vector: Energy() gives sum c^2 / 16 with c
  // in Q12, so the sum in Q0 is that value / 2^20.
  const Word32 e = Energy(code, shape.subframeLength);
  const Word16 logCode = SOp::sub(SOp::sub(Log2(e), static_cast<Word16>(QConst(20.0, 10))),
                                  Log2Length(shape.subframeLength));
  Word32 acc = SOp::L_shl(Word32{gq.meanEnergy}, 16);  // Q26
  for (int k = 0; k < 4; ++k) acc = SOp::L_add(acc, SOp::L_mult(gq.predictor[k], gainMem[k]));
  const Word16 predicted = SOp::round16(acc);  // Q10
  return SOp::shr(SOp::sub(predicted, logCode), 1);
}

void DecodeGains(const GainQuantizer& gq, int index, Word16 logGainPred, Word16* pitchGain,
                 Word32* fixedGain) noexcept {
  index %= gq.size;
  *pitchGain = gq.pitchGain[index];
  *fixedGain = Pow2(SOp::add(logGainPred, gq.logGamma[index]));
}

void UpdateGainMemory(const GainQuantizer& gq, int index, const Word16* gainMem,
                      Word16* newMem) noexcept {
  index %= gq.size;
  Word32 acc = 0;
  for (int k = 0; k < 4; ++k) acc = SOp::L_add(acc, SOp::L_mult(gq.predictor[k], gainMem[k]));
  Word16 dev = SOp::add(SOp::round16(acc), SOp::shl(gq.logGamma[index], 1));
  if (dev > kGainMemLimit) dev = kGainMemLimit;
  if (dev < SOp::negate(kGainMemLimit)) dev = SOp::negate(kGainMemLimit);
  const Word16 m0 = gainMem[0], m1 = gainMem[1], m2 = gainMem[2];
  newMem[0] = dev;
  newMem[1] = m0;
  newMem[2] = m1;
  newMem[3] = m2;
}

void MixExcitation(Word16* exc, const Word16* code, Word16 pitchGain, Word32 fixedGain,
                   int n) noexcept {
  Word16 hi, lo;
  SOp::L_Extract(fixedGain, &hi, &lo);
  for (int i = 0; i < n; ++i) {
    Word32 acc = SOp::L_mult(exc[i], pitchGain);                            // Q15
    acc = SOp::L_add(acc, SOp::L_shl(SOp::Mpy_32_16(hi, lo, code[i]), 2));  // Q13 -> Q15
    exc[i] = SOp::round16(SOp::L_shl(acc, 1));
  }
}

int DecodeSubframe(DecoderState* st, int s, const Word16* a, const SubframeParams& p, int prevLag2,
                   Word16* syn) noexcept {
  const FrameShape& shape = *st->shape;
  const GainQuantizer& gq = GainTable(shape, *st->tables);
  const int n = shape.subframeLength;
  Word16* exc = st->excBuffer + kExcHistory + s * n;
  const int lag2 = DecodeLag2(shape, s, p.pitch, prevLag2);
  AdaptiveVector(exc, lag2, n);
  Word16 code[kMaxSubframe];
  FixedVector(shape, p.fcb, SharpeningLag(lag2), code);
  const Word16 logPred = PredictedLogGain(shape, gq, st->gainMem, code);
  Word16 gp;
  Word32 gc;
  DecodeGains(gq, p.gain, logPred, &gp, &gc);
  MixExcitation(exc, code, gp, gc, n);
  UpdateGainMemory(gq, p.gain, st->gainMem, st->gainMem);
  Synthesis(a, exc, syn, n, st->synMem);
  return lag2;
}

void FinishFrame(DecoderState* st, const Word16* lsf) noexcept {
  const int frame = st->shape->subframes * st->shape->subframeLength;
  std::memmove(st->excBuffer, st->excBuffer + frame, sizeof(Word16) * kExcHistory);
  std::memcpy(st->prevLsf, lsf, sizeof st->prevLsf);
}

void DecodeFrame(DecoderState* st, const Word16* params, Word16* pcm) noexcept {
  // The three-subframe decoder takes its fixed-codebook layout from the
  // leading word: 1 one pulse a track, 0 two.
  if (st->shape->mode == 2 || st->shape->mode == 3) st->shape = ShapeForMode(*params++ ? 2 : 3);
  const FrameShape& shape = *st->shape;
  Word16 envelope[6];
  SubframeParams sub[kMaxSubframes];
  SplitParams(shape, params, envelope, sub);
  Word16 lsf[kOrder];
  DecodeLsf(shape, *st->tables, envelope, st->prevLsf, lsf);
  int lag2 = 0;
  for (int s = 0; s < shape.subframes; ++s) {
    Word16 lsfSub[kOrder], a[kOrder + 1], syn[kMaxSubframe];
    InterpolateLsf(shape, st->prevLsf, lsf, s, lsfSub);
    LsfToLpc(lsfSub, a);
    lag2 = DecodeSubframe(st, s, a, sub[s], lag2, syn);
    PostFilter(st, a, syn, pcm + s * shape.subframeLength, shape.subframeLength);
  }
  if (shape.wide) LowPass(st->lowPassMem, pcm, shape.subframes * shape.subframeLength);
  FinishFrame(st, lsf);
}

}  // namespace tmx::speech
