// Every clip of tests/data/codec decoded by the vector and the portable code
// alike, to the same samples on every platform, against the reference decode
// (RMS <= 0.1, peak <= 1 step; noise substitution: frame energy within 0.5 dB);
// damaged frames must not disturb the decoder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "codec/aac/cpu.h"
#include "codec/aac/decoder.h"
#include "support/test_data.h"
#include "tmxsdk.h"

namespace tmx::aac {
namespace {

std::vector<std::uint8_t> ReadClip(const std::string& name) {
  return test::ReadFileBytes(std::string(TMX_CODEC_DATA_DIR) + "/" + name);
}

// One ADTS frame: its header fields and the raw data block inside.
struct AdtsFrame {
  std::uint32_t rateIndex;
  std::uint32_t profile;  // object type - 1
  std::vector<std::uint8_t> raw;
};

std::vector<AdtsFrame> Frames(const std::string& clip) {
  std::vector<AdtsFrame> frames;
  for (const std::vector<std::uint8_t>& h : test::SplitAdts(ReadClip(clip + ".aac"))) {
    const std::size_t header = (h[1] & 1) ? 7 : 9;  // 9 with a CRC
    frames.push_back({(h[2] >> 2) & 15u, std::uint32_t(h[2] >> 6),
                      std::vector<std::uint8_t>(h.begin() + std::ptrdiff_t(header), h.end())});
  }
  return frames;
}

struct Clip {
  const char* name;
  std::uint32_t channels;
  std::uint32_t sampleRate;
  // Tools some frame must use; perceptual noise substitution is compared by energy.
  std::uint32_t tools;
  std::uint64_t digest;  // of the decode (test::PcmDigest), the same on every platform
};

const Clip kClips[] = {
    {"mono8k_16k", 1, 8000, kToolShortWindows | kToolTns, 0xbf8f11d583283a4ull},
    {"mono11k_20k", 1, 11025, kToolShortWindows, 0x3f8e6e53f79db5c4ull},
    {"mono16k_24k", 1, 16000, kToolShortWindows | kToolKbdWindow, 0xe1081457d5509ccull},
    {"stereo22k_48k", 2, 22050, kToolMidSide | kToolIntensity, 0x50433cc6211a023aull},
    {"stereo24k_32k", 2, 24000, kToolMidSide, 0xbbfd49716cc85152ull},
    {"stereo32k_64k_ms", 2, 32000, kToolMidSideAll, 0x277bdfc5e933a9d6ull},
    {"stereo32k_48k_ms_is", 2, 32000, kToolMidSideAll | kToolIntensity, 0xee26e6c1e77c834eull},
    {"stereo44k_48k_is", 2, 44100, kToolIntensity, 0xbadaae33ca31a15aull},
    {"stereo44k_128k_tr", 2, 44100, kToolShortWindows | kToolTns | kToolMidSide,
     0xeac9c199005831dbull},
    {"stereo44k_128k_loud", 2, 44100, kToolShortWindows, 0x5c0363812ba354f1ull},
    {"stereo48k_96k_click", 2, 48000, kToolShortWindows | kToolMidSide, 0x83e5e483f117c5b4ull},
    {"stereo48k_256k", 2, 48000, kToolMidSide, 0xb9f9c8f96df85775ull},
    {"mono44k_64k_pns", 1, 44100, kToolNoise, 0x2acae1238af3c327ull},
};

// The clip's samples; `tools` gets every tool some frame used.
std::vector<std::int16_t> DecodeClip(const Clip& clip, const std::vector<AdtsFrame>& frames,
                                     std::uint32_t* tools) {
  std::vector<std::int16_t> out;
  Decoder* d = nullptr;
  EXPECT_EQ(CreateDecoder(&d, frames[0].rateIndex, clip.channels), TMX_OK);
  std::vector<std::int16_t> pcm(2048);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    FrameInfo info{};
    const Status s = DecodeFrame(d, frames[i].raw.data(), std::uint32_t(frames[i].raw.size()),
                                 pcm.data(), 4096, &info);
    EXPECT_EQ(s, kOk) << "frame " << i;
    if (s != kOk) break;
    EXPECT_EQ(info.channels, clip.channels);
    EXPECT_EQ(info.sampleRate, clip.sampleRate);
    out.insert(out.end(), pcm.begin(), pcm.begin() + 1024 * info.channels);
    *tools |= info.tools;
  }
  DestroyDecoder(&d);
  return out;
}

class AacStreams : public ::testing::TestWithParam<Clip> {};

TEST_P(AacStreams, MatchTheReferenceDecode) {
  const Clip& clip = GetParam();
  const auto frames = Frames(clip.name);
  const auto bytes = ReadClip(std::string(clip.name) + ".s16");
  std::vector<std::int16_t> reference(bytes.size() / 2);
  for (std::size_t i = 0; i < reference.size(); ++i)
    reference[i] = static_cast<std::int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  ASSERT_GT(frames.size(), 10u);
  EXPECT_EQ(frames[0].profile, 1u);  // AAC-LC
  std::uint32_t tools = 0;
  UsePortableCode(true);
  const std::vector<std::int16_t> portable = DecodeClip(clip, frames, &tools);
  UsePortableCode(false);
  const std::vector<std::int16_t> got = DecodeClip(clip, frames, &tools);
  ASSERT_EQ(got.size(), reference.size());
  EXPECT_EQ(portable, got);
  // Every machine decodes to the same samples, whatever its byte order, word size or vector code.
  EXPECT_EQ(test::PcmDigest(got), clip.digest) << std::hex << "0x" << test::PcmDigest(got);
  EXPECT_EQ(tools & clip.tools, clip.tools) << "tools seen " << tools;  // what the clip is for

  if (!(clip.tools & kToolNoise)) {
    double sum = 0;
    int maxAbs = 0;
    for (std::size_t i = 0; i < reference.size(); ++i) {
      const int e = got[i] - reference[i];
      sum += double(e) * e;
      maxAbs = std::max(maxAbs, std::abs(e));
    }
    EXPECT_LE(std::sqrt(sum / double(reference.size())), 0.1);
    EXPECT_LE(maxAbs, 1);
    return;
  }
  // Noise differs sample by sample; its energy must not.
  const std::size_t frameSamples = 1024 * clip.channels;
  int compared = 0;
  for (std::size_t start = 0; start + frameSamples <= reference.size(); start += frameSamples) {
    double a = 0, b = 0;
    for (std::size_t i = start; i < start + frameSamples; ++i) {
      a += double(got[i]) * got[i];
      b += double(reference[i]) * reference[i];
    }
    if (b < 100.0 * frameSamples) continue;  // near silence
    ++compared;
    EXPECT_NEAR(10 * std::log10(a / b), 0.0, 0.5) << "frame " << start / frameSamples;
  }
  EXPECT_GT(compared, 10);
}

INSTANTIATE_TEST_SUITE_P(Clips, AacStreams, ::testing::ValuesIn(kClips),
                         [](const ::testing::TestParamInfo<Clip>& info) {
                           return std::string(info.param.name);
                         });

// A damaged copy of a frame: random bytes, flipped bits or a cut.
std::vector<std::uint8_t> Damage(const std::vector<std::uint8_t>& frame, std::mt19937& rng) {
  std::vector<std::uint8_t> out;
  switch (rng() % 4) {
    case 0:
      out.resize(rng() % 1700);
      for (auto& b : out) b = static_cast<std::uint8_t>(rng());
      break;
    case 3:
      out.assign(frame.begin(), frame.begin() + static_cast<long>(rng() % (frame.size() + 1)));
      break;
    default: {
      out = frame;
      const int flips = 1 + static_cast<int>(rng() % 8);
      for (int i = 0; i < flips && !out.empty(); ++i)
        out[rng() % out.size()] ^= static_cast<std::uint8_t>(1u << (rng() % 8));
    }
  }
  return out;
}

// The frame sits alone in a block of its own size, so any read past it is caught.
std::vector<std::int16_t> DecodeOne(Decoder* d, const std::vector<std::uint8_t>& frame,
                                    Status* status) {
  std::vector<std::int16_t> pcm(2048, 0);
  *status = DecodeFrame(d, frame.empty() ? nullptr : frame.data(),
                        static_cast<std::uint32_t>(frame.size()), pcm.data(), 4096, nullptr);
  return pcm;
}

TEST(AacRobustness, DamagedFramesLeaveTheDecoderUsable) {
  for (const char* name : {"stereo44k_128k_tr", "mono16k_24k", "stereo32k_48k_ms_is"}) {
    SCOPED_TRACE(name);
    const auto frames = Frames(name);
    ASSERT_FALSE(frames.empty());
    Decoder* clean = nullptr;
    Decoder* damaged = nullptr;
    ASSERT_EQ(CreateDecoder(&clean, frames[0].rateIndex, 0), TMX_OK);
    ASSERT_EQ(CreateDecoder(&damaged, frames[0].rateIndex, 0), TMX_OK);
    std::mt19937 rng(20241123);
    int refused = 0;
    for (int i = 0; i < 600; ++i) {
      const auto& frame = frames[static_cast<std::size_t>(i) % frames.size()].raw;
      Status bad, a, b;
      DecodeOne(damaged, Damage(frame, rng), &bad);
      if (bad != kOk) ++refused;
      const auto want = DecodeOne(clean, frame, &a);
      const auto got = DecodeOne(damaged, frame, &b);
      ASSERT_EQ(a, kOk);
      ASSERT_EQ(b, kOk) << "valid frame refused after damage, iteration " << i;
      // A refused frame changes nothing: the next good frame decodes exactly.
      if (bad != kOk) {
        ASSERT_EQ(got, want) << "iteration " << i << " status " << bad;
      }
    }
    EXPECT_GT(refused, 100);
    // A reset forgets the past: one frame more decoded by one decoder makes no
    // difference.
    Status a, b;
    DecodeOne(damaged, frames[5].raw, &a);
    ASSERT_EQ(ResetDecoder(clean), TMX_OK);
    ASSERT_EQ(ResetDecoder(damaged), TMX_OK);
    EXPECT_EQ(DecodeOne(damaged, frames[9].raw, &a), DecodeOne(clean, frames[9].raw, &b));
    EXPECT_EQ(a, kOk);
    DestroyDecoder(&clean);
    DestroyDecoder(&damaged);
  }
}

}  // namespace
}  // namespace tmx::aac
