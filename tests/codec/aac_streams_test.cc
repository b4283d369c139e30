// Real streams: every clip in tests/data/codec decoded frame by frame against
// the reference decode (RMS at most 0.1, peak at most 1 sample step, aligned
// at sample 0; per-frame energy within 0.5 dB for noise substitution), and
// damaged frames that must neither crash nor disturb the decoder.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "aac_test_util.h"
#include "codec/aac/cpu.h"
#include "codec/aac/decoder.h"
#include "tmxsdk.h"

namespace tmx::aac {
namespace {

using namespace tmx::aac::testing;

struct Clip {
  const char* name;
  std::uint32_t channels;
  std::uint32_t sampleRate;
  std::uint32_t tools;  // tools some frame must use (all set together when `together`)
  bool together;
  bool noise;            // perceptual noise substitution: compared by energy
  std::uint64_t digest;  // of the decode (test::PcmDigest), the same on every platform
};

const Clip kClips[] = {
    {"mono8k_16k", 1, 8000, kToolShortWindows | kToolTns, false, false, 0xbf8f11d583283a4ull},
    {"mono11k_20k", 1, 11025, kToolShortWindows, false, false, 0x3f8e6e53f79db5c4ull},
    {"mono16k_24k", 1, 16000, kToolShortWindows | kToolKbdWindow, false, false,
     0xe1081457d5509ccull},
    {"stereo22k_48k", 2, 22050, kToolMidSide | kToolIntensity, true, false, 0x50433cc6211a023aull},
    {"stereo24k_32k", 2, 24000, kToolMidSide, false, false, 0xbbfd49716cc85152ull},
    {"stereo32k_64k_ms", 2, 32000, kToolMidSideAll, false, false, 0x277bdfc5e933a9d6ull},
    {"stereo32k_48k_ms_is", 2, 32000, kToolMidSideAll | kToolIntensity, true, false,
     0xee26e6c1e77c834eull},
    {"stereo44k_48k_is", 2, 44100, kToolIntensity, false, false, 0xbadaae33ca31a15aull},
    {"stereo44k_128k_tr", 2, 44100, kToolShortWindows | kToolTns | kToolMidSide, false, false,
     0xeac9c199005831dbull},
    {"stereo44k_128k_loud", 2, 44100, kToolShortWindows, false, false, 0x5c0363812ba354f1ull},
    {"stereo48k_96k_click", 2, 48000, kToolShortWindows | kToolMidSide, false, false,
     0x83e5e483f117c5b4ull},
    {"stereo48k_256k", 2, 48000, kToolMidSide, false, false, 0xb9f9c8f96df85775ull},
    {"mono44k_64k_pns", 1, 44100, kToolNoise, false, true, 0x2acae1238af3c327ull},
};

struct Decoded {
  std::vector<std::int16_t> pcm;
  std::uint32_t anyTools = 0;
  bool together = false;
};

Decoded DecodeClip(const Clip& clip, const std::vector<AdtsFrame>& frames) {
  Decoded out;
  Decoder* d = nullptr;
  EXPECT_EQ(CreateDecoder(&d, frames[0].rateIndex, frames[0].channelConfig), TMX_OK);
  std::vector<std::int16_t> pcm(2048);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const AdtsFrame& f = frames[i];
    FrameInfo info{};
    const Status s = DecodeFrame(d, f.raw.data(), static_cast<std::uint32_t>(f.raw.size()),
                                 pcm.data(), 4096, &info);
    EXPECT_EQ(s, kOk) << "frame " << i;
    if (s != kOk) break;
    EXPECT_EQ(info.channels, clip.channels);
    EXPECT_EQ(info.sampleRate, clip.sampleRate);
    out.pcm.insert(out.pcm.end(), pcm.begin(), pcm.begin() + 1024 * info.channels);
    out.anyTools |= info.tools;
    if ((info.tools & clip.tools) == clip.tools) out.together = true;
  }
  DestroyDecoder(&d);
  return out;
}

class AacStreams : public ::testing::TestWithParam<Clip> {};

TEST_P(AacStreams, MatchTheReferenceDecode) {
  const Clip& clip = GetParam();
  const auto frames = SplitAdts(ReadFile(DataPath(std::string(clip.name) + ".aac")));
  const auto reference = ReadPcm(DataPath(std::string(clip.name) + ".s16"));
  ASSERT_GT(frames.size(), 10u);
  EXPECT_EQ(frames[0].profile, 1u);  // AAC-LC
  const Decoded got = DecodeClip(clip, frames);
  ASSERT_EQ(got.pcm.size(), reference.size());

  // The clip exercises what it is there for.
  EXPECT_EQ(got.anyTools & clip.tools, clip.tools) << "tools seen " << got.anyTools;
  if (clip.together) {
    EXPECT_TRUE(got.together);
  }

  if (!clip.noise) {
    const Difference diff = Compare(got.pcm, reference);
    EXPECT_LE(diff.rms, 0.1);
    EXPECT_LE(diff.maxAbs, 1);
    RecordProperty("rms", std::to_string(diff.rms));
    return;
  }
  // Noise differs sample by sample; its energy must not.
  const std::size_t frameSamples = 1024 * clip.channels;
  int compared = 0;
  for (std::size_t start = 0; start + frameSamples <= reference.size(); start += frameSamples) {
    double a = 0, b = 0;
    for (std::size_t i = start; i < start + frameSamples; ++i) {
      a += double(got.pcm[i]) * got.pcm[i];
      b += double(reference[i]) * reference[i];
    }
    if (b < 100.0 * frameSamples) continue;  // near silence
    ++compared;
    EXPECT_NEAR(10 * std::log10(a / b), 0.0, 0.5) << "frame " << start / frameSamples;
  }
  EXPECT_GT(compared, 10);
}

// Every machine decodes every clip to the same samples, bit for bit: byte
// order, word size and the vector code make no difference.
TEST_P(AacStreams, DecodeIsTheSameOnEveryPlatform) {
  const Clip& clip = GetParam();
  const Decoded got =
      DecodeClip(clip, SplitAdts(ReadFile(DataPath(std::string(clip.name) + ".aac"))));
  EXPECT_EQ(tmx::test::PcmDigest(got.pcm), clip.digest)
      << std::hex << "0x" << tmx::test::PcmDigest(got.pcm) << "ull";
}

// The portable code decodes every clip exactly as the vector code does.
TEST_P(AacStreams, PortableCodeDecodesAlike) {
  const Clip& clip = GetParam();
  const auto frames = SplitAdts(ReadFile(DataPath(std::string(clip.name) + ".aac")));
  ASSERT_GT(frames.size(), 10u);
  UsePortableCode(true);
  const Decoded portable = DecodeClip(clip, frames);
  UsePortableCode(false);
  const Decoded vector = DecodeClip(clip, frames);
  EXPECT_EQ(portable.pcm, vector.pcm);
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
    case 1:
    case 2: {
      out = frame;
      const int flips = 1 + static_cast<int>(rng() % 8);
      for (int i = 0; i < flips && !out.empty(); ++i)
        out[rng() % out.size()] ^= static_cast<std::uint8_t>(1u << (rng() % 8));
      break;
    }
    default:
      out.assign(frame.begin(), frame.begin() + static_cast<long>(rng() % (frame.size() + 1)));
      break;
  }
  return out;
}

std::vector<std::int16_t> DecodeOne(Decoder* d, const std::vector<std::uint8_t>& frame,
                                    Status* status) {
  // The frame sits alone in a block of its own size, so any read past it is caught.
  std::vector<std::uint8_t> exact(frame);
  std::vector<std::int16_t> pcm(2048, 0);
  *status = DecodeFrame(d, exact.empty() ? nullptr : exact.data(),
                        static_cast<std::uint32_t>(exact.size()), pcm.data(), 4096, nullptr);
  return pcm;
}

TEST(AacRobustness, DamagedFramesLeaveTheDecoderUsable) {
  for (const char* name : {"stereo44k_128k_tr", "mono16k_24k", "stereo32k_48k_ms_is"}) {
    SCOPED_TRACE(name);
    const auto frames = SplitAdts(ReadFile(DataPath(std::string(name) + ".aac")));
    ASSERT_FALSE(frames.empty());
    Decoder* clean = nullptr;
    Decoder* damaged = nullptr;
    ASSERT_EQ(CreateDecoder(&clean, frames[0].rateIndex, 0), TMX_OK);
    ASSERT_EQ(CreateDecoder(&damaged, frames[0].rateIndex, 0), TMX_OK);
    std::mt19937 rng(20241123);
    int refused = 0;
    for (int i = 0; i < 600; ++i) {
      const auto& frame = frames[static_cast<std::size_t>(i) % frames.size()].raw;
      Status bad;
      DecodeOne(damaged, Damage(frame, rng), &bad);
      if (bad != kOk) ++refused;
      Status a, b;
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
    DestroyDecoder(&clean);
    DestroyDecoder(&damaged);
  }
}

TEST(AacRobustness, GarbageDecodesDeterministically) {
  Decoder* a = nullptr;
  Decoder* b = nullptr;
  ASSERT_EQ(CreateDecoder(&a, 3, 0), TMX_OK);
  ASSERT_EQ(CreateDecoder(&b, 3, 0), TMX_OK);
  std::mt19937 rng(99);
  int decoded = 0;
  for (int i = 0; i < 1500; ++i) {
    std::vector<std::uint8_t> frame(1 + rng() % 800);
    for (auto& x : frame) x = static_cast<std::uint8_t>(rng());
    frame[0] &= 0x3F;  // start with a channel element more often than not
    Status sa, sb;
    const auto pa = DecodeOne(a, frame, &sa);
    const auto pb = DecodeOne(b, frame, &sb);
    ASSERT_EQ(sa, sb);
    ASSERT_EQ(pa, pb);
    if (sa == kOk) ++decoded;
  }
  RecordProperty("decoded", decoded);
  DestroyDecoder(&a);
  DestroyDecoder(&b);
}

TEST(AacRobustness, ResetForgetsThePast) {
  const auto frames = SplitAdts(ReadFile(DataPath("stereo44k_128k_tr.aac")));
  ASSERT_GT(frames.size(), 20u);
  Decoder* d = nullptr;
  Decoder* fresh = nullptr;
  ASSERT_EQ(CreateDecoder(&d, frames[0].rateIndex, 0), TMX_OK);
  ASSERT_EQ(CreateDecoder(&fresh, frames[0].rateIndex, 0), TMX_OK);
  Status s;
  for (int i = 0; i < 20; ++i) DecodeOne(d, frames[i].raw, &s);
  ASSERT_EQ(ResetDecoder(d), TMX_OK);
  // After a reset, decoding from frame 10 gives what a new decoder gives.
  for (int i = 10; i < 14; ++i) {
    Status sa, sb;
    EXPECT_EQ(DecodeOne(d, frames[i].raw, &sa), DecodeOne(fresh, frames[i].raw, &sb));
    EXPECT_EQ(sa, kOk);
  }
  DestroyDecoder(&d);
  DestroyDecoder(&fresh);
}

}  // namespace
}  // namespace tmx::aac
