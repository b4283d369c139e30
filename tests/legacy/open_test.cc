// Opening programmes of the older container: properties, every structural
// check, the table of contents and allocation failures; and the writer's
// refusals.
#include <gtest/gtest.h>

#include <tuple>

#include "container/legacy/handler.h"
#include "legacy/legacy_files.h"

namespace tmx::legacy::test {
namespace {

// The handler's own open, closed again on success: for the checks that type
// detection would make first.
std::int32_t OpenDirectly(const ByteVec& bytes) {
  ::tmx::test::MemoryStream stream(bytes);
  Container file{};
  file.stream = stream.stream();
  file.fileType = TMX_FILETYPE_LEGACY_C010;
  const std::int32_t rc = kHandler.OpenContainer(&file, stream.stream());
  if (rc == TMX_OK) kHandler.CloseContainer(&file);
  EXPECT_EQ(file.state, nullptr);
  EXPECT_EQ(file.info.chapterStartFrames, nullptr);
  return rc;
}

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
    EXPECT_EQ(std::tuple(ms, f->fileType, f->sampleRate, f->avgBitrate, f->maxBitrate,
                         f->channelCount, f->frameCount, f->samplesPerFrame,
                         f->positionSaveInterval, f->framesUntilSave, f->audioTrackType),
              std::tuple(c.durationMs, c.fileType, c.rate, c.bitrate, c.bitrate, 1u, c.frames,
                         c.samplesPerFrame, c.saveInterval, c.saveInterval, c.trackType))
        << c.frames;
  }
}

TEST(LegacyOpen, RefusesInconsistentStructures) {
  LegacyLayout l;
  const ByteVec good = Write(Programme(10), &l);
  auto entry = [&](int type) { return l.records[type].entryPos; };
  auto record = [&](int type) { return l.records[type].offset; };
  const std::uint32_t size = l.fileSize, segment = record(10);
  enum How { kOpen, kDirect, kSizeUnknown };
  const struct {
    const char* what;
    std::uint32_t at, value;
    std::int32_t expected;
    How how = kOpen;  // kDirect: type detection refuses it first
  } cases[] = {
      {"size word differs from the stream", 0, size + 1, TMX_ERR_INCONSISTENT, kDirect},
      {"wrong magic", 4, 0x57907537, TMX_ERR_UNSUPPORTED, kDirect},
      {"table larger than the file", 8, 0x20000000, TMX_ERR_INCONSISTENT},
      {"header record missing", entry(1), 9, TMX_ERR_END},
      {"header record of 23 bytes", entry(1) + 8, 23, TMX_ERR_INCONSISTENT},
      {"header record outside the file", entry(1) + 4, size - 8, TMX_ERR_INCONSISTENT},
      {"header record version 2", record(1), 0x00020000, TMX_ERR_UNSUPPORTED},
      {"header record second field", record(1), 0x00010001, TMX_ERR_INCONSISTENT},
      {"header record magic", record(1) + 4, 0, TMX_ERR_INCONSISTENT},
      {"audio record missing", entry(3), 9, TMX_ERR_END},
      {"audio record too small", entry(3) + 8, 65, TMX_ERR_INCONSISTENT},
      {"chapter list missing", entry(6), 9, TMX_ERR_END, kDirect},
      {"chapter list shorter than a chapter", entry(6) + 8, 29, TMX_ERR_INCONSISTENT},
      {"chapter pairs running past the list", record(6) + 26, 1, TMX_ERR_INCONSISTENT},
      {"first segment missing", entry(10), 9, TMX_ERR_END},
      {"segment data not behind its header", segment + 4, segment + 9, TMX_ERR_INCONSISTENT},
      {"nothing changed", 0, size, TMX_OK, kDirect},
      // A stream that does not know its size is not held to the size word.
      {"size word 0", 0, 0, TMX_OK, kSizeUnknown},
      {"size word one short", 0, size - 1, TMX_OK, kSizeUnknown},
      {"size word 100 over", 0, size + 100, TMX_OK, kSizeUnknown},
      // Only a segment's data position is checked, not its size: one that
      // runs past the file still delivers the frames that are in the file.
      {"segment one byte over", segment, 10 * kFrame + 1, TMX_OK},
      {"segment of 4 GiB", segment, 0xFFFFFFF8u, TMX_OK},
  };
  for (const auto& c : cases) {
    ByteVec bytes = good;
    Put32(bytes, c.at, c.value);
    if (c.how == kDirect) {
      EXPECT_EQ(OpenDirectly(bytes), c.expected) << c.what;
      continue;
    }
    Book b(bytes, c.how == kSizeUnknown);
    EXPECT_EQ(b.rc(), c.expected) << c.what;
    if (b.rc() != TMX_OK) continue;
    for (std::uint32_t i = 0; i < 10; ++i) EXPECT_EQ(b.Read(), Frame(i)) << c.what;
    std::int32_t rc = 0;
    b.Read(&rc);
    EXPECT_EQ(rc, TMX_ERR_END) << c.what;
  }
}

// A programme whose table starts with a placeholder entry (at 16) and 13 of
// unknown types, and ends with two more and a placeholder: the genuine
// records lie beyond the twelfth entry. The first or the last entry is then
// pointed, as a record of `type`, at `record` hidden in the cover picture.
ByteVec Hidden(ByteVec record, bool last, std::uint32_t type) {
  LegacyProgramme p = Programme(4);
  p.cover = std::move(record);
  p.leadingEntries = {{9, 0, 0}};
  for (std::uint32_t unknown : {0u, 4u, 5u, 7u, 8u, 9u, 12u, 13u, 0xFFFFFFFFu, 0u, 4u, 5u, 7u})
    p.leadingEntries.push_back({unknown, 0, 0});
  p.trailingEntries = {{12, 1, 1}, {0x8000000B, 0, 0}, {9, 0, 0}};
  LegacyLayout layout;
  ByteVec bytes = Write(p, &layout);
  const std::uint32_t entryPos = 16 + (last ? 12 * (::tmx::test::Be32At(bytes, 8) - 1) : 0);
  Put32(bytes, entryPos, type);
  Put32(bytes, entryPos + 4, layout.records[11].offset + 8);
  Put32(bytes, entryPos + 8, std::uint32_t(p.cover.size()));
  return bytes;
}

TEST(LegacyOpen, EntriesBeyondTheTwelfthAreReadAndTheLaterOfATypeWins) {
  using ::tmx::test::Concat, ::tmx::test::Be32;
  const ByteVec fake = Concat({Be32(1), {0}, Be32(5), Be32(4), V("titleFake")});
  Book first(Hidden(fake, false, 2));
  EXPECT_EQ(first.Text(FourCC("@tit")), "Bleak House");
  EXPECT_EQ(first.Text(FourCC("@aut")), "Dickens");
  EXPECT_EQ(first.Read(), Frame(0));
  EXPECT_EQ(Book(Hidden(fake, true, 2)).Text(FourCC("@tit")), "Fake");

  // Detection takes the codec id from the first chapter list, the reader
  // from the last: they must agree.
  const ByteVec list = Concat({Be32(1), ByteVec(12, 0), Be32(20), Be32(0),
                               ::tmx::test::Be16(writer::kLegacyCodecSpeech16), Be32(0)});
  EXPECT_EQ(Book(Hidden(list, false, 6)).rc(), TMX_ERR_INCONSISTENT);
}

TEST(LegacyOpen, ChapterList) {
  LegacyProgramme p = Programme(10);
  p.chapters = {{3, 2}, {5, 0}, {2, 1}};
  Book b(Write(p));
  std::uint32_t count = 0;
  EXPECT_EQ(TMXGetChapterCount(b.f(), &count), TMX_OK);
  ASSERT_EQ(count, 3u);
  std::vector<std::uint32_t> starts(3);
  for (std::uint32_t i = 0; i < 3; ++i)
    EXPECT_EQ(TMXGetChapterStartTime(b.f(), i, &starts[i]), TMX_OK);
  EXPECT_EQ(starts, (std::vector<std::uint32_t>{0, 3 * 18, 8 * 18}));
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

TEST(LegacyWriter, RefusesInvalidInput) {
  LegacyProgramme codec = Programme(4), frame = Programme(4), segments = Programme(4);
  codec.codecId = 0xC013;
  frame.frames[2].push_back(0);
  segments.segmentSizes = {19, 0};
  for (const LegacyProgramme* p : {&codec, &frame, &segments}) {
    ::tmx::test::MemoryStream out;
    EXPECT_EQ(writer::WriteLegacyProgramme(*p, out.stream()), TMX_ERR_ARGUMENT);
  }
  EXPECT_EQ(writer::WriteLegacyProgramme(Programme(4), nullptr), TMX_ERR_ARGUMENT);
  ::tmx::test::MemoryStream readOnly, failing;
  readOnly.ops().Write = nullptr;
  EXPECT_EQ(writer::WriteLegacyProgramme(Programme(4), readOnly.stream()), TMX_ERR_STREAM_OPS);
  failing.fail_write(1);
  EXPECT_EQ(writer::WriteLegacyProgramme(Programme(4), failing.stream()), TMX_ERR_WRITE);
}

}  // namespace
}  // namespace tmx::legacy::test
