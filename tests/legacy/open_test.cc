// Opening programmes of the older container: properties, every structural
// check, the table of contents and allocation failures.
#include <gtest/gtest.h>

#include "legacy/legacy_files.h"
#include "util/alloc.h"

namespace tmx::legacy::test {
namespace {

TEST(LegacyOpen, ReportsTheCodecsProperties) {
  const struct {
    std::uint16_t codec;
    std::uint32_t frames, fileType, rate, bitrate, samplesPerFrame, durationMs;
    std::int32_t saveInterval;
    std::uint32_t trackType;
  } cases[] = {
      {0xC010, 1000, 6, 8000, 8444, 144, 18000, 1666, FourCC("ace2")},
      // 2400 samples at 16 kHz last 150 ms: durations are whole tenths.
      {0xC00C, 15, 5, 16000, 16000, 160, 100, 3000, FourCC("ace3")},
      {0xC00C, 50000, 5, 16000, 16000, 160, 500000, 3000, FourCC("ace3")},
      {0xC00D, 10, 4, 22050, 31850, 576, 200, 1148, FourCC("mp3 ")},
  };
  for (const auto& c : cases) {
    Book b(Write(Programme(c.frames, c.codec)));
    ASSERT_EQ(b.rc(), TMX_OK) << c.codec;
    const TMXFile* f = b.f();
    std::uint32_t ms = 0;
    EXPECT_EQ(TMXGetDuration(b.f(), &ms), TMX_OK);
    EXPECT_EQ(ms, c.durationMs) << c.frames;
    EXPECT_EQ(f->fileType, c.fileType);
    EXPECT_EQ(f->sampleRate, c.rate);
    EXPECT_EQ(f->avgBitrate, c.bitrate);
    EXPECT_EQ(f->maxBitrate, c.bitrate);
    EXPECT_EQ(f->channelCount, 1u);
    EXPECT_EQ(f->frameCount, c.frames);
    EXPECT_EQ(f->samplesPerFrame, c.samplesPerFrame);
    EXPECT_EQ(f->positionSaveInterval, c.saveInterval);
    EXPECT_EQ(f->framesUntilSave, c.saveInterval);
    EXPECT_EQ(f->audioTrackType, c.trackType);
  }
}

TEST(LegacyOpen, RefusesInconsistentStructures) {
  LegacyLayout l;
  const ByteVec good = Write(Programme(10), &l);
  auto entry = [&](int type) { return l.records[type].entryPos; };
  auto record = [&](int type) { return l.records[type].offset; };
  const std::uint32_t size = l.fileSize, segment = record(10);
  const struct {
    const char* what;
    std::uint32_t at, value;
    std::int32_t expected;
    bool direct = false;  // type detection refuses it first
  } cases[] = {
      {"size word differs from the stream", 0, size + 1, TMX_ERR_INCONSISTENT, true},
      {"wrong magic", 4, 0x57907537, TMX_ERR_UNSUPPORTED, true},
      {"table larger than the file", 8, 0x20000000, TMX_ERR_INCONSISTENT},
      {"header record missing", entry(1), 9, TMX_ERR_END},
      {"header record of 23 bytes", entry(1) + 8, 23, TMX_ERR_INCONSISTENT},
      {"header record outside the file", entry(1) + 4, size - 8, TMX_ERR_INCONSISTENT},
      {"header record version 2", record(1), 0x00020000, TMX_ERR_UNSUPPORTED},
      {"header record second field", record(1), 0x00010001, TMX_ERR_INCONSISTENT},
      {"header record magic", record(1) + 4, 0, TMX_ERR_INCONSISTENT},
      {"audio record missing", entry(3), 9, TMX_ERR_END},
      {"audio record too small", entry(3) + 8, 65, TMX_ERR_INCONSISTENT},
      {"chapter list missing", entry(6), 9, TMX_ERR_END, true},
      {"chapter list shorter than a chapter", entry(6) + 8, 29, TMX_ERR_INCONSISTENT},
      {"chapter pairs running past the list", record(6) + 26, 1, TMX_ERR_INCONSISTENT},
      {"first segment missing", entry(10), 9, TMX_ERR_END},
      {"segment data not behind its header", segment + 4, segment + 9, TMX_ERR_INCONSISTENT},
  };
  for (const auto& c : cases) {
    ByteVec bytes = good;
    Put32(bytes, c.at, c.value);
    EXPECT_EQ(c.direct ? OpenDirectly(bytes) : Book(bytes).rc(), c.expected) << c.what;
  }
  EXPECT_EQ(OpenDirectly(good), TMX_OK);
  // A stream that does not know its size is not held to the size word.
  for (std::uint32_t word : {0u, size - 1, size + 100}) {
    ByteVec bytes = good;
    Put32(bytes, 0, word);
    EXPECT_EQ(Book(bytes, true).rc(), TMX_OK) << word;
  }
  // Only a segment's data position is checked, not its size: one that runs
  // past the file still delivers the frames that are in the file.
  for (std::uint32_t stated : {10 * kFrame + 1, 0xFFFFFFF8u}) {
    ByteVec bytes = good;
    Put32(bytes, segment, stated);
    Book b(bytes);
    ASSERT_EQ(b.rc(), TMX_OK) << stated;
    for (std::uint32_t i = 0; i < 10; ++i) EXPECT_EQ(b.Read(), Frame(i)) << stated;
    std::int32_t rc = 0;
    b.Read(&rc);
    EXPECT_EQ(rc, TMX_ERR_END);
  }
}

// Placeholder entries first and last in the table, pointed after writing at
// a record hidden in the cover picture.
struct Hidden {
  ByteVec bytes;
  std::uint32_t first = 16, last = 16 + 12 * 7, at = 0, size = 0;
  explicit Hidden(ByteVec record) {
    LegacyProgramme p = Programme(4);
    p.cover = std::move(record);
    p.leadingEntries = p.trailingEntries = {{9, 0, 0}};
    LegacyLayout layout;
    bytes = Write(p, &layout);
    at = layout.records[11].offset + 8;
    size = std::uint32_t(p.cover.size());
  }
  const ByteVec& Point(std::uint32_t entryPos, std::uint32_t type) {
    Put32(bytes, entryPos, type);
    Put32(bytes, entryPos + 4, at);
    Put32(bytes, entryPos + 8, size);
    return bytes;
  }
};

TEST(LegacyOpen, TheLaterEntryOfATypeWins) {
  using ::tmx::test::Concat, ::tmx::test::Be32, ::tmx::test::V;
  auto fake = [] { return Concat({Be32(1), {0}, Be32(5), Be32(4), V("titleFake")}); };
  EXPECT_EQ(Book(Hidden(fake()).Point(16, 2)).Text(FourCC("@tit")), "Bleak House");
  EXPECT_EQ(Book(Hidden(fake()).Point(16 + 12 * 7, 2)).Text(FourCC("@tit")), "Fake");

  // Detection takes the codec id from the first chapter list, the reader
  // from the last: they must agree.
  const ByteVec list = Concat({Be32(1), ByteVec(12, 0), Be32(20), Be32(0),
                               ::tmx::test::Be16(writer::kLegacyCodecSpeech16), Be32(0)});
  EXPECT_EQ(Book(Hidden(list).Point(16, 6)).rc(), TMX_ERR_INCONSISTENT);
}

TEST(LegacyOpen, EntriesBeyondTheTwelfthAreRead) {
  LegacyProgramme p = Programme(6);
  for (std::uint32_t type : {0u, 4u, 5u, 7u, 8u, 9u, 12u, 13u, 0xFFFFFFFFu, 0u, 4u, 5u, 7u})
    p.leadingEntries.push_back({type, 0, 0});
  p.trailingEntries = {{12, 1, 1}, {0x8000000B, 0, 0}};
  Book b(Write(p));
  ASSERT_EQ(b.rc(), TMX_OK);
  EXPECT_EQ(b.Text(FourCC("@aut")), "Dickens");
  EXPECT_EQ(b.Read(), Frame(0));
}

TEST(LegacyOpen, ChapterList) {
  LegacyProgramme p = Programme(10);
  p.chapters = {{3, 2}, {5, 0}, {2, 1}};
  Book b(Write(p));
  std::uint32_t count = 0, ms = 0;
  EXPECT_EQ(TMXGetChapterCount(b.f(), &count), TMX_OK);
  ASSERT_EQ(count, 3u);
  const std::uint32_t starts[] = {0, 3 * 18, 8 * 18};
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(TMXGetChapterStartTime(b.f(), i, &ms), TMX_OK);
    EXPECT_EQ(ms, starts[i]);
  }
  p.chapters.assign(130, {1, 0});
  TMXGetChapterCount(Book(Write(p)).f(), &count);
  EXPECT_EQ(count, 128u);

  // A list without chapters: the codec stays the one detected.
  LegacyLayout layout;
  ByteVec bytes = Write(Programme(10), &layout);
  Put32(bytes, layout.records[6].offset, 0);
  Book none(bytes);
  TMXGetChapterCount(none.f(), &count);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(none.Read(), Frame(0));
}

TEST(LegacyOpen, EveryAllocationFailureOfOpenIsCleanedUp) {
  LegacyProgramme p = Programme(40);
  p.chapters = {{20, 0}, {20, 0}};
  const ByteVec bytes = Write(p);
  const std::int64_t live = tmx::testing::LiveAllocations();
  std::uint64_t k = 1;
  for (;; ++k) {
    ::tmx::test::MemoryStream stream(bytes);
    TMXFile* f = nullptr;
    tmx::testing::FailAllocation(k);
    const std::int32_t rc = TMXOpenFile(&f, stream.stream(), nullptr);
    tmx::testing::FailAllocation(0);
    if (rc == TMX_OK) {
      TMXCloseFile(f);
      break;
    }
    EXPECT_EQ(rc, TMX_ERR_MEMORY) << k;
    EXPECT_EQ(tmx::testing::LiveAllocations(), live) << k;
    ASSERT_LT(k, 20u);
  }
  // The file, the reader's state, the chapter starts and the segment table.
  EXPECT_EQ(k, 5u);
}

}  // namespace
}  // namespace tmx::legacy::test
