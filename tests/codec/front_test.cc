// TMXDecodePCMFrame and the AAC codec table, through open programmes.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

#include "api/file.h"
#include "codec/aac/decoder.h"
#include "codec/codec.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"
#include "support/test_data.h"
#include "util/alloc.h"
#include "writer/writer.h"

namespace tmx {
namespace {

using test::ByteVec;
using test::MemoryStream;

ByteVec Programme(const char* clip, writer::Brand brand = writer::Brand::kTmx) {
  const ByteVec adts = test::ReadTestData(clip);  // the plan only points at it
  writer::ProgrammeSpec plan;
  plan.adts = adts;
  plan.options.brand = brand;
  MemoryStream out;
  EXPECT_EQ(writer::WriteProgramme(plan, out.stream()), TMX_OK);
  return out.data();
}

class Open {
 public:
  explicit Open(const ByteVec& bytes) : m_(std::make_unique<MemoryStream>(bytes)) {
    EXPECT_EQ(TMXOpenFile(&f_, m_->stream(), nullptr), TMX_OK);
  }
  ~Open() { TMXCloseFile(f_); }
  TMXFile* f() { return f_; }
  ByteVec Next() {
    ByteVec frame(8192);
    std::uint32_t n = 0;
    EXPECT_EQ(TMXGetEncodedAudio(f_, frame.data(), std::int32_t(frame.size()), &n), TMX_OK);
    frame.resize(n);
    return frame;
  }

 private:
  std::unique_ptr<MemoryStream> m_;
  TMXFile* f_ = nullptr;
};

TEST(DecodePcm, ChecksItsArguments) {
  Open p(Programme("speech_stereo_44100.aac"));
  std::uint8_t in[4] = {};
  std::int16_t pcm[4096];
  std::uint32_t n = 0;
  EXPECT_EQ(TMXDecodePCMFrame(nullptr, nullptr, 0, nullptr, 0, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), nullptr, 4, pcm, sizeof pcm, &n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), in, 4, nullptr, sizeof pcm, &n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), in, 4, pcm, sizeof pcm, nullptr), TMX_ERR_ARGUMENT);
}

TEST(DecodePcm, OtherBrandsHaveNoDecoder) {
  Open p(Programme("speech_stereo_44100.aac", writer::Brand::kM4b));
  ByteVec frame = p.Next();
  std::int16_t pcm[4096];
  std::uint32_t n = 0;
  EXPECT_EQ(
      TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, sizeof pcm, &n),
      TMX_ERR_NO_DECODER);
}

TEST(DecodePcm, StereoFramesMatchTheDecoderItself) {
  Open p(Programme("music_stereo_44100.aac"));
  aac::Decoder* direct = nullptr;
  ASSERT_EQ(aac::CreateDecoder(&direct, 4, 0), TMX_OK);
  for (int i = 0; i < 30; ++i) {
    ByteVec frame = p.Next();
    std::int16_t pcm[4096], expected[4096];
    std::uint32_t n = 0;
    ASSERT_EQ(
        TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, sizeof pcm, &n),
        TMX_OK);
    ASSERT_EQ(n, 4096u);
    ASSERT_EQ(aac::DecodeFrame(direct, frame.data(), std::uint32_t(frame.size()), expected,
                               sizeof expected, nullptr),
              aac::kOk);
    ASSERT_EQ(0, std::memcmp(pcm, expected, n)) << "frame " << i;
  }
  aac::DestroyDecoder(&direct);
}

TEST(DecodePcm, MonoHandsOverAsManySamplesAsTheFrameHadBytes) {
  Open p(Programme("speech_mono_22050.aac"));
  for (int i = 0; i < 5; ++i) {
    ByteVec frame = p.Next();
    std::int16_t pcm[2048];
    std::fill(std::begin(pcm), std::end(pcm), std::int16_t(0x5A5A));
    std::uint32_t n = 0;
    ASSERT_EQ(TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, 2048, &n),
              TMX_OK);
    EXPECT_EQ(n, 2048u);  // the whole frame is reported ...
    // ... but only frame-size samples arrive; the rest of the buffer is untouched.
    EXPECT_EQ(pcm[frame.size()], 0x5A5A);
    EXPECT_EQ(pcm[1023], 0x5A5A);
  }
}

TEST(DecodePcm, SmallBuffersAndBadFramesAreSwallowed) {
  Open p(Programme("music_stereo_22050.aac"));
  ByteVec frame = p.Next();
  std::int16_t pcm[4096];
  std::uint32_t n = 77;
  // Under 2048 bytes a channel: nothing decoded, result 0, length untouched.
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, 2047, &n),
            TMX_OK);
  EXPECT_EQ(n, 77u);
  const std::uint8_t junk[5] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), junk, 5, pcm, sizeof pcm, &n), TMX_OK);
  EXPECT_EQ(n, 77u);
  EXPECT_EQ(
      TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, sizeof pcm, &n),
      TMX_OK);
  EXPECT_EQ(n, 4096u);
}

TEST(DecodePcm, SeeksAskForAResetAtTheNextDecode) {
  Open p(Programme("music_stereo_22050.aac"));
  ByteVec frame = p.Next();
  std::int16_t pcm[4096];
  std::uint32_t n = 0;
  ASSERT_EQ(TMXSeek(p.f(), 1000), TMX_OK);
  EXPECT_EQ(p.f()->reader.decoderResetPending, 1u);
  frame = p.Next();
  EXPECT_EQ(
      TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, sizeof pcm, &n),
      TMX_OK);
  EXPECT_EQ(p.f()->reader.decoderResetPending, 0u);
  EXPECT_NE(p.f()->codecInstance, nullptr);
}

TEST(DecodePcm, TheRateIndexOfTheConfigurationDecides) {
  // Index 12 is 7350 Hz; 13 to 15 are refused when the first frame decodes.
  for (auto [asc, expected] :
       {std::pair{std::uint16_t(0x1608), TMX_OK}, std::pair{std::uint16_t(0x1688), TMX_ERR_DECODER},
        std::pair{std::uint16_t(0x1788), TMX_ERR_DECODER}}) {
    test::ProgrammeSpec plan;
    plan.audioSpecificConfig = asc;
    test::TrackSpec audio;
    audio.samples = test::MakeFrames(30);
    audio.samplesPerChunk = 5;
    plan.tracks.push_back(audio);
    Open p(test::BuildProgramme(plan).bytes);
    ByteVec frame = p.Next();
    std::int16_t pcm[4096];
    std::uint32_t n = 0;
    EXPECT_EQ(
        TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, sizeof pcm, &n),
        expected)
        << asc;
    EXPECT_EQ(p.f()->codecInstance != nullptr, expected == TMX_OK);
  }
}

TEST(DecodePcm, AllocationFailureAtCreationLeaksNothing) {
  const ByteVec bytes = Programme("music_stereo_22050.aac");
  const std::int64_t live = testing::LiveAllocations();
  for (std::uint64_t k = 1; k <= 4; ++k) {
    {
      Open p(bytes);
      ByteVec frame = p.Next();
      std::int16_t pcm[4096];
      std::uint32_t n = 0;
      testing::FailAllocation(k);
      const std::int32_t rc =
          TMXDecodePCMFrame(p.f(), frame.data(), std::uint32_t(frame.size()), pcm, sizeof pcm, &n);
      testing::FailAllocation(0);
      EXPECT_TRUE(rc == TMX_OK || rc == TMX_ERR_MEMORY || rc == TMX_ERR_DECODER) << k << ": " << rc;
      // The configuration was read at open; a decoder that cannot be made
      // is a refused configuration.
      if (k == 1) {
        EXPECT_EQ(rc, TMX_ERR_DECODER);
      }
    }
    EXPECT_EQ(testing::LiveAllocations(), live);
  }
}

TEST(AacCodec, TableSlots) {
  void* instance = nullptr;
  EXPECT_EQ(kAacCodec.DestroyDecoder(&instance), TMX_ERR_ARGUMENT);
  EXPECT_EQ(kAacCodec.DestroyDecoder(nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(kAacCodec.ResetDecoder(nullptr, nullptr, 0, &kAacCodec), TMX_ERR_ARGUMENT);
  std::uint32_t n = 0;
  EXPECT_EQ(kAacCodec.DecodeFrame(nullptr, nullptr, 0, nullptr, 0, &n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(kAacCodec.CreateDecoder(&instance, nullptr, 0, &kAacCodec), TMX_ERR_DECODER);
  EXPECT_EQ(instance, nullptr);
}

}  // namespace
}  // namespace tmx
