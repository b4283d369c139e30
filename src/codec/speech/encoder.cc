#include "codec/speech/encoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "codec/speech/decoder.h"
#include "codec/speech/dsp.h"
#include "codec/speech/layout.h"
#include "util/alloc.h"

namespace tmx::speech {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kMaxWindow = 320;
constexpr double kMaxPitchGain = 1.2;

struct Weighting {
  double gamma1, gamma2;  // W(z) = A(z / gamma1) / A(z / gamma2)
};

}  // namespace

struct Encoder {
  const ModeLayout* layout;
  const FrameShape* shape;
  const Tables* tables;
  EncoderObserver observer;
  bool observed;
  DecoderState dec;           // the local decoder
  int window;                 // LPC analysis window length
  double speech[kMaxWindow];  // the last `window` input samples
  double lagWindow[kOrder + 1];
  double prevLsf[kOrder];  // unquantised LSFs of the last frame
  double errMem[kOrder];   // weighting filter: past s - s^ (most recent last)
  double wMem[kOrder];     // weighting filter: past weighted error
  Weighting weighting;
};

namespace {

// ---- LPC analysis ----

// Autocorrelation of the windowed buffer; the window rises over its first
// five sixths and falls over the last sixth, so the analysis centres on the
// newest subframe without looking ahead.
void Autocorrelation(const Encoder& e, double* r) {
  double w[kMaxWindow];
  const int n = e.window, rise = n * 5 / 6, fall = n - rise;
  for (int i = 0; i < rise; ++i) w[i] = e.speech[i] * (0.54 - 0.46 * std::cos(kPi * i / rise));
  for (int i = 0; i < fall; ++i) w[rise + i] = e.speech[rise + i] * std::cos(0.5 * kPi * i / fall);
  for (int k = 0; k <= kOrder; ++k) {
    double s = 0;
    for (int i = k; i < n; ++i) s += w[i] * w[i - k];
    r[k] = s * e.lagWindow[k];
  }
  r[0] = r[0] * 1.0001 + 1e-3;
}

// Levinson-Durbin: a[0..10] with a[0] = 1.
void Levinson(const double* r, double* a) {
  double tmp[kOrder + 1];
  a[0] = 1;
  for (int i = 1; i <= kOrder; ++i) a[i] = 0;
  double err = r[0];
  for (int i = 1; i <= kOrder; ++i) {
    double acc = r[i];
    for (int j = 1; j < i; ++j) acc += a[j] * r[i - j];
    const double k = err > 0 ? -acc / err : 0;
    for (int j = 0; j <= i; ++j) tmp[j] = a[j];
    for (int j = 1; j < i; ++j) a[j] = tmp[j] + k * tmp[i - j];
    a[i] = k;
    err *= 1 - k * k;
    if (err <= 0) err = 1e-9;
  }
}

// The symmetric sum and antisymmetric difference polynomials of A(z), with
// their trivial roots at z = -1 and z = 1 divided out; degree 10 each.
void SumDifference(const double* a, double* p, double* q) {
  double pp[kOrder + 2], qq[kOrder + 2];
  for (int i = 0; i <= kOrder + 1; ++i) {
    const double ai = i <= kOrder ? a[i] : 0;
    const double ar = kOrder + 1 - i <= kOrder ? a[kOrder + 1 - i] : 0;
    pp[i] = ai + ar;
    qq[i] = ai - ar;
  }
  p[0] = pp[0];
  q[0] = qq[0];
  for (int i = 1; i <= kOrder; ++i) {
    p[i] = pp[i] - p[i - 1];
    q[i] = qq[i] + q[i - 1];
  }
}

// e^{j5w} times a symmetric degree-10 polynomial at e^{jw}: a real cosine sum.
double EvalSymmetric(const double* f, double w) {
  double s = f[5];
  for (int k = 0; k < 5; ++k) s += 2 * f[k] * std::cos((5 - k) * w);
  return s;
}

// LSFs (fractions of Nyquist) of a[]; false when fewer than ten were found.
bool LpcToLsf(const double* a, double* lsf) {
  double p[kOrder + 1], q[kOrder + 1];
  SumDifference(a, p, q);
  constexpr int kGrid = 512;
  int found = 0;
  const double* poly[2] = {p, q};
  int which = 0;
  double prevW = 0, prevV = EvalSymmetric(poly[0], 0);
  for (int g = 1; g <= kGrid && found < kOrder; ++g) {
    const double w = kPi * g / kGrid;
    const double v = EvalSymmetric(poly[which], w);
    if ((prevV <= 0 && v > 0) || (prevV >= 0 && v < 0)) {
      double lo = prevW, hi = w, vlo = prevV;
      for (int it = 0; it < 30; ++it) {
        const double mid = 0.5 * (lo + hi);
        const double vm = EvalSymmetric(poly[which], mid);
        if ((vlo <= 0) == (vm <= 0)) {
          lo = mid;
          vlo = vm;
        } else {
          hi = mid;
        }
      }
      const double root = 0.5 * (lo + hi);
      lsf[found++] = root / kPi;
      which ^= 1;
      prevW = root;
      prevV = EvalSymmetric(poly[which], root);
      // Resume the grid just past the root.
      continue;
    }
    prevW = w;
    prevV = v;
  }
  return found == kOrder;
}

void LsfToLpcFloat(const double* lsf, double* a) {
  double p[kOrder + 2] = {1}, q[kOrder + 2] = {1};
  auto multiply = [](double* f, double c) {
    for (int j = kOrder; j >= 1; --j) f[j] += -2 * c * f[j - 1] + (j >= 2 ? f[j - 2] : 0);
  };
  for (int k = 0; k < 5; ++k) {
    multiply(p, std::cos(kPi * lsf[2 * k]));
    multiply(q, std::cos(kPi * lsf[2 * k + 1]));
  }
  a[0] = 1;
  for (int i = 1; i <= kOrder; ++i) {
    const double pi = p[i] + p[i - 1], qi = q[i] - q[i - 1];
    a[i] = 0.5 * (pi + qi);
  }
}

// ---- LSF quantisation ----

const LsfQuantizer& LsfTable(const Encoder& e) {
  return e.shape->wide ? e.tables->wideLsf : e.tables->narrowLsf;
}

// Chooses the envelope fields for LSFs `lsf` (Q15 units) by a weighted
// search: the best few first-stage entries, each followed by the best
// entry of every split.
void QuantiseLsf(const Encoder& e, const double* lsf, Word16* envelope) {
  const LsfQuantizer& q = LsfTable(e);
  double w[kOrder];
  for (int i = 0; i < kOrder; ++i) {
    const double lo = i ? lsf[i] - lsf[i - 1] : lsf[0];
    const double hi = i + 1 < kOrder ? lsf[i + 1] - lsf[i] : 32768 - lsf[i];
    w[i] = 1 / std::max(lo, 50.0) + 1 / std::max(hi, 50.0);
  }
  double bestErr = 1e300;
  const int predictions = e.shape->wide ? 2 : 1;
  for (int pr = 0; pr < predictions; ++pr) {
    double target[kOrder];
    for (int i = 0; i < kOrder; ++i) {
      double base = q.mean[i];
      if (pr) base += q.prediction / 32768.0 * (e.dec.prevLsf[i] - q.mean[i]);
      target[i] = lsf[i] - base;
    }
    constexpr int kKeep = 6;
    int keep[kKeep];
    double keepErr[kKeep];
    for (int k = 0; k < kKeep; ++k) keep[k] = -1, keepErr[k] = 1e300;
    for (int c = 0; c < q.stage1Size; ++c) {
      const Word16* v = q.stage1[pr] + c * kOrder;
      double err = 0;
      for (int i = 0; i < kOrder; ++i) err += w[i] * (target[i] - v[i]) * (target[i] - v[i]);
      if (err < keepErr[kKeep - 1]) {
        int k = kKeep - 1;
        while (k > 0 && keepErr[k - 1] > err) {
          keepErr[k] = keepErr[k - 1];
          keep[k] = keep[k - 1];
          --k;
        }
        keepErr[k] = err;
        keep[k] = c;
      }
    }
    for (int k = 0; k < kKeep && keep[k] >= 0; ++k) {
      const Word16* v1 = q.stage1[pr] + keep[k] * kOrder;
      double total = 0;
      int idx[kLsfSplits];
      for (int s = 0; s < kLsfSplits; ++s) {
        double best = 1e300;
        idx[s] = 0;
        for (int c = 0; c < q.splitSize[s]; ++c) {
          const Word16* v2 = q.split[s] + c * q.splitDim[s];
          double err = 0;
          for (int d = 0; d < q.splitDim[s]; ++d) {
            const int i = q.splitStart[s] + d;
            const double r = target[i] - v1[i] - v2[d];
            err += w[i] * r * r;
          }
          if (err < best) best = err, idx[s] = c;
        }
        total += best;
      }
      if (total < bestErr) {
        bestErr = total;
        Word16* out = envelope;
        if (e.shape->wide) *out++ = static_cast<Word16>(pr);
        *out++ = static_cast<Word16>(keep[k]);
        for (int s = 0; s < kLsfSplits; ++s) *out++ = static_cast<Word16>(idx[s]);
      }
    }
  }
}

// ---- Filters ----

void WeightFloat(const double* a, double g, double* out) {
  double f = 1;
  for (int i = 0; i <= kOrder; ++i, f *= g) out[i] = a[i] * f;
}

// Impulse response of W(z) / A^(z) over n samples.
void ImpulseResponse(const double* aq, const double* w1, const double* w2, double* h, int n) {
  double syn[kMaxSubframe], fir[kMaxSubframe];
  for (int i = 0; i < n; ++i) {
    double s = i == 0 ? 1 : 0;
    for (int k = 1; k <= kOrder && k <= i; ++k) s -= aq[k] * syn[i - k];
    syn[i] = s;
  }
  for (int i = 0; i < n; ++i) {
    double s = 0;
    for (int k = 0; k <= kOrder && k <= i; ++k) s += w1[k] * syn[i - k];
    fir[i] = s;
  }
  for (int i = 0; i < n; ++i) {
    double s = fir[i];
    for (int k = 1; k <= kOrder && k <= i; ++k) s -= w2[k] * h[i - k];
    h[i] = s;
  }
}

// y = W(z) x with memories (most recent last): errMem the input, wMem the
// output; both updated.
void Weight(const double* w1, const double* w2, const double* x, double* y, int n, double* errMem,
            double* wMem) {
  double in[kOrder + kMaxSubframe], out[kOrder + kMaxSubframe];
  std::memcpy(in, errMem, sizeof(double) * kOrder);
  std::memcpy(out, wMem, sizeof(double) * kOrder);
  for (int i = 0; i < n; ++i) {
    in[kOrder + i] = x[i];
    double s = 0;
    for (int k = 0; k <= kOrder; ++k) s += w1[k] * in[kOrder + i - k];
    for (int k = 1; k <= kOrder; ++k) s -= w2[k] * out[kOrder + i - k];
    out[kOrder + i] = s;
    y[i] = s;
  }
  std::memcpy(errMem, in + n, sizeof(double) * kOrder);
  std::memcpy(wMem, out + n, sizeof(double) * kOrder);
}

void Convolve(const double* h, const double* x, double* y, int n) {
  for (int i = 0; i < n; ++i) {
    double s = 0;
    for (int k = 0; k <= i; ++k) s += h[k] * x[i - k];
    y[i] = s;
  }
}

double Dot(const double* a, const double* b, int n) {
  double s = 0;
  for (int i = 0; i < n; ++i) s += a[i] * b[i];
  return s;
}

// ---- Adaptive codebook ----

// The filtered adaptive vector of delay lag2, computed with the decoder's
// own interpolator on a copy of the excitation history.
void FilteredAdaptive(const Encoder& e, int s, int lag2, const double* h, double* y, double* v) {
  const int n = e.shape->subframeLength;
  Word16 buf[kExcHistory + kMaxSubframe];
  const Word16* src = e.dec.excBuffer + s * n;
  std::memcpy(buf, src, sizeof(Word16) * kExcHistory);
  AdaptiveVector(buf + kExcHistory, lag2, n);
  for (int i = 0; i < n; ++i) v[i] = buf[kExcHistory + i];
  Convolve(h, v, y, n);
}

// Chooses the pitch field of subframe s: the relative fields by trying
// every code; the absolute field by ranking integer delays first (with the
// recursive update of the filtered vector) and then trying the codes
// around the best one.
int SearchPitch(const Encoder& e, int s, int prevLag2, const double* x, const double* h) {
  const FrameShape& sh = *e.shape;
  const int n = sh.subframeLength;
  double y[kMaxSubframe], v[kMaxSubframe];
  auto score = [&](int lag2) {
    FilteredAdaptive(e, s, lag2, h, y, v);
    const double xy = Dot(x, y, n), yy = Dot(y, y, n);
    return xy > 0 && yy > 0 ? xy * xy / yy : 0.0;
  };
  int bestCode = 0;
  double best = -1;
  auto consider = [&](int code) {
    const double c = score(DecodeLag2(sh, s, code, prevLag2));
    if (c > best) best = c, bestCode = code;
  };
  if (s > 0) {
    for (int code = 0; code < (1 << sh.pitchOtherBits); ++code) consider(code);
    return bestCode;
  }
  // Integer delays.
  const Word16* exc = e.dec.excBuffer + kExcHistory + s * n;
  const int minT = sh.minLag2 / 2, maxT = sh.maxLag2 / 2;
  int bestT = minT;
  double bestC = -1;
  double yr[kMaxSubframe];
  bool have = false;
  for (int t = minT; t <= maxT; ++t) {
    if (t < n) {
      FilteredAdaptive(e, s, 2 * t, h, yr, v);
      have = false;
    } else if (!have) {
      for (int i = 0; i < n; ++i) v[i] = exc[i - t];
      Convolve(h, v, yr, n);
      have = true;
    } else {
      // y_t[i] = y_{t-1}[i - 1] + exc[-t] h[i]
      for (int i = n - 1; i >= 1; --i) yr[i] = yr[i - 1] + exc[-t] * h[i];
      yr[0] = exc[-t] * h[0];
    }
    const double xy = Dot(x, yr, n), yy = Dot(yr, yr, n);
    const double c = xy > 0 && yy > 0 ? xy * xy / yy : 0.0;
    if (c > bestC) bestC = c, bestT = t;
  }
  // Codes within a sample of the best integer delay.
  for (int code = 0; code < (1 << sh.pitchFirstBits); ++code) {
    const int lag2 = DecodeLag2(sh, 0, code, 0);
    if (lag2 >= 2 * bestT - 2 && lag2 <= 2 * bestT + 2) consider(code);
  }
  return bestCode;
}

// ---- Fixed codebook ----

// Chooses the track fields for target x2 with the sharpened impulse
// response hs: pulse signs follow the backward-filtered target; positions
// are chosen track by track, from every track as the first one, and refined
// by a second pass.
void SearchFixed(const FrameShape& sh, const double* x2, const double* hs, int* fcb) {
  const int n = sh.subframeLength;
  double d[kMaxSubframe], sign[kMaxSubframe];
  static thread_local double phi[kMaxSubframe][kMaxSubframe];
  for (int i = 0; i < n; ++i) {
    double s = 0;
    for (int k = i; k < n; ++k) s += x2[k] * hs[k - i];
    sign[i] = s >= 0 ? 1 : -1;
    d[i] = std::fabs(s);
  }
  for (int i = 0; i < n; ++i)
    for (int j = i; j < n; ++j) {
      double s = 0;
      for (int k = j; k < n; ++k) s += hs[k - i] * hs[k - j];
      phi[i][j] = phi[j][i] = s * sign[i] * sign[j];
    }
  const int per = sh.pulsesPerTrack, tracks = sh.tracks;
  int best[kMaxTracks][2] = {}, cur[kMaxTracks][2];
  double bestCrit = -1;
  // Evaluates the best choice for track t given the pulses of the others.
  auto place = [&](int t, int(*chosen)[2], const bool* set) {
    double rr[kMaxSubframe] = {};
    double dsum = 0, esum = 0;
    int pos[2 * kMaxTracks], count = 0;
    for (int u = 0; u < tracks; ++u)
      if (u != t && set[u])
        for (int k = 0; k < per; ++k) pos[count++] = u + sh.trackStride * chosen[u][k];
    for (int a = 0; a < count; ++a) {
      dsum += d[pos[a]];
      for (int b = 0; b < count; ++b) esum += phi[pos[a]][pos[b]];
      for (int i = 0; i < n; ++i) rr[i] += phi[i][pos[a]];
    }
    double top = -1;
    int ba = 0, bb = 0;
    for (int ja = 0; ja < 16; ++ja) {
      const int pa = t + sh.trackStride * ja;
      if (per == 1) {
        const double dn = dsum + d[pa], en = esum + phi[pa][pa] + 2 * rr[pa];
        const double c = en > 0 ? dn * dn / en : 0;
        if (c > top) top = c, ba = ja;
        continue;
      }
      for (int jb = ja; jb < 16; ++jb) {
        const int pb = t + sh.trackStride * jb;
        const double dn = dsum + d[pa] + d[pb];
        const double en =
            esum + phi[pa][pa] + phi[pb][pb] + 2 * phi[pa][pb] + 2 * rr[pa] + 2 * rr[pb];
        const double c = en > 0 ? dn * dn / en : 0;
        if (c > top) top = c, ba = ja, bb = jb;
      }
    }
    chosen[t][0] = ba;
    chosen[t][1] = bb;
    return top;
  };
  for (int first = 0; first < tracks; ++first) {
    bool set[kMaxTracks] = {};
    double crit = 0;
    for (int k = 0; k < tracks; ++k) {
      const int t = (first + k) % tracks;
      crit = place(t, cur, set);
      set[t] = true;
    }
    for (int t = 0; t < tracks; ++t) crit = place(t, cur, set);
    if (crit > bestCrit) {
      bestCrit = crit;
      std::memcpy(best, cur, sizeof best);
    }
  }
  for (int t = 0; t < tracks; ++t) {
    const int ja = best[t][0], jb = best[t][1];
    const bool negA = sign[t + sh.trackStride * ja] < 0;
    if (per == 1) {
      fcb[t] = ja | (negA ? 16 : 0);
      continue;
    }
    const bool negB = sign[t + sh.trackStride * jb] < 0;
    if (negA == negB)  // same sign: the later pulse second
      fcb[t] = ja | (jb << 4) | (negA ? 256 : 0);
    else  // opposite signs: the second field position comes first
      fcb[t] = jb | (ja << 4) | (negB ? 256 : 0);
  }
}

// ---- One frame ----

void EncodeFrame(Encoder* e, const std::int16_t* pcm, Word16* params) {
  const FrameShape& sh = *e->shape;
  const int n = sh.subframeLength, frame = sh.subframes * n;
  std::memmove(e->speech, e->speech + frame, sizeof(double) * (e->window - frame));
  for (int i = 0; i < frame; ++i) e->speech[e->window - frame + i] = pcm[i];
  const double* cur = e->speech + e->window - frame;

  double r[kOrder + 1], a[kOrder + 1], lsf[kOrder];
  Autocorrelation(*e, r);
  Levinson(r, a);
  if (!LpcToLsf(a, lsf)) std::memcpy(lsf, e->prevLsf, sizeof lsf);
  if (e->observed && e->observer.lsf) e->observer.lsf(e->observer.context, lsf);

  Word16 envelope[6];
  double lsfQ15[kOrder];
  for (int i = 0; i < kOrder; ++i) lsfQ15[i] = lsf[i] * 32768;
  QuantiseLsf(*e, lsfQ15, envelope);
  Word16 qlsf[kOrder];
  DecodeLsf(sh, *e->tables, envelope, e->dec.prevLsf, qlsf);

  const GainQuantizer& gq = GainTable(sh, *e->tables);
  SubframeParams sub[kMaxSubframes];
  int prevLag2 = 0;
  for (int s = 0; s < sh.subframes; ++s) {
    const double* sp = cur + s * n;
    // Filters of this subframe: unquantised for the weighting, quantised
    // (exactly as decoded) for the synthesis.
    double ilsf[kOrder], au[kOrder + 1], w1[kOrder + 1], w2[kOrder + 1], aq[kOrder + 1];
    const double wcur = double(s + 1) / sh.subframes;
    for (int i = 0; i < kOrder; ++i) ilsf[i] = e->prevLsf[i] + wcur * (lsf[i] - e->prevLsf[i]);
    LsfToLpcFloat(ilsf, au);
    WeightFloat(au, e->weighting.gamma1, w1);
    WeightFloat(au, e->weighting.gamma2, w2);
    Word16 qsub[kOrder], aFixed[kOrder + 1];
    InterpolateLsf(sh, e->dec.prevLsf, qlsf, s, qsub);
    LsfToLpc(qsub, aFixed);
    for (int i = 0; i <= kOrder; ++i) aq[i] = aFixed[i] / 4096.0;

    // Target: weighted speech less the weighted zero-input response.
    double zir[kMaxSubframe], dif[kMaxSubframe], x[kMaxSubframe];
    double hist[kOrder + kMaxSubframe];
    for (int i = 0; i < kOrder; ++i) hist[i] = e->dec.synMem[i];
    for (int i = 0; i < n; ++i) {
      double v = 0;
      for (int k = 1; k <= kOrder; ++k) v -= aq[k] * hist[kOrder + i - k];
      hist[kOrder + i] = v;
      zir[i] = v;
      dif[i] = sp[i] - zir[i];
    }
    double errMem[kOrder], wMem[kOrder];
    std::memcpy(errMem, e->errMem, sizeof errMem);
    std::memcpy(wMem, e->wMem, sizeof wMem);
    Weight(w1, w2, dif, x, n, errMem, wMem);
    double h[kMaxSubframe];
    ImpulseResponse(aq, w1, w2, h, n);

    // Adaptive codebook.
    SubframeParams& p = sub[s];
    p.pitch = SearchPitch(*e, s, prevLag2, x, h);
    const int lag2 = DecodeLag2(sh, s, p.pitch, prevLag2);
    double y[kMaxSubframe], v[kMaxSubframe];
    FilteredAdaptive(*e, s, lag2, h, y, v);
    const double yy = Dot(y, y, n);
    double gp = yy > 0 ? Dot(x, y, n) / yy : 0;
    gp = std::clamp(gp, 0.0, kMaxPitchGain);

    // Fixed codebook on what the adaptive part leaves.
    double x2[kMaxSubframe], hs[kMaxSubframe];
    for (int i = 0; i < n; ++i) x2[i] = x[i] - gp * y[i];
    const int sharp = SharpeningLag(lag2);
    for (int i = 0; i < n; ++i) hs[i] = h[i] + (i >= sharp ? 0.8 * hs[i - sharp] : 0);
    SearchFixed(sh, x2, hs, p.fcb);

    // Joint gains against the decoded code vector.
    Word16 code[kMaxSubframe];
    FixedVector(sh, p.fcb, sharp, code);
    double c[kMaxSubframe], z[kMaxSubframe];
    for (int i = 0; i < n; ++i) c[i] = code[i] / 4096.0;
    Convolve(h, c, z, n);
    const Word16 logPred = PredictedLogGain(sh, gq, e->dec.gainMem, code);
    const double gcPred = std::exp2(logPred / 1024.0);
    const double xx = Dot(x, x, n), xy = Dot(x, y, n), xz = Dot(x, z, n);
    const double yz = Dot(y, z, n), zz = Dot(z, z, n);
    if (e->observed && e->observer.gains) {
      GainTerms t{xx, xy, xz, yy, yz, zz, gcPred, 0, 0};
      double ce = 0;
      for (int i = 0; i < n; ++i) ce += c[i] * c[i];
      t.logCodeEnergy = std::log2(std::max(ce / n, 1e-12));
      t.logPredMean = 2 * logPred / 1024.0 + t.logCodeEnergy;
      e->observer.gains(e->observer.context, t);
    }
    double bestErr = 1e300;
    p.gain = 0;
    for (int k = 0; k < gq.size; ++k) {
      const double g1 = gq.pitchGain[k] / 16384.0;
      const double g2 = gcPred * std::exp2(gq.logGamma[k] / 1024.0);
      const double err =
          -2 * g1 * xy - 2 * g2 * xz + g1 * g1 * yy + 2 * g1 * g2 * yz + g2 * g2 * zz;
      if (err < bestErr) bestErr = err, p.gain = k;
    }

    // The decoder's own reconstruction, then the weighting memories.
    Word16 syn[kMaxSubframe];
    prevLag2 = DecodeSubframe(&e->dec, s, aFixed, p, prevLag2, syn);
    double err[kMaxSubframe], werr[kMaxSubframe];
    for (int i = 0; i < n; ++i) err[i] = sp[i] - syn[i];
    Weight(w1, w2, err, werr, n, e->errMem, e->wMem);
  }
  FinishFrame(&e->dec, qlsf);
  std::memcpy(e->prevLsf, lsf, sizeof lsf);
  JoinParams(sh, envelope, sub, params);
}

}  // namespace

Encoder* CreateEncoder(int mode, const Tables* tables, const EncoderObserver* observer) noexcept {
  const ModeLayout* layout = LayoutForMode(mode);
  if (!layout) return nullptr;
  auto* e = AllocObject<Encoder>();
  if (!e) return nullptr;
  e->layout = layout;
  e->shape = ShapeForMode(mode);
  e->tables = tables;
  if (observer) {
    e->observer = *observer;
    e->observed = true;
  }
  InitDecoder(&e->dec, mode, tables);
  const int frame = e->shape->subframes * e->shape->subframeLength;
  e->window = std::min(kMaxWindow, e->shape->wide ? 2 * frame : frame + 96);
  const double rate = layout->sampleRate;
  for (int k = 0; k <= kOrder; ++k) {
    const double f = 2 * kPi * 60.0 * k / rate;
    e->lagWindow[k] = std::exp(-0.5 * f * f);
  }
  for (int i = 0; i < kOrder; ++i) e->prevLsf[i] = e->dec.prevLsf[i] / 32768.0;
  // Strong noise shaping: fewer bits go to the spectral valleys, where
  // coding noise is heard (and measured) most.
  e->weighting = Weighting{0.94, 0.5};
  return e;
}

void DestroyEncoder(Encoder* encoder) noexcept { Free(encoder); }

int PacketSamples(const Encoder* e) noexcept {
  return e->layout->framesPerPacket * e->layout->samplesPerFrame;
}
int PacketBytes(const Encoder* e) noexcept { return e->layout->packetBytes; }

void EncodePacket(Encoder* e, const std::int16_t* pcm, std::uint8_t* packet) noexcept {
  std::memset(packet, 0, static_cast<std::size_t>(e->layout->packetBytes));
  for (int f = 0; f < e->layout->framesPerPacket; ++f) {
    Word16 params[kMaxFields + 1];
    EncodeFrame(e, pcm + f * e->layout->samplesPerFrame, params);
    WriteFrameParams(*e->layout, params, f, packet);
  }
}

}  // namespace tmx::speech
