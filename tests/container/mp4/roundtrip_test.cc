// Programmes written by the writer from real AAC material (all of tests/data)
// read back frame for frame, with their timing. The ADTS headers the reader
// can add are pinned by the playback tests.
#include <gtest/gtest.h>

#include <string>

#include "api/file.h"
#include "support/memory_stream.h"
#include "support/test_data.h"
#include "util/frame_time.h"
#include "writer/programme_view.h"

namespace tmx {
namespace {

using test::MemoryStream;
using Bytes = std::vector<std::uint8_t>;

class RoundTrip : public ::testing::TestWithParam<const char*> {};

TEST_P(RoundTrip, EveryFrameComesBack) {
  const Bytes input = test::ReadTestData(GetParam());
  const std::vector<Bytes> adts = test::SplitAdts(input);
  ASSERT_GT(adts.size(), 20u);
  // Without chunk headers the tables step over the chapter samples between
  // the audio chunks; the writer ends the audio with a chunk of one frame,
  // the only one they cannot place.
  for (bool chunkHeaders : {true, false}) {
    SCOPED_TRACE(chunkHeaders);
    writer::ProgrammeSpec plan;
    plan.adts = input;
    plan.side.chapters = {{0, "One"}, {1000, "Two"}, {2000, "Three"}};
    plan.options.framesPerChunk = 7;
    plan.options.chunkHeaders = chunkHeaders;
    MemoryStream m(writer::test::Write(plan));
    TMXFile* f = nullptr;
    ASSERT_EQ(TMXOpenFile(&f, m.stream(), nullptr), TMX_OK);
    EXPECT_EQ(f->frameCount, adts.size());
    EXPECT_EQ(f->duration, FramesToMs(f->frameCount, f->sampleRate, 1024));

    Bytes buffer(8192);
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < adts.size() - (chunkHeaders ? 0 : 1); ++i) {
      ASSERT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length), TMX_OK)
          << i;
      const std::size_t header = (adts[i][1] & 1) ? 7 : 9;  // 9 with a CRC
      EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + length),
                Bytes(adts[i].begin() + std::ptrdiff_t(header), adts[i].end()))
          << i;
    }
    EXPECT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length),
              chunkHeaders ? TMX_ERR_END : TMX_ERR_SEEK_RANGE);
    TMXCloseFile(f);
  }
}

INSTANTIATE_TEST_SUITE_P(Material, RoundTrip,
                         ::testing::Values("speech_mono_16000.aac", "speech_mono_22050.aac",
                                           "speech_stereo_44100.aac", "music_stereo_22050.aac",
                                           "music_stereo_44100.aac", "music_mono_48000.aac"));

}  // namespace
}  // namespace tmx
