// TMXDecodePCMFrame and the AAC codec table, through open programmes.
#include <gtest/gtest.h>

#include "api/file.h"
#include "codec/codec.h"
#include "container/mp4/mp4_fixture.h"
#include "support/mp4_builder.h"
#include "support/test_data.h"
#include "writer/programme_view.h"

namespace tmx {
namespace {

using test::ByteVec;

ByteVec Programme(const char* clip) {
  const ByteVec adts = test::ReadTestData(clip);  // the plan only points at it
  writer::ProgrammeSpec plan;
  plan.adts = adts;
  return writer::test::Write(plan);
}

// An open programme; Decode hands a frame to TMXDecodePCMFrame.
struct Open : test::OpenProgramme {
  explicit Open(const char* clip) : OpenProgramme(Programme(clip)), f(file()) {
    EXPECT_EQ(rc(), TMX_OK);
  }
  ByteVec Next() {
    ByteVec frame;
    EXPECT_EQ(ReadAudio(frame, 8192), TMX_OK);
    return frame;
  }
  std::int32_t Decode(const ByteVec& frame, std::uint32_t capacity = sizeof pcm) {
    return TMXDecodePCMFrame(f, frame.data(), std::uint32_t(frame.size()), pcm, capacity, &n);
  }
  TMXFile* f;
  std::int16_t pcm[4096];
  std::uint32_t n = 77;
};

// Arguments come first; a buffer under 2048 bytes a channel or a refused frame
// decodes nothing, keeps the length and returns 0; a seek resets the decoder.
TEST(DecodePcm, ArgumentsSmallBuffersBadFramesAndSeeks) {
  Open p("music_stereo_22050.aac");
  std::uint8_t in[4] = {};
  EXPECT_EQ(TMXDecodePCMFrame(nullptr, nullptr, 0, nullptr, 0, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXDecodePCMFrame(p.f, nullptr, 4, p.pcm, sizeof p.pcm, &p.n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXDecodePCMFrame(p.f, in, 4, nullptr, sizeof p.pcm, &p.n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXDecodePCMFrame(p.f, in, 4, p.pcm, sizeof p.pcm, nullptr), TMX_ERR_ARGUMENT);
  const ByteVec frame = p.Next();
  EXPECT_EQ(p.Decode(frame, 2047), TMX_OK);
  EXPECT_EQ(p.n, 77u);
  EXPECT_EQ(p.Decode(ByteVec(5, 0xFF)), TMX_OK);
  EXPECT_EQ(p.n, 77u);
  EXPECT_EQ(p.Decode(frame), TMX_OK);
  EXPECT_EQ(p.n, 4096u);
  ASSERT_EQ(TMXSeek(p.f, 1000), TMX_OK);
  EXPECT_EQ(p.f->reader.decoderResetPending, 1u);
  EXPECT_EQ(p.Decode(p.Next()), TMX_OK);
  EXPECT_EQ(p.f->reader.decoderResetPending, 0u);
}

TEST(DecodePcm, MonoHandsOverAsManySamplesAsTheFrameHadBytes) {
  Open p("speech_mono_22050.aac");
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
