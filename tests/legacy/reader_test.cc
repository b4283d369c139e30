// Frames of the older container through the playback exports: reading across
// segment ends, describing, seeking, chapters, broken chains and decoding.
#include <gtest/gtest.h>

#include <cstring>

#include "codec/codec.h"
#include "legacy/legacy_files.h"
#include "util/alloc.h"

namespace tmx::legacy::test {
namespace {

LegacyProgramme Segmented(std::uint32_t frames, std::vector<std::uint32_t> sizes) {
  LegacyProgramme p = Programme(frames);
  p.segmentSizes = std::move(sizes);
  return p;
}

TEST(LegacyFrames, FramesRunAcrossSegmentEnds) {
  for (const auto& sizes : std::vector<std::vector<std::uint32_t>>{
           {}, {19}, {7, 30, 1, 0, 19, 50}, {1}, {38, 0, 0, 19}}) {
    Book b(Write(Segmented(12, sizes)));
    for (std::uint32_t i = 0; i < 12; ++i) ASSERT_EQ(b.Read(), Frame(i)) << i;
    std::int32_t rc = 0;
    b.Read(&rc);
    EXPECT_EQ(rc, TMX_ERR_END);
    EXPECT_EQ(b.Read(), Frame(0));  // the book starts again
  }
}

TEST(LegacyFrames, DescribesEachFrameWhereItsBytesBegin) {
  LegacyLayout layout;
  const ByteVec bytes = Write(Segmented(5, {25, 100}), &layout);
  const std::uint32_t seg0 = layout.records[10].offset + 8, seg1 = seg0 + 25 + 8;
  const std::uint32_t offsets[] = {seg0, seg0 + 19, seg1 + 13, seg1 + 32, seg1 + 51};
  Book b(bytes);
  TMXFrameInfo info{};
  for (std::uint32_t i = 0; i < 5; ++i) {
    ASSERT_EQ(TMXGetNextFrameInfo(b.f(), &info), TMX_OK);
    const TMXFrameInfo expected = {FourCC("ace2"), 18 * i, i, kFrame, offsets[i], 0x1001};
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0) << i;
    // A too small buffer leaves the frame current.
    std::int32_t rc = 0;
    EXPECT_TRUE(b.Read(&rc, kFrame - 1).empty());
    EXPECT_EQ(rc, TMX_ERR_BUFFER);
    EXPECT_EQ(b.Read(nullptr, kFrame), Frame(i));
  }
  EXPECT_EQ(TMXGetNextFrameInfo(b.f(), &info), TMX_ERR_END);
}

// A model of where a seek to `frame` lands: in the segment that holds the
// frame's first audio byte, on a whole frame counted from that segment's
// start. Sizes are the writer's: the last one repeats until the audio is
// placed. Gives the landing's audio byte and file position.
std::pair<std::uint32_t, std::uint32_t> Landing(const LegacyProgramme& p,
                                                std::uint32_t firstData, std::uint32_t frame) {
  const std::uint32_t size = writer::LegacyFrameSize(p.codecId);
  const std::uint32_t audio = std::uint32_t(p.frames.size()) * size, target = frame * size;
  std::uint32_t start = 0, data = firstData;
  for (std::size_t i = 0;; ++i) {
    const std::uint32_t wanted = p.segmentSizes.empty()
                                     ? audio
                                     : p.segmentSizes[std::min(i, p.segmentSizes.size() - 1)];
    const std::uint32_t length = std::min(wanted, audio - start);
    if (target < start + length || start + length == audio) {
      const std::uint32_t inner = std::min(target - start, length) / size * size;
      return {start + inner, data + inner};
    }
    start += length;
    data += length + 8;
  }
}

// Seeks by time, chapter, skip and a restored position all land where the
// model says, and reading goes on from there across segment ends.
TEST(LegacyFrames, SeeksLandOnWholeFramesOfTheSegmentHoldingTheirByte) {
  struct Case {
    std::uint16_t codec;
    std::uint32_t frames;
    std::vector<std::uint32_t> sizes;
  };
  const Case cases[] = {{writer::kLegacyCodecSpeech16, 100, {707, 614, 679}},
                        {writer::kLegacyCodecSpeech8, 12, {10, 23, 5}},
                        {writer::kLegacyCodecSpeech8, 12, {19}},
                        {writer::kLegacyCodecSpeech8, 12, {}}};
  for (const Case& c : cases) {
    LegacyProgramme p = Segmented(c.frames, c.sizes);
    p.codecId = c.codec;
    const std::uint32_t size = writer::LegacyFrameSize(c.codec);
    p.frames.clear();
    ByteVec audio;
    for (std::uint32_t i = 0; i < c.frames; ++i) {
      p.frames.push_back(Frame(i, size));
      audio.insert(audio.end(), p.frames.back().begin(), p.frames.back().end());
    }
    LegacyLayout layout;
    Book b(Write(p, &layout));
    ASSERT_EQ(b.rc(), TMX_OK);
    TMXFile* f = b.f();
    const std::uint32_t firstData = layout.records[10].offset + 8;
    auto expectAt = [&](std::uint32_t frame, const char* how) {
      const auto [byte, filePos] = Landing(p, firstData, frame);
      TMXFrameInfo info{};
      ASSERT_EQ(TMXGetNextFrameInfo(f, &info), TMX_OK) << how << frame;
      EXPECT_EQ(info.index, frame) << how;
      EXPECT_EQ(info.offset, filePos) << how << frame;
      const ByteVec bytes(audio.begin() + byte, audio.begin() + byte + size);
      EXPECT_EQ(b.Read(), bytes) << how << frame;
    };
    const std::uint32_t ms = f->samplesPerFrame * 1000 / f->sampleRate;
    for (std::uint32_t frame = 0; frame < c.frames; ++frame) {
      ASSERT_EQ(TMXSeek(f, frame * ms), TMX_OK);
      expectAt(frame, "seek to ");
      if (frame + 1 < c.frames) {
        ASSERT_EQ(TMXSeek(f, frame * ms), TMX_OK);
        ASSERT_EQ(TMXSkipNextFrame(f), TMX_OK);
        expectAt(frame + 1, "skip to ");
      }
    }
  }
  // 20-byte frames in segments of 707, 614 and 679 bytes: frame 36 (the
  // second chapter) starts at the first data byte of the second segment.
  LegacyProgramme p = Programme(100, writer::kLegacyCodecSpeech16);
  p.segmentSizes = {707, 614, 679};
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
}

TEST(LegacyFrames, ChaptersHaveNoTextAndThereAreNoSideTracks) {
  LegacyProgramme p = Programme(12);
  p.chapters = {{4, 0}, {8, 0}};
  Book b(Write(p));
  TMXFrameInfo info{};
  ASSERT_EQ(TMXGetChapterInfo(b.f(), 1, &info), TMX_OK);
  // The chapter's index is converted as if it were a frame index.
  const TMXFrameInfo chapter = {FourCC("text"), 18, 1, 0, 0, 0x1001};
  EXPECT_EQ(std::memcmp(&info, &chapter, sizeof info), 0);
  std::uint8_t text[8] = {1, 1, 1};
  EXPECT_EQ(TMXGetChapterText(b.f(), &info, text, sizeof text), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(text[0], 0);
  EXPECT_EQ(TMXGetChapterInfo(b.f(), 2, &info), TMX_ERR_INDEX);

  const TMXFrameInfo none{};
  EXPECT_EQ(TMXGetImageInfo(b.f(), 0, &info), TMX_OK);
  EXPECT_EQ(std::memcmp(&info, &none, sizeof info), 0);
  std::uint32_t count = 9;
  TMXGetLinkCount(b.f(), &count);
  EXPECT_EQ(count, 0u);
}

TEST(LegacyFrames, ABrokenLaterSegmentStopsTheReaderInPlace) {
  LegacyLayout l;
  const ByteVec good = Write(Segmented(6, {19}), &l);
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
}

TEST(LegacyFrames, AFailureToGrowTheSegmentTableLeavesTheReaderInPlace) {
  Book b(Write(Segmented(20, {19})));
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
  static std::int32_t Create(void** slot, const std::uint8_t*, std::uint32_t length,
                             const Codec*) {
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
  ByteVec input;
  for (std::uint32_t i = 0; i < 3; ++i) {
    const ByteVec frame = Frame(i);
    input.insert(input.end(), frame.begin(), frame.end());
  }
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
