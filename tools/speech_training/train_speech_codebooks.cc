// Trains the speech codec's quantiser tables and writes speech_tables.cc.
//
//   train_speech_codebooks TRAIN8K.s16 TRAIN16K.s16 OUT.cc
//
// The inputs are signed 16-bit mono speech at 8000 and 16000 Hz (see
// make_speech.sh). The training runs the codec's own encoder:
//   1. the LSFs of every frame give the mean, the prediction weight (wide
//      band), the first stages and the split second stages (k-means);
//   2. with those in place, the energies of the ideal fixed-codebook gains
//      give the mean log energy and the four predictor weights (least
//      squares);
//   3. with the predictor in place, the gain error terms of every subframe
//      give the joint gain codebook (k-means on the actual weighted error),
//      collected and trained twice.
// Everything is deterministic: the same speech gives the same tables.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "codec/speech/decoder.h"
#include "codec/speech/encoder.h"
#include "codec/speech/layout.h"
#include "codec/speech/tables.h"

namespace {

using tmx::Word16;
using tmx::speech::kOrder;
using Vec = std::vector<double>;

std::vector<std::int16_t> ReadPcm(const char* path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
  std::vector<std::int16_t> pcm(bytes.size() / 2);
  for (std::size_t i = 0; i < pcm.size(); ++i)
    pcm[i] = static_cast<std::int16_t>(std::uint8_t(bytes[2 * i]) | (bytes[2 * i + 1] << 8));
  return pcm;
}

// Deterministic xorshift for k-means seeding.
struct Rng {
  std::uint64_t s = 0x9E3779B97F4A7C15ull;
  std::uint64_t Next() {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
  }
};

// Plain k-means (squared distance) of `data` (rows of `dim`), k centroids.
std::vector<Vec> KMeans(const std::vector<Vec>& data, int k, int dim, int iterations = 25) {
  Rng rng;
  std::vector<Vec> c(static_cast<std::size_t>(k), Vec(static_cast<std::size_t>(dim), 0));
  for (int j = 0; j < k; ++j) c[j] = data[rng.Next() % data.size()];
  std::vector<int> owner(data.size());
  for (int it = 0; it < iterations; ++it) {
    std::vector<Vec> sum(static_cast<std::size_t>(k), Vec(static_cast<std::size_t>(dim), 0));
    std::vector<int> count(static_cast<std::size_t>(k), 0);
    std::vector<double> dist(data.size());
    for (std::size_t i = 0; i < data.size(); ++i) {
      double best = 1e300;
      int bj = 0;
      for (int j = 0; j < k; ++j) {
        double d = 0;
        for (int t = 0; t < dim; ++t) d += (data[i][t] - c[j][t]) * (data[i][t] - c[j][t]);
        if (d < best) best = d, bj = j;
      }
      owner[i] = bj;
      dist[i] = best;
      ++count[bj];
      for (int t = 0; t < dim; ++t) sum[bj][t] += data[i][t];
    }
    for (int j = 0; j < k; ++j) {
      if (count[j] == 0) {  // an empty cell takes the worst-served vector
        const auto far = std::max_element(dist.begin(), dist.end()) - dist.begin();
        c[j] = data[far];
        dist[far] = 0;
        continue;
      }
      for (int t = 0; t < dim; ++t) c[j][t] = sum[j][t] / count[j];
    }
  }
  return c;
}

int Nearest(const std::vector<Vec>& c, const double* v, int start, int dim) {
  double best = 1e300;
  int bj = 0;
  for (std::size_t j = 0; j < c.size(); ++j) {
    double d = 0;
    for (int t = 0; t < dim; ++t) d += (v[start + t] - c[j][t]) * (v[start + t] - c[j][t]);
    if (d < best) best = d, bj = static_cast<int>(j);
  }
  return bj;
}

Word16 ToWord(double v) {
  return static_cast<Word16>(std::lround(std::clamp(v, -32768.0, 32767.0)));
}

// A quantiser's trained tables, owned here and viewed through the codec's
// LsfQuantizer and GainQuantizer records.
struct LsfTables {
  std::vector<Word16> mean, stage1[2], split[tmx::speech::kLsfSplits];
  Word16 prediction = 0;
  int stage1Size = 0;
  int splitSize[tmx::speech::kLsfSplits] = {};
};
struct GainTables {
  std::vector<Word16> pitchGain, logGamma;
  Word16 meanEnergy = 0;
  Word16 predictor[4] = {};
};

constexpr int kSplitStart[4] = {0, 3, 6, 8};
constexpr int kSplitDim[4] = {3, 3, 2, 2};

tmx::speech::LsfQuantizer View(const LsfTables& t) {
  tmx::speech::LsfQuantizer q{};
  q.stage1Size = t.stage1Size;
  q.mean = t.mean.data();
  q.stage1[0] = t.stage1[0].data();
  q.stage1[1] = t.stage1[1].empty() ? t.stage1[0].data() : t.stage1[1].data();
  q.prediction = t.prediction;
  for (int s = 0; s < 4; ++s) {
    q.splitStart[s] = kSplitStart[s];
    q.splitDim[s] = kSplitDim[s];
    q.splitSize[s] = t.splitSize[s];
    q.split[s] = t.split[s].data();
  }
  return q;
}
tmx::speech::GainQuantizer View(const GainTables& t) {
  tmx::speech::GainQuantizer q{};
  q.size = static_cast<int>(t.pitchGain.size());
  q.pitchGain = t.pitchGain.data();
  q.logGamma = t.logGamma.data();
  q.meanEnergy = t.meanEnergy;
  for (int k = 0; k < 4; ++k) q.predictor[k] = t.predictor[k];
  return q;
}

// Starting gains: a grid of pitch gains times a grid of corrections.
GainTables StartGains(int size) {
  GainTables g;
  const int pitch = size == 128 ? 8 : 16, corr = size / pitch;
  for (int i = 0; i < size; ++i) {
    g.pitchGain.push_back(ToWord(16384 * 1.2 * (i % pitch) / (pitch - 1)));
    g.logGamma.push_back(ToWord(1024 * (-3 + 5.0 * (i / pitch) / (corr - 1))));
  }
  g.meanEnergy = ToWord(1024 * 16.0);
  return g;
}

struct Collected {
  std::vector<Vec> lsf;
  std::vector<tmx::speech::GainTerms> gains;
};

Collected RunEncoder(int mode, const std::vector<std::int16_t>& pcm,
                     const tmx::speech::Tables& tables) {
  Collected c;
  tmx::speech::EncoderObserver obs{};
  obs.context = &c;
  obs.lsf = [](void* ctx, const double* lsf) {
    static_cast<Collected*>(ctx)->lsf.emplace_back(lsf, lsf + kOrder);
  };
  obs.gains = [](void* ctx, const tmx::speech::GainTerms& t) {
    static_cast<Collected*>(ctx)->gains.push_back(t);
  };
  tmx::speech::Encoder* e = tmx::speech::CreateEncoder(mode, &tables, &obs);
  const int n = tmx::speech::PacketSamples(e);
  std::uint8_t packet[64];
  for (std::size_t i = 0; i + static_cast<std::size_t>(n) <= pcm.size(); i += n)
    tmx::speech::EncodePacket(e, pcm.data() + i, packet);
  tmx::speech::DestroyEncoder(e);
  return c;
}

LsfTables TrainLsf(const std::vector<Vec>& frames, bool wide) {
  LsfTables t;
  const std::size_t n = frames.size();
  // Q15 fractions of the Nyquist frequency.
  std::vector<Vec> lsf(n, Vec(kOrder));
  for (std::size_t i = 0; i < n; ++i)
    for (int d = 0; d < kOrder; ++d) lsf[i][d] = frames[i][d] * 32768;
  Vec mean(kOrder, 0);
  for (const Vec& v : lsf)
    for (int d = 0; d < kOrder; ++d) mean[d] += v[d] / n;
  for (double m : mean) t.mean.push_back(ToWord(m));

  t.stage1Size = wide ? 128 : 64;
  std::vector<Vec> plain(n, Vec(kOrder));
  for (std::size_t i = 0; i < n; ++i)
    for (int d = 0; d < kOrder; ++d) plain[i][d] = lsf[i][d] - t.mean[d];
  std::vector<Vec> residual;  // after the first stage, per frame
  const std::vector<Vec> s1 = KMeans(plain, t.stage1Size, kOrder);
  for (const Vec& c : s1)
    for (double v : c) t.stage1[0].push_back(ToWord(v));

  std::vector<Vec> predicted;
  std::vector<Vec> s1p;
  if (wide) {
    // Weight of the previous frame's deviation, by least squares.
    double num = 0, den = 0;
    for (std::size_t i = 1; i < n; ++i)
      for (int d = 0; d < kOrder; ++d)
        num += plain[i][d] * plain[i - 1][d], den += plain[i - 1][d] * plain[i - 1][d];
    const double rho = std::clamp(den > 0 ? num / den : 0.0, 0.0, 0.95);
    t.prediction = ToWord(rho * 32768);
    predicted.assign(n, Vec(kOrder, 0));
    for (std::size_t i = 0; i < n; ++i)
      for (int d = 0; d < kOrder; ++d)
        predicted[i][d] = plain[i][d] - (i ? t.prediction / 32768.0 * plain[i - 1][d] : 0);
    s1p = KMeans(predicted, t.stage1Size, kOrder);
    for (const Vec& c : s1p)
      for (double v : c) t.stage1[1].push_back(ToWord(v));
  }
  for (std::size_t i = 0; i < n; ++i) {
    Vec r(kOrder);
    const int j = Nearest(s1, plain[i].data(), 0, kOrder);
    double e0 = 0;
    for (int d = 0; d < kOrder; ++d)
      r[d] = plain[i][d] - t.stage1[0][j * kOrder + d], e0 += r[d] * r[d];
    if (wide) {
      const int jp = Nearest(s1p, predicted[i].data(), 0, kOrder);
      Vec rp(kOrder);
      double e1 = 0;
      for (int d = 0; d < kOrder; ++d)
        rp[d] = predicted[i][d] - t.stage1[1][jp * kOrder + d], e1 += rp[d] * rp[d];
      if (e1 < e0) r = rp;
    }
    residual.push_back(r);
  }
  const int sizes[2][4] = {{128, 128, 128, 32}, {256, 128, 128, 128}};
  for (int s = 0; s < 4; ++s) {
    t.splitSize[s] = sizes[wide][s];
    std::vector<Vec> part;
    for (const Vec& r : residual)
      part.emplace_back(r.begin() + kSplitStart[s], r.begin() + kSplitStart[s] + kSplitDim[s]);
    for (const Vec& c : KMeans(part, t.splitSize[s], kSplitDim[s]))
      for (double v : c) t.split[s].push_back(ToWord(v));
  }
  return t;
}

// The ideal gains of a subframe (least squares), false for silence.
bool IdealGains(const tmx::speech::GainTerms& t, double* gp, double* gc) {
  const double det = t.yy * t.zz - t.yz * t.yz;
  if (t.xx < 1e3 || det <= 1e-9 * t.yy * t.zz || t.zz <= 0) return false;
  *gp = (t.xy * t.zz - t.xz * t.yz) / det;
  *gc = (t.xz * t.yy - t.xy * t.yz) / det;
  if (*gp < 0 || *gp > 1.2) {  // out of range: fixed gain alone
    *gp = std::clamp(*gp, 0.0, 1.2);
    *gc = (t.xz - *gp * t.yz) / t.zz;
  }
  return *gc > 0;
}

// Mean log energy and predictor weights from the ideal fixed-gain energies.
void TrainPredictor(const std::vector<tmx::speech::GainTerms>& terms, GainTables* g) {
  std::vector<double> e;
  for (const auto& t : terms) {
    double gp, gc;
    if (IdealGains(t, &gp, &gc))
      e.push_back(2 * std::log2(gc) + t.logCodeEnergy);
    else
      e.push_back(e.empty() ? 10.0 : e.back() - 1);  // silence: decaying energy
  }
  double mean = 0;
  for (double v : e) mean += v / e.size();
  // Normal equations of (e[n] - mean) on e[n-1..n-4] - mean.
  double a[4][5] = {};
  for (std::size_t n = 4; n < e.size(); ++n) {
    double x[4];
    for (int k = 0; k < 4; ++k) x[k] = e[n - 1 - k] - mean;
    for (int i = 0; i < 4; ++i) {
      for (int j = 0; j < 4; ++j) a[i][j] += x[i] * x[j];
      a[i][4] += x[i] * (e[n] - mean);
    }
  }
  for (int i = 0; i < 4; ++i) {  // Gaussian elimination
    for (int r = i + 1; r < 4; ++r) {
      const double f = a[r][i] / a[i][i];
      for (int c = i; c < 5; ++c) a[r][c] -= f * a[i][c];
    }
  }
  double b[4];
  for (int i = 3; i >= 0; --i) {
    double s = a[i][4];
    for (int j = i + 1; j < 4; ++j) s -= a[i][j] * b[j];
    b[i] = s / a[i][i];
  }
  double sum = 0;
  for (double v : b) sum += std::fabs(v);
  const double scale = sum > 0.9 ? 0.9 / sum : 1;
  g->meanEnergy = ToWord(mean * 1024);
  for (int k = 0; k < 4; ++k) g->predictor[k] = ToWord(b[k] * scale * 32768);
  std::printf("  gain predictor: mean %.2f, weights %.3f %.3f %.3f %.3f\n", mean, b[0] * scale,
              b[1] * scale, b[2] * scale, b[3] * scale);
}

// Joint gain codebook: k-means where a subframe's distance to an entry is
// its gain error relative to its target energy, and a cell's new entry is
// the (gp, correction) that minimises the summed error of its subframes.
void TrainGainCodebook(const std::vector<tmx::speech::GainTerms>& terms, GainTables* g) {
  struct Sample {
    double xy, xz, yy, yz, zz;  // normalised by xx, with gc = correction x predicted
  };
  std::vector<Sample> s;
  for (const auto& t : terms) {
    double gp, gc;
    if (!IdealGains(t, &gp, &gc)) continue;
    const double p = t.predictedGain, w = 1 / t.xx;
    s.push_back({t.xy * w, t.xz * p * w, t.yy * w, t.yz * p * w, t.zz * p * p * w});
  }
  const int k = static_cast<int>(g->pitchGain.size());
  std::vector<double> gp(k), gamma(k);
  for (int j = 0; j < k; ++j)
    gp[j] = g->pitchGain[j] / 16384.0, gamma[j] = std::exp2(g->logGamma[j] / 1024.0);
  for (int it = 0; it < 30; ++it) {
    std::vector<double> a11(k), a12(k), a22(k), b1(k), b2(k);
    std::vector<int> count(k);
    double total = 0;
    for (const Sample& x : s) {
      double best = 1e300;
      int bj = 0;
      for (int j = 0; j < k; ++j) {
        const double e = -2 * gp[j] * x.xy - 2 * gamma[j] * x.xz + gp[j] * gp[j] * x.yy +
                         2 * gp[j] * gamma[j] * x.yz + gamma[j] * gamma[j] * x.zz;
        if (e < best) best = e, bj = j;
      }
      total += 1 + best;
      a11[bj] += x.yy, a12[bj] += x.yz, a22[bj] += x.zz, b1[bj] += x.xy, b2[bj] += x.xz;
      ++count[bj];
    }
    for (int j = 0; j < k; ++j) {
      const double det = a11[j] * a22[j] - a12[j] * a12[j];
      if (count[j] == 0 || det <= 0) continue;
      gp[j] = std::clamp((b1[j] * a22[j] - b2[j] * a12[j]) / det, 0.0, 1.25);
      gamma[j] = std::clamp((b2[j] * a11[j] - b1[j] * a12[j]) / det, 1.0 / 64, 64.0);
    }
    if (it % 10 == 9) std::printf("  gain codebook %d: relative error %.4f\n", k, total / s.size());
  }
  for (int j = 0; j < k; ++j) {
    g->pitchGain[j] = ToWord(gp[j] * 16384);
    g->logGamma[j] = ToWord(std::log2(gamma[j]) * 1024);
  }
}

// Segmental SNR (20 ms segments, silent ones left out, each clamped to
// -10..35 dB) of encoding and decoding with the given tables.
double SegmentalSnr(int mode, const std::vector<std::int16_t>& pcm,
                    const tmx::speech::Tables& tables) {
  tmx::speech::Encoder* e = tmx::speech::CreateEncoder(mode, &tables);
  tmx::speech::DecoderState d;
  tmx::speech::InitDecoder(&d, mode, &tables);
  const tmx::speech::ModeLayout& layout = *tmx::speech::LayoutForMode(mode);
  const int n = tmx::speech::PacketSamples(e);
  std::vector<std::int16_t> out;
  std::uint8_t packet[64];
  for (std::size_t i = 0; i + static_cast<std::size_t>(n) <= pcm.size(); i += n) {
    tmx::speech::EncodePacket(e, pcm.data() + i, packet);
    Word16 params[tmx::speech::kMaxFields + 1];
    Word16 frame[tmx::speech::kMaxFrame];
    tmx::speech::ReadFrameParams(layout, packet, 0, params);
    tmx::speech::DecodeFrame(&d, params, frame);
    out.insert(out.end(), frame, frame + n);
  }
  tmx::speech::DestroyEncoder(e);
  const int seg = layout.sampleRate / 50;
  double sum = 0;
  int count = 0;
  for (std::size_t i = 0; i + static_cast<std::size_t>(seg) <= out.size(); i += seg) {
    double s = 0, err = 0;
    for (int k = 0; k < seg; ++k) {
      const double a = pcm[i + k], b = out[i + k];
      s += a * a;
      err += (a - b) * (a - b);
    }
    if (s < seg * 100.0) continue;
    sum += std::clamp(10 * std::log10(s / std::max(err, 1e-9)), -10.0, 35.0);
    ++count;
  }
  return count ? sum / count : 0;
}

void WriteArray(std::FILE* f, const char* name, const std::vector<Word16>& v, int perLine) {
  std::fprintf(f, "constexpr Word16 %s[%zu] = {", name, v.size());
  for (std::size_t i = 0; i < v.size(); ++i)
    std::fprintf(f, "%s%d,", i % perLine ? " " : "\n    ", v[i]);
  std::fprintf(f, "\n};\n");
}

void WriteLsf(std::FILE* f, const char* prefix, const LsfTables& t) {
  std::string p = std::string("k") + prefix;
  WriteArray(f, (p + "Mean").c_str(), t.mean, 10);
  WriteArray(f, (p + "Stage1").c_str(), t.stage1[0], 10);
  if (!t.stage1[1].empty()) WriteArray(f, (p + "Stage1Predicted").c_str(), t.stage1[1], 10);
  for (int s = 0; s < 4; ++s)
    WriteArray(f, (p + "Split" + char('A' + s)).c_str(), t.split[s], kSplitDim[s] * 4);
}

void WriteLsfRecord(std::FILE* f, const char* prefix, const LsfTables& t) {
  std::fprintf(
      f,
      "    {%d, k%sMean, {k%sStage1, k%s%s}, %d, {0, 3, 6, 8}, {3, 3, 2, 2}, {%d, %d, %d, %d},\n"
      "     {k%sSplitA, k%sSplitB, k%sSplitC, k%sSplitD}},\n",
      t.stage1Size, prefix, prefix, prefix, t.stage1[1].empty() ? "Stage1" : "Stage1Predicted",
      t.prediction, t.splitSize[0], t.splitSize[1], t.splitSize[2], t.splitSize[3], prefix, prefix,
      prefix, prefix);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s TRAIN8K.s16 TRAIN16K.s16 OUT.cc\n", argv[0]);
    return 2;
  }
  const std::vector<std::int16_t> narrow = ReadPcm(argv[1]), wide = ReadPcm(argv[2]);
  if (narrow.empty() || wide.empty()) {
    std::fprintf(stderr, "no speech read\n");
    return 1;
  }
  LsfTables lsf[2];
  GainTables gain[2] = {StartGains(128), StartGains(512)};
  const std::vector<std::int16_t>* pcm[2] = {&narrow, &wide};
  const int mode[2] = {3, 4};
  auto tables = [&] {
    tmx::speech::Tables t{};
    t.narrowLsf = View(lsf[0]);
    t.wideLsf = View(lsf[1]);
    t.narrowGain = View(gain[0]);
    t.wideGain = View(gain[1]);
    return t;
  };
  // The LSF analysis does not depend on the tables: a first run with
  // placeholder LSF tables (zero stages around an even spread) collects it.
  for (int w = 0; w < 2; ++w) {
    LsfTables& t = lsf[w];
    t.stage1Size = w ? 128 : 64;
    for (int d = 0; d < kOrder; ++d) t.mean.push_back(ToWord(32768.0 * (d + 1) / 11));
    t.stage1[0].assign(static_cast<std::size_t>(t.stage1Size) * kOrder, 0);
    const int sizes[2][4] = {{128, 128, 128, 32}, {256, 128, 128, 128}};
    for (int s = 0; s < 4; ++s) {
      t.splitSize[s] = sizes[w][s];
      t.split[s].assign(static_cast<std::size_t>(t.splitSize[s]) * kSplitDim[s], 0);
    }
  }
  for (int w = 0; w < 2; ++w) {
    std::printf("%s band: %zu samples\n", w ? "wide" : "narrow", pcm[w]->size());
    const tmx::speech::Tables t0 = tables();
    const Collected first = RunEncoder(mode[w], *pcm[w], t0);
    lsf[w] = TrainLsf(first.lsf, w == 1);
    std::printf("  LSF: %zu frames, prediction %.3f\n", first.lsf.size(),
                lsf[w].prediction / 32768.0);
    const tmx::speech::Tables t1 = tables();
    TrainPredictor(RunEncoder(mode[w], *pcm[w], t1).gains, &gain[w]);
    for (int round = 0; round < 2; ++round) {
      const tmx::speech::Tables t2 = tables();
      TrainGainCodebook(RunEncoder(mode[w], *pcm[w], t2).gains, &gain[w]);
    }
    std::printf("  segmental SNR on the training speech: %.2f dB\n",
                SegmentalSnr(mode[w], *pcm[w], tables()));
  }

  std::FILE* f = std::fopen(argv[3], "w");
  if (!f) {
    std::fprintf(stderr, "cannot write %s\n", argv[3]);
    return 1;
  }
  std::fprintf(f,
               "// Quantiser tables of the speech codec, trained on synthesised speech by\n"
               "// tools/speech_training (see its README). Generated: do not edit.\n"
               "#include \"codec/speech/tables.h\"\n\nnamespace tmx::speech {\nnamespace {\n\n");
  WriteLsf(f, "Narrow", lsf[0]);
  WriteLsf(f, "Wide", lsf[1]);
  const char* names[2] = {"Narrow", "Wide"};
  for (int w = 0; w < 2; ++w) {
    WriteArray(f, (std::string("k") + names[w] + "PitchGain").c_str(), gain[w].pitchGain, 16);
    WriteArray(f, (std::string("k") + names[w] + "LogGamma").c_str(), gain[w].logGamma, 16);
  }
  std::fprintf(f, "\n}  // namespace\n\nconst Tables kTrainedTables = {\n");
  WriteLsfRecord(f, "Narrow", lsf[0]);
  WriteLsfRecord(f, "Wide", lsf[1]);
  for (int w = 0; w < 2; ++w)
    std::fprintf(f, "    {%zu, k%sPitchGain, k%sLogGamma, %d, {%d, %d, %d, %d}},\n",
                 gain[w].pitchGain.size(), names[w], names[w], gain[w].meanEnergy,
                 gain[w].predictor[0], gain[w].predictor[1], gain[w].predictor[2],
                 gain[w].predictor[3]);
  std::fprintf(f, "};\n\n}  // namespace tmx::speech\n");
  std::fclose(f);
  return 0;
}
