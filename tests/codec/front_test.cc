// TMXDecodePCMFrame and the AAC codec table, through open programmes.
#include <gtest/gtest.h>

#include <cstring>
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

ByteVec Programme(const char* clip) {
  const ByteVec adts = test::ReadTestData(clip);  // the plan only points at it
  writer::ProgrammeSpec plan;
  plan.adts = adts;
  MemoryStream out;
  EXPECT_EQ(writer::WriteProgramme(plan, out.stream()), TMX_OK);
  return out.data();
}

// An open programme; Decode hands its next frame to TMXDecodePCMFrame.
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
  std::int32_t Decode(const ByteVec& frame, std::uint32_t capacity = sizeof pcm) {
    return TMXDecodePCMFrame(f_, frame.data(), std::uint32_t(frame.size()), pcm, capacity, &n);
  }
  std::int16_t pcm[4096];
  std::uint32_t n = 77;
  std::unique_ptr<MemoryStream> m_;
  TMXFile* f_ = nullptr;
};

TEST(DecodePcm, ChecksItsArguments) {
  Open p(Programme("speech_stereo_44100.aac"));
  std::uint8_t in[4] = {};
  EXPECT_EQ(TMXDecodePCMFrame(nullptr, nullptr, 0, nullptr, 0, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), nullptr, 4, p.pcm, sizeof p.pcm, &p.n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), in, 4, nullptr, sizeof p.pcm, &p.n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXDecodePCMFrame(p.f(), in, 4, p.pcm, sizeof p.pcm, nullptr), TMX_ERR_ARGUMENT);
}

TEST(DecodePcm, StereoFramesMatchTheDecoderItself) {
  Open p(Programme("music_stereo_44100.aac"));
  aac::Decoder* direct = nullptr;
  ASSERT_EQ(aac::CreateDecoder(&direct, 4, 0), TMX_OK);
  for (int i = 0; i < 30; ++i) {
    ByteVec frame = p.Next();
    std::int16_t expected[4096];
    ASSERT_EQ(p.Decode(frame), TMX_OK);
    ASSERT_EQ(p.n, 4096u);
    ASSERT_EQ(aac::DecodeFrame(direct, frame.data(), std::uint32_t(frame.size()), expected,
                               sizeof expected, nullptr),
              aac::kOk);
    ASSERT_EQ(0, std::memcmp(p.pcm, expected, p.n)) << "frame " << i;
  }
  aac::DestroyDecoder(&direct);
}

TEST(DecodePcm, MonoHandsOverAsManySamplesAsTheFrameHadBytes) {
  Open p(Programme("speech_mono_22050.aac"));
  for (int i = 0; i < 5; ++i) {
    ByteVec frame = p.Next();
    std::fill(std::begin(p.pcm), std::end(p.pcm), std::int16_t(0x5A5A));
    ASSERT_EQ(p.Decode(frame, 2048), TMX_OK);
    EXPECT_EQ(p.n, 2048u);  // the whole frame is reported ...
    // ... but only frame-size samples arrive; the rest of the buffer is untouched.
    EXPECT_EQ(p.pcm[frame.size()], 0x5A5A);
    EXPECT_EQ(p.pcm[1023], 0x5A5A);
  }
}

TEST(DecodePcm, SmallBuffersAndBadFramesAreSwallowed) {
  Open p(Programme("music_stereo_22050.aac"));
  ByteVec frame = p.Next();
  // Under 2048 bytes a channel: nothing decoded, result 0, length untouched.
  EXPECT_EQ(p.Decode(frame, 2047), TMX_OK);
  EXPECT_EQ(p.n, 77u);
  EXPECT_EQ(p.Decode(ByteVec(5, 0xFF)), TMX_OK);
  EXPECT_EQ(p.n, 77u);
  EXPECT_EQ(p.Decode(frame), TMX_OK);
  EXPECT_EQ(p.n, 4096u);
}

TEST(DecodePcm, SeeksAskForAResetAtTheNextDecode) {
  Open p(Programme("music_stereo_22050.aac"));
  p.Next();
  ASSERT_EQ(TMXSeek(p.f(), 1000), TMX_OK);
  EXPECT_EQ(p.f()->reader.decoderResetPending, 1u);
  EXPECT_EQ(p.Decode(p.Next()), TMX_OK);
  EXPECT_EQ(p.f()->reader.decoderResetPending, 0u);
  EXPECT_NE(p.f()->codecInstance, nullptr);
}

// The decoder is made from the configuration when the first frame decodes;
// index 13 is refused then.
TEST(DecodePcm, ARefusedConfigurationMakesNoDecoder) {
  test::ProgrammeSpec plan;
  plan.audioSpecificConfig = 0x1688;
  test::TrackSpec audio;
  audio.samples = test::MakeFrames(30);
  plan.tracks.push_back(audio);
  Open p(test::BuildProgramme(plan).bytes);
  EXPECT_EQ(p.Decode(p.Next()), TMX_ERR_DECODER);
  EXPECT_EQ(p.f()->codecInstance, nullptr);
}

TEST(DecodePcm, AllocationFailureAtCreationLeaksNothing) {
  const ByteVec bytes = Programme("music_stereo_22050.aac");
  const std::int64_t live = testing::LiveAllocations();
  for (std::uint64_t k = 1; k <= 4; ++k) {
    {
      Open p(bytes);
      ByteVec frame = p.Next();
      testing::FailAllocation(k);
      const std::int32_t rc = p.Decode(frame);
      testing::FailAllocation(0);
      // The decoder is made with two allocations at the first decode; one that
      // cannot be made is a refused configuration.
      EXPECT_EQ(rc, k <= 2 ? TMX_ERR_DECODER : TMX_OK) << k;
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
