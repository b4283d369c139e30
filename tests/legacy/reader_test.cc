// Frames of the older container through the playback exports: reading across
// segment ends, describing, seeking, chapters, broken chains and decoding.
#include <gtest/gtest.h>

#include <cstring>

#include "codec/codec.h"
#include "legacy/legacy_files.h"
#include "util/alloc.h"

namespace tmx::legacy::test {
namespace {

// A model of the segment chain: where audio byte `byte` lies in the file,
// and where (in audio bytes) its segment starts. Sizes are the writer's: the
// last one repeats until the audio is placed.
std::pair<std::uint32_t, std::uint32_t> Locate(const LegacyProgramme& p, std::uint32_t firstData,
                                               std::uint32_t byte) {
  const auto audio = std::uint32_t(p.frames.size() * p.frames[0].size());
  std::uint32_t start = 0, data = firstData;
  for (std::size_t i = 0;; ++i) {
    const std::uint32_t wanted =
        p.segmentSizes.empty() ? audio : p.segmentSizes[std::min(i, p.segmentSizes.size() - 1)];
    const std::uint32_t length = std::min(wanted, audio - start);
    if (byte < start + length) return {data + byte - start, start};
    start += length;
    data += length + 8;
  }
}

// Reading in order gives the frames, described where their bytes begin,
// across segment ends. Seeks by time and skip land in the segment that holds
// the frame's first audio byte, on a whole frame counted from that segment's
// start, and reading goes on from there.
TEST(LegacyFrames, ReadsAndSeeksFollowTheSegmentModel) {
  const struct {
    std::uint16_t codec;
    std::uint32_t frames;
    std::vector<std::uint32_t> sizes;
  } cases[] = {{writer::kLegacyCodecSpeech16, 100, {707, 614, 679}},
               {writer::kLegacyCodecSpeech8, 12, {10, 23, 5}},
               {writer::kLegacyCodecSpeech8, 12, {7, 30, 1, 0, 19, 50}},
               {writer::kLegacyCodecSpeech8, 12, {38, 0, 0, 19}},
               {writer::kLegacyCodecSpeech8, 12, {25, 100}},
               {writer::kLegacyCodecSpeech8, 12, {19}},
               {writer::kLegacyCodecSpeech8, 12, {1}},
               {writer::kLegacyCodecSpeech8, 12, {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.frames << " frames, " << c.sizes.size() << " sizes");
    const LegacyProgramme p = Programme(c.frames, c.codec, c.sizes);
    const std::uint32_t size = writer::LegacyFrameSize(c.codec);
    ByteVec audio;
    for (const ByteVec& frame : p.frames) audio.insert(audio.end(), frame.begin(), frame.end());
    LegacyLayout layout;
    Book b(Write(p, &layout));
    ASSERT_EQ(b.rc(), TMX_OK);
    TMXFile* f = b.f();
    const std::uint32_t ms = f->samplesPerFrame * 1000 / f->sampleRate;
    const std::uint32_t type =
        c.codec == writer::kLegacyCodecSpeech8 ? FourCC("ace2") : FourCC("ace3");
    TMXFrameInfo info{};
    // Frame `frame` is next, with the bytes from audio byte `byte` on.
    auto expectAt = [&](std::uint32_t frame, std::uint32_t byte, const char* how) {
      ASSERT_EQ(TMXGetNextFrameInfo(f, &info), TMX_OK) << how << frame;
      const TMXFrameInfo expected = {
          type,  frame * ms, frame, size, Locate(p, layout.records[10].offset + 8, byte).first,
          0x1001};
      EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0) << how << frame;
      // A too small buffer leaves the frame current.
      std::int32_t rc = 0;
      EXPECT_TRUE(b.Read(&rc, std::int32_t(size) - 1).empty());
      EXPECT_EQ(rc, TMX_ERR_BUFFER);
      EXPECT_EQ(b.Read(), ByteVec(audio.begin() + byte, audio.begin() + byte + size))
          << how << frame;
    };
    for (std::uint32_t frame = 0; frame < c.frames; ++frame) expectAt(frame, frame * size, "read ");
    EXPECT_EQ(TMXGetNextFrameInfo(f, &info), TMX_ERR_END);
    std::int32_t rc = 0;
    b.Read(&rc);
    EXPECT_EQ(rc, TMX_ERR_END);
    EXPECT_EQ(b.Read(), p.frames[0]);  // the book starts again
    // The frame's byte, less what precedes it of the frame in its segment.
    auto landing = [&](std::uint32_t frame) {
      const std::uint32_t segment = Locate(p, 0, frame * size).second;
      return segment + (frame * size - segment) / size * size;
    };
    for (std::uint32_t frame = 0; frame < c.frames; ++frame) {
      ASSERT_EQ(TMXSeek(f, frame * ms), TMX_OK);
      expectAt(frame, landing(frame), "seek to ");
      if (frame + 1 < c.frames) {
        ASSERT_EQ(TMXSeek(f, frame * ms), TMX_OK);
        ASSERT_EQ(TMXSkipNextFrame(f), TMX_OK);
        expectAt(frame + 1, landing(frame + 1), "skip to ");
      }
    }
  }
}

TEST(LegacyFrames, ChaptersSeekIntoTheirSegmentAndHaveNoText) {
  // 20-byte frames in segments of 707, 614 and 679 bytes: frame 36 (the
  // second chapter) starts at the first data byte of the second segment.
  LegacyProgramme p = Programme(100, writer::kLegacyCodecSpeech16, {707, 614, 679});
  p.chapters = {{36, 0}, {64, 0}};
  LegacyLayout layout;
  Book b(Write(p, &layout));
  b.Read();  // the first request restores the saved position
  ASSERT_EQ(TMXSeekToChapter(b.f(), 1), TMX_OK);
  TMXFrameInfo info{};
  ASSERT_EQ(TMXGetNextFrameInfo(b.f(), &info), TMX_OK);
  EXPECT_EQ(info.offset, layout.records[10].offset + 8 + 707 + 8);
  ByteVec expected(p.frames[35].begin() + 7, p.frames[35].end());
  expected.insert(expected.end(), p.frames[36].begin(), p.frames[36].begin() + 7);
  EXPECT_EQ(b.Read(), expected);

  ASSERT_EQ(TMXGetChapterInfo(b.f(), 1, &info), TMX_OK);
  // The chapter's index is converted as if it were a frame index.
  const TMXFrameInfo chapter = {FourCC("text"), 10, 1, 0, 0, 0x1001};
  EXPECT_EQ(std::memcmp(&info, &chapter, sizeof info), 0);
  std::uint8_t text[8] = {1, 1, 1};
  EXPECT_EQ(TMXGetChapterText(b.f(), &info, text, sizeof text), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(text[0], 0);
  EXPECT_EQ(TMXGetChapterInfo(b.f(), 2, &info), TMX_ERR_INDEX);
  // Nor are there pictures or links.
  const TMXFrameInfo none{};
  EXPECT_EQ(TMXGetImageInfo(b.f(), 0, &info), TMX_OK);
  EXPECT_EQ(std::memcmp(&info, &none, sizeof info), 0);
  std::uint32_t count = 9;
  TMXGetLinkCount(b.f(), &count);
  EXPECT_EQ(count, 0u);
}

TEST(LegacyFrames, ABrokenLaterSegmentOrAFailedTableGrowthStopsTheReaderInPlace) {
  LegacyLayout l;
  const ByteVec good = Write(Programme(20, writer::kLegacyCodecSpeech8, {19}), &l);
  const std::uint32_t third = l.records[10].offset + 2 * (8 + kFrame);
  const struct {
    const char* what;
    std::uint32_t at, value;
  } cases[] = {
      {"data not behind its header", third + 4, third + 9},
      // The file ends after two segments, before the chain holds the audio.
      {"chain ending with the file", 0, third},
  };
  for (const auto& c : cases) {
    ByteVec bytes = good;
    Put32(bytes, c.at, c.value);
    if (c.at == 0) bytes.resize(third);
    Book b(bytes);
    ASSERT_EQ(b.rc(), TMX_OK) << c.what;
    EXPECT_EQ(b.Read(), Frame(0));
    EXPECT_EQ(b.Read(), Frame(1));
    for (int attempt = 0; attempt < 2; ++attempt) {
      std::int32_t rc = 0;
      b.Read(&rc);
      EXPECT_EQ(rc, TMX_ERR_INCONSISTENT) << c.what;
    }
    EXPECT_EQ(TMXSeek(b.f(), 4 * 18), TMX_ERR_SEEK_RANGE);
    EXPECT_EQ(TMXSeek(b.f(), 18), TMX_OK);
    EXPECT_EQ(b.Read(), Frame(1));
  }

  Book b(good);
  for (std::uint32_t i = 0; i < 7; ++i) b.Read();
  // Frame 7 ends with the eighth segment; the ninth needs a larger table.
  tmx::testing::FailAllocation(1);
  EXPECT_EQ(b.Read(), Frame(7));
  tmx::testing::FailAllocation(1);
  std::int32_t rc = 0;
  b.Read(&rc);
  tmx::testing::FailAllocation(0);
  EXPECT_EQ(rc, TMX_ERR_MEMORY);
  EXPECT_EQ(b.Read(), Frame(8));
  EXPECT_EQ(TMXSeek(b.f(), 19 * 18), TMX_OK);
  EXPECT_EQ(b.Read(), Frame(19));
}

// Turns a block into 144 samples of its frame index; fails the block of
// index `failAt`.
struct FakeCodec {
  static inline int creates = 0, destroys = 0, decodes = 0;
  static inline std::uint32_t failAt = 0xFFFF, configLength = 99;
  static std::int32_t Create(void** slot, const std::uint8_t*, std::uint32_t length, const Codec*) {
    ++creates;
    configLength = length;
    *slot = &creates;
    return TMX_OK;
  }
  static std::int32_t Destroy(void** slot) {
    ++destroys;
    *slot = nullptr;
    return TMX_OK;
  }
  static std::int32_t Reset(void*, const std::uint8_t*, std::uint32_t, const Codec*) { return 0; }
  static std::int32_t Decode(void*, const std::uint8_t* data, std::uint32_t length,
                             std::int16_t* pcm, std::uint32_t, std::uint32_t* produced) {
    ++decodes;
    EXPECT_EQ(length, kFrame);
    if (data[1] == failAt) return TMX_ERR_DECODER;
    for (int i = 0; i < 144; ++i) pcm[i] = data[1];
    *produced = 288;
    return TMX_OK;
  }
};
const Codec kFake = {FakeCodec::Create, FakeCodec::Destroy, FakeCodec::Reset, FakeCodec::Decode};

TEST(LegacyDecode, DecodesTheWholeBlocksThatFitTheBuffer) {
  const ByteVec input = ::tmx::test::Concat({Frame(0), Frame(1), Frame(2)});
  std::vector<std::int16_t> pcm(1000, -1);
  std::uint32_t length = 0;
  {
    Book b(Write(Programme(3)));
    b.f()->codec = &kFake;
    auto decode = [&](std::uint32_t bytes, std::uint32_t capacity) {
      return TMXDecodePCMFrame(b.f(), input.data(), bytes, pcm.data(), capacity, &length);
    };
    // Less room than one block's output: nothing is decoded.
    EXPECT_EQ(decode(kFrame, 287), TMX_ERR_BUFFER);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(FakeCodec::decodes, 0);
    EXPECT_EQ(FakeCodec::creates, 1);
    EXPECT_EQ(FakeCodec::configLength, 0u);
    // Room for two of three blocks.
    EXPECT_EQ(decode(57, 2 * 288 + 100), TMX_OK);
    EXPECT_EQ(length, 576u);
    EXPECT_EQ(pcm[143], 0);
    EXPECT_EQ(pcm[144], 1);
    EXPECT_EQ(pcm[288], -1);
    // A partial block at the end is left alone.
    EXPECT_EQ(decode(47, 2000), TMX_OK);
    EXPECT_EQ(length, 576u);
    // The first failing block ends the call.
    FakeCodec::failAt = 1;
    EXPECT_EQ(decode(57, 2000), TMX_ERR_DECODER);
    FakeCodec::failAt = 0xFFFF;
    EXPECT_EQ(length, 288u);
    EXPECT_EQ(FakeCodec::creates, 1);
  }
  EXPECT_EQ(FakeCodec::destroys, 1);

  // Programmes of MP3 frames have no decoder.
  Book mp3(Write(Programme(2, writer::kLegacyCodecMp3)));
  const ByteVec frame = mp3.Read();
  EXPECT_EQ(TMXDecodePCMFrame(mp3.f(), frame.data(), 104, pcm.data(), 2000, &length),
            TMX_ERR_NO_DECODER);
}

}  // namespace
}  // namespace tmx::legacy::test
