// The speech codec's side of the quality benchmark (bench/speech_quality.sh).
//
//   tmx_speech_quality code MODE IN.s16 OUT.s16
//       encodes and decodes signed 16-bit mono speech in mode 3 (8 kHz) or
//       4 (16 kHz), writes the decoded speech and prints the encoder's and
//       the decoder's real-time factors.
//   tmx_speech_quality compare REF.s16 TEST.s16 RATE
//       aligns TEST to REF by cross-correlation and prints the segmental SNR
//       (20 ms frames, near-silent ones left out, each clamped to -10..35 dB)
//       and the log-spectral distance (40 ms Hann windows every 20 ms,
//       near-silent ones left out).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "codec/speech/decoder.h"
#include "codec/speech/encoder.h"
#include "codec/speech/layout.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
// Frames whose mean square is 50 dB under full scale count as silent.
constexpr double kSilence = 32768.0 * 32768.0 * 1e-5;

std::vector<std::int16_t> Read(const char* path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
  std::vector<std::int16_t> pcm(bytes.size() / 2);
  std::memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
  return pcm;
}

bool Write(const char* path, const std::vector<std::int16_t>& pcm) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(pcm.data()), std::streamsize(pcm.size() * 2));
  return bool(out);
}

double Seconds(std::chrono::steady_clock::time_point a, std::chrono::steady_clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

int Code(int mode, const char* in, const char* out) {
  const std::vector<std::int16_t> pcm = Read(in);
  const tmx::speech::ModeLayout* layout = tmx::speech::LayoutForMode(mode);
  tmx::speech::Encoder* e = tmx::speech::CreateEncoder(mode);
  if (!layout || !e || pcm.empty()) {
    std::fprintf(stderr, "bad mode or input\n");
    return 1;
  }
  const auto n = static_cast<std::size_t>(tmx::speech::PacketSamples(e));
  const auto bytes = static_cast<std::size_t>(layout->packetBytes);
  std::vector<std::uint8_t> packets;
  const auto t0 = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i + n <= pcm.size(); i += n) {
    packets.resize(packets.size() + bytes);
    tmx::speech::EncodePacket(e, pcm.data() + i, packets.data() + packets.size() - bytes);
  }
  const auto t1 = std::chrono::steady_clock::now();
  tmx::speech::DestroyEncoder(e);

  std::vector<std::int16_t> decoded(packets.size() / bytes * n);
  const double audio = double(pcm.size()) / layout->sampleRate;
  double best = 1e9;
  for (int run = 0; run < 3; ++run) {  // the fastest of three decodes
    tmx::speech::DecoderState state;
    tmx::speech::InitDecoder(&state, mode);
    const auto d0 = std::chrono::steady_clock::now();
    for (std::size_t p = 0; p < packets.size() / bytes; ++p) {
      tmx::Word16 params[tmx::speech::kMaxFields + 1];
      tmx::speech::ReadFrameParams(*layout, packets.data() + p * bytes, 0, params);
      tmx::speech::DecodeFrame(&state, params, decoded.data() + p * n);
    }
    best = std::min(best, Seconds(d0, std::chrono::steady_clock::now()));
  }
  std::printf(
      "mode %d: %.1f s of speech, %.0f bit/s, encoder %.1fx real time, decoder %.0fx real time\n",
      mode, audio, bytes * 8.0 * layout->sampleRate / n, audio / Seconds(t0, t1), audio / best);
  return Write(out, decoded) ? 0 : 1;
}

// Lag of `test` against `ref` (test[i + lag] ~ ref[i]) by cross-correlation
// over a stretch of speech, within +-maxLag.
int Align(const std::vector<std::int16_t>& ref, const std::vector<std::int16_t>& test, int maxLag) {
  const std::size_t start = static_cast<std::size_t>(maxLag),
                    len = std::min<std::size_t>(ref.size() / 2, 160000);
  double best = -1e300;
  int bestLag = 0;
  for (int lag = -maxLag; lag <= maxLag; ++lag) {
    double s = 0;
    for (std::size_t i = start; i < start + len; ++i) {
      const std::ptrdiff_t j = std::ptrdiff_t(i) + lag;
      if (j >= 0 && std::size_t(j) < test.size()) s += double(ref[i]) * test[std::size_t(j)];
    }
    if (s > best) best = s, bestLag = lag;
  }
  return bestLag;
}

void Fft(std::vector<std::complex<double>>& x) {
  const std::size_t n = x.size();
  for (std::size_t i = 1, j = 0; i < n; ++i) {
    std::size_t bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(x[i], x[j]);
  }
  for (std::size_t len = 2; len <= n; len <<= 1) {
    const std::complex<double> w = std::polar(1.0, -2 * kPi / double(len));
    for (std::size_t i = 0; i < n; i += len) {
      std::complex<double> wk = 1;
      for (std::size_t k = 0; k < len / 2; ++k, wk *= w) {
        const auto u = x[i + k], v = x[i + k + len / 2] * wk;
        x[i + k] = u + v;
        x[i + k + len / 2] = u - v;
      }
    }
  }
}

int Compare(const char* refPath, const char* testPath, int rate) {
  const std::vector<std::int16_t> ref = Read(refPath), raw = Read(testPath);
  if (ref.empty() || raw.empty()) {
    std::fprintf(stderr, "empty input\n");
    return 1;
  }
  const int lag = Align(ref, raw, rate / 8);
  std::vector<std::int16_t> test(ref.size(), 0);
  for (std::size_t i = 0; i < ref.size(); ++i) {
    const std::ptrdiff_t j = std::ptrdiff_t(i) + lag;
    if (j >= 0 && std::size_t(j) < raw.size()) test[i] = raw[std::size_t(j)];
  }
  // Segmental SNR.
  const std::size_t frame = std::size_t(rate / 50);
  double snr = 0;
  int frames = 0;
  for (std::size_t i = 0; i + frame <= ref.size(); i += frame) {
    double s = 0, e = 0;
    for (std::size_t k = i; k < i + frame; ++k) {
      s += double(ref[k]) * ref[k];
      e += (double(ref[k]) - test[k]) * (double(ref[k]) - test[k]);
    }
    if (s < frame * kSilence) continue;
    snr += std::clamp(10 * std::log10(s / std::max(e, 1.0)), -10.0, 35.0);
    ++frames;
  }
  // Log-spectral distance.
  const std::size_t win = std::size_t(rate / 25), hop = std::size_t(rate / 50);
  std::size_t fft = 1;
  while (fft < win) fft <<= 1;
  std::vector<double> hann(win);
  for (std::size_t i = 0; i < win; ++i)
    hann[i] = 0.5 - 0.5 * std::cos(2 * kPi * double(i) / double(win));
  double lsd = 0;
  int windows = 0;
  const double floor = 1e-2 * double(win);  // about -100 dBFS per bin
  for (std::size_t i = 0; i + win <= ref.size(); i += hop) {
    double s = 0;
    for (std::size_t k = i; k < i + win; ++k) s += double(ref[k]) * ref[k];
    if (s < win * kSilence) continue;
    std::vector<std::complex<double>> a(fft), b(fft);
    for (std::size_t k = 0; k < win; ++k) a[k] = ref[i + k] * hann[k], b[k] = test[i + k] * hann[k];
    Fft(a);
    Fft(b);
    double sum = 0;
    for (std::size_t k = 0; k <= fft / 2; ++k) {
      const double d = 10 * std::log10((std::norm(a[k]) + floor) / (std::norm(b[k]) + floor));
      sum += d * d;
    }
    lsd += std::sqrt(sum / double(fft / 2 + 1));
    ++windows;
  }
  std::printf("lag %d, segmental SNR %.2f dB, log-spectral distance %.2f dB\n", lag,
              frames ? snr / frames : 0.0, windows ? lsd / windows : 0.0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == "code")
    return Code(std::atoi(argv[2]), argv[3], argv[4]);
  if (argc == 5 && std::string(argv[1]) == "compare")
    return Compare(argv[2], argv[3], std::atoi(argv[4]));
  std::fprintf(stderr,
               "usage: %s code MODE IN.s16 OUT.s16\n"
               "       %s compare REF.s16 TEST.s16 RATE\n",
               argv[0], argv[0]);
  return 2;
}
