#include "speech_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "codec/speech/decoder.h"
#include "codec/speech/encoder.h"
#include "codec/speech/layout.h"
#include "legacy/legacy_files.h"
#include "support/test_data.h"

namespace tmx::speech::test {

std::vector<std::int16_t> Clip(int mode, std::size_t count) {
  const auto bytes = ::tmx::test::ReadFileBytes(std::string(TMX_SPEECH_DATA_DIR) +
                                                (mode == 4 ? "/speech16k.s16" : "/speech8k.s16"));
  std::vector<std::int16_t> pcm(count ? count : bytes.size() / 2);
  for (std::size_t i = 0; i < pcm.size(); ++i)
    pcm[i] = static_cast<std::int16_t>(bytes.at(2 * i) | (bytes.at(2 * i + 1) << 8));
  return pcm;
}

std::vector<std::uint8_t> Encode(int mode, const std::vector<std::int16_t>& pcm) {
  Encoder* e = CreateEncoder(mode);
  const auto n = static_cast<std::size_t>(PacketSamples(e));
  const auto bytes = static_cast<std::size_t>(PacketBytes(e));
  std::vector<std::uint8_t> out;
  for (std::size_t i = 0; i + n <= pcm.size(); i += n) {
    out.resize(out.size() + bytes);
    EncodePacket(e, pcm.data() + i, out.data() + out.size() - bytes);
  }
  DestroyEncoder(e);
  return out;
}

std::vector<std::int16_t> DecodeAll(int mode, const std::vector<std::uint8_t>& packets) {
  const ModeLayout& layout = *LayoutForMode(mode);
  DecoderState state;
  InitDecoder(&state, mode);
  std::vector<std::int16_t> out;
  for (std::size_t p = 0; p + layout.packetBytes <= packets.size(); p += layout.packetBytes)
    for (int f = 0; f < layout.framesPerPacket; ++f) {
      Word16 params[kMaxFields + 1], pcm[kMaxFrame];
      ReadFrameParams(layout, packets.data() + p, f, params);
      DecodeFrame(&state, params, pcm);
      out.insert(out.end(), pcm, pcm + layout.samplesPerFrame);
    }
  return out;
}

std::vector<std::uint8_t> RandomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<std::uint8_t> v(n);
  for (auto& b : v) b = static_cast<std::uint8_t>(rng());
  return v;
}

std::vector<std::uint8_t> LegacyProgramme(int mode, const std::vector<std::uint8_t>& packets) {
  writer::LegacyProgramme programme;
  programme.codecId = mode == 3 ? writer::kLegacyCodecSpeech8 : writer::kLegacyCodecSpeech16;
  const std::size_t size = LayoutForMode(mode)->packetBytes;
  for (std::size_t i = 0; i + size <= packets.size(); i += size)
    programme.frames.emplace_back(packets.begin() + i, packets.begin() + i + size);
  return ::tmx::legacy::test::Write(programme);
}

double SegmentalSnr(const std::vector<std::int16_t>& ref, const std::vector<std::int16_t>& out,
                    int sampleRate) {
  const std::size_t seg = static_cast<std::size_t>(sampleRate / 50);
  const std::size_t len = std::min(ref.size(), out.size());
  double sum = 0;
  int count = 0;
  for (std::size_t i = 0; i + seg <= len; i += seg) {
    double s = 0, e = 0;
    for (std::size_t k = i; k < i + seg; ++k) {
      const double d = double(ref[k]) - out[k];
      s += double(ref[k]) * ref[k];
      e += d * d;
    }
    // -50 dBFS: mean square under (32768 * 10^-2.5)^2.
    if (s < seg * 107374.0) continue;
    sum += std::clamp(10 * std::log10(s / std::max(e, 1.0)), -10.0, 35.0);
    ++count;
  }
  return count ? sum / count : -100;
}

}  // namespace tmx::speech::test
