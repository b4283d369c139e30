// Programmes written by the writer from real AAC material (all of tests/data)
// read back frame for frame, with their timing and chapters.
#include <gtest/gtest.h>

#include <string>

#include "api/file.h"
#include "support/memory_stream.h"
#include "support/test_data.h"
#include "util/frame_time.h"
#include "writer/writer.h"

namespace tmx {
namespace {

using test::MemoryStream;
using Bytes = std::vector<std::uint8_t>;

std::size_t HeaderLength(const Bytes& frame) { return (frame[1] & 1) ? 7 : 9; }

Bytes Write(const Bytes& input, bool chunkHeaders, const std::vector<writer::Chapter>& chapters) {
  writer::ProgrammeSpec plan;
  plan.adts = input;
  plan.side.chapters = chapters;
  plan.options.framesPerChunk = 7;
  plan.options.chunkHeaders = chunkHeaders;
  MemoryStream out;
  EXPECT_EQ(writer::WriteProgramme(plan, out.stream()), TMX_OK);
  return out.data();
}

class RoundTrip : public ::testing::TestWithParam<const char*> {};

TEST_P(RoundTrip, EveryFrameComesBackWithItsHeaderFields) {
  const std::vector<writer::Chapter> chapters = {{0, "One"}, {1000, "Two"}, {2000, "Three"}};
  const Bytes input = test::ReadTestData(GetParam());
  const std::vector<Bytes> adts = test::SplitAdts(input);
  ASSERT_GT(adts.size(), 20u);
  MemoryStream m(Write(input, true, chapters));
  TMXFile* f = nullptr;
  ASSERT_EQ(TMXOpenFile(&f, m.stream(), nullptr), TMX_OK);
  EXPECT_EQ(f->frameCount, adts.size());
  EXPECT_EQ(f->samplesPerFrame, 1024u);
  EXPECT_EQ(f->duration, FramesToMs(f->frameCount, f->sampleRate, 1024));

  // Chapters start within one frame of where they were asked for.
  std::uint32_t count = 0;
  ASSERT_EQ(TMXGetChapterCount(f, &count), TMX_OK);
  ASSERT_EQ(count, 3u);
  const std::uint32_t frameMs = FramesToMs(1, f->sampleRate, 1024) + 1;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t ms = 0;
    ASSERT_EQ(TMXGetChapterStartTime(f, i, &ms), TMX_OK);
    EXPECT_EQ(ms, FramesToMs(f->chapterStartFrames[i], f->sampleRate, 1024));
    EXPECT_LE(ms > chapters[i].startMs ? ms - chapters[i].startMs : chapters[i].startMs - ms,
              frameMs);
  }

  TMXEnableADTSHeaders(f);
  Bytes buffer(8192);
  std::uint32_t length = 0;
  for (std::size_t i = 0; i < adts.size(); ++i) {
    ASSERT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length), TMX_OK)
        << i;
    const Bytes& in = adts[i];
    const std::size_t inHeader = HeaderLength(in);
    ASSERT_EQ(length, in.size() - inHeader + 7) << i;
    // Payload identical; profile, rate index and channels as in the input.
    EXPECT_TRUE(std::equal(buffer.begin() + 7, buffer.begin() + length,
                           in.begin() + std::ptrdiff_t(inHeader)));
    EXPECT_EQ(buffer[2] & 0xFD, in[2] & 0xFD) << i;
    EXPECT_EQ(buffer[3] >> 6, in[3] >> 6) << i;
  }
  EXPECT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length),
            TMX_ERR_END);
  TMXCloseFile(f);

  // Without chunk headers the tables step over the chapter samples between
  // the audio chunks; the writer ends the audio with a chunk of one frame,
  // the only one they cannot place.
  MemoryStream plain(Write(input, false, chapters));
  ASSERT_EQ(TMXOpenFile(&f, plain.stream(), nullptr), TMX_OK);
  for (std::size_t i = 0; i + 1 < adts.size(); ++i) {
    ASSERT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length), TMX_OK)
        << i;
    ASSERT_EQ(length, adts[i].size() - HeaderLength(adts[i]));
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + length,
                           adts[i].begin() + std::ptrdiff_t(HeaderLength(adts[i]))));
  }
  EXPECT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length),
            TMX_ERR_SEEK_RANGE);
  TMXCloseFile(f);
}

INSTANTIATE_TEST_SUITE_P(Material, RoundTrip,
                         ::testing::Values("speech_mono_16000.aac", "speech_mono_22050.aac",
                                           "speech_stereo_44100.aac", "music_stereo_22050.aac",
                                           "music_stereo_44100.aac", "music_mono_48000.aac"));

}  // namespace
}  // namespace tmx
