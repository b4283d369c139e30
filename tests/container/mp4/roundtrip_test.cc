// Programmes written by the writer from real AAC material read back frame
// for frame, with their timing and chapters.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "api/file.h"
#include "support/memory_stream.h"
#include "util/frame_time.h"
#include "writer/writer.h"

namespace tmx {
namespace {

using test::MemoryStream;
using Bytes = std::vector<std::uint8_t>;

Bytes ReadFile(const std::string& name) {
  std::ifstream in(std::string(TMX_TEST_DATA_DIR) + "/" + name, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

// The ADTS frames of a stream, headers included.
std::vector<Bytes> SplitAdts(const Bytes& adts) {
  std::vector<Bytes> frames;
  for (std::size_t pos = 0; pos + 7 <= adts.size();) {
    const std::size_t length =
        ((adts[pos + 3] & 3u) << 11) | (std::size_t(adts[pos + 4]) << 3) | (adts[pos + 5] >> 5);
    if (length < 7 || pos + length > adts.size()) break;
    frames.emplace_back(adts.begin() + std::ptrdiff_t(pos),
                        adts.begin() + std::ptrdiff_t(pos + length));
    pos += length;
  }
  return frames;
}

std::size_t HeaderLength(const Bytes& frame) { return (frame[1] & 1) ? 7 : 9; }

struct Written {
  Bytes bytes;
  std::vector<Bytes> adts;
};

Written Write(const std::string& name, bool chunkHeaders,
              const std::vector<writer::Chapter>& chapters) {
  Written w;
  const Bytes input = ReadFile(name);
  w.adts = SplitAdts(input);
  writer::ProgrammeSpec plan;
  plan.adts = input;
  plan.side.chapters = chapters;
  plan.options.framesPerChunk = 7;
  plan.options.chunkHeaders = chunkHeaders;
  MemoryStream out;
  EXPECT_EQ(writer::WriteProgramme(plan, out.stream()), TMX_OK) << name;
  w.bytes = out.data();
  return w;
}

class RoundTrip : public ::testing::TestWithParam<const char*> {};

TEST_P(RoundTrip, EveryFrameComesBackWithItsHeaderFields) {
  const std::vector<writer::Chapter> chapters = {{0, "One"}, {1000, "Two"}, {2000, "Three"}};
  Written w = Write(GetParam(), true, chapters);
  ASSERT_GT(w.adts.size(), 20u);
  MemoryStream m(w.bytes);
  TMXFile* f = nullptr;
  ASSERT_EQ(TMXOpenFile(&f, m.stream(), nullptr), TMX_OK);
  EXPECT_EQ(f->frameCount, w.adts.size());
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
  for (std::size_t i = 0; i < w.adts.size(); ++i) {
    std::uint32_t length = 0;
    ASSERT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length), TMX_OK)
        << i;
    const Bytes& in = w.adts[i];
    const std::size_t inHeader = HeaderLength(in);
    ASSERT_EQ(length, in.size() - inHeader + 7) << i;
    // Payload identical; profile, rate index and channels as in the input.
    EXPECT_TRUE(std::equal(buffer.begin() + 7, buffer.begin() + length,
                           in.begin() + std::ptrdiff_t(inHeader)));
    EXPECT_EQ(buffer[2] & 0xFD, in[2] & 0xFD) << i;
    EXPECT_EQ(buffer[3] >> 6, in[3] >> 6) << i;
  }
  std::uint32_t length = 0;
  EXPECT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length),
            TMX_ERR_END);
  TMXCloseFile(f);
}

TEST_P(RoundTrip, WithoutChunkHeadersTheTablesServeAllButTheLastFrame) {
  Written w = Write(GetParam(), false, {});
  MemoryStream m(w.bytes);
  TMXFile* f = nullptr;
  ASSERT_EQ(TMXOpenFile(&f, m.stream(), nullptr), TMX_OK);
  // The writer ends the audio with a chunk of one frame, the only one the
  // tables cannot place.
  const std::size_t reachable = w.adts.size() - 1;
  Bytes buffer(8192);
  for (std::size_t i = 0; i < reachable; ++i) {
    std::uint32_t length = 0;
    ASSERT_EQ(TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &length), TMX_OK)
        << i;
    const Bytes& in = w.adts[i];
    ASSERT_EQ(length, in.size() - HeaderLength(in));
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + length,
                           in.begin() + std::ptrdiff_t(HeaderLength(in))));
  }
  std::uint32_t length = 0;
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
