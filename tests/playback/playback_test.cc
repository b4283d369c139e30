// Frame access, seeking, chapters and the position file, through the exports.
#include <gtest/gtest.h>

#include "container/mp4/mp4_fixture.h"
#include "playback/position.h"
#include "util/frame_time.h"
#include "util/status.h"

namespace tmx {
namespace {

using namespace tmx::test;

TrackSpec Audio(std::uint32_t frames, std::uint32_t rate, std::uint32_t frameSize = 12) {
  TrackSpec t;
  t.timescale = rate;
  t.samples = MakeFrames(frames, frameSize);
  t.samplesPerChunk = 8;
  return t;
}

// Chapter titles in a track of another timescale: its deltas still count
// audio samples.
TrackSpec Titles(const std::vector<std::uint32_t>& startFrames, std::uint32_t total) {
  TrackSpec t =
      TitleTrack(2, std::vector<std::string>(startFrames.size(), "Chapter"), startFrames, total);
  t.timescale = 1000;
  return t;
}

// 32 kHz makes every frame exactly 32 ms.
ProgrammeSpec Book(std::uint32_t frames = 16000) {
  ProgrammeSpec plan;
  plan.audioSpecificConfig = 0x1288;  // LC, 32 kHz, mono
  plan.tracks.push_back(Audio(frames, 32000, 4));
  plan.tracks[0].chap = {2};
  plan.tracks.push_back(Titles({0, 1875, 3750}, frames));
  return plan;
}

ByteVec RecordBytes(std::uint32_t version, std::uint32_t position, std::uint32_t finished,
                    std::int64_t checksum = -1) {
  const std::uint32_t sum =
      checksum < 0 ? PositionChecksum(position, finished) : std::uint32_t(checksum);
  return Concat({Be32(version), Be32(sum), Be32(position), Be32(finished)});
}

TEST(Playback, ArgumentChecksComeFirst) {
  TMXFrameInfo info;
  std::uint8_t buf[4];
  std::uint32_t v;
  EXPECT_EQ(TMXGetNextFrameInfo(nullptr, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetEncodedAudio(nullptr, nullptr, 4, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSkipNextFrame(nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSeek(nullptr, 0), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSeekToChapter(nullptr, 0), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetChapterStartTime(nullptr, 0, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSavePlaybackPosition(nullptr, 0), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetOriginalTitle(nullptr, &v, &v, &v, &v, &v, &v, &v), TMX_ERR_HANDLE);

  OpenProgramme p(BuildProgramme(Book(100)).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  EXPECT_EQ(TMXGetNextFrameInfo(p.file(), nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedAudio(p.file(), nullptr, 4, &v), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedAudio(p.file(), buf, 4, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetChapterStartTime(p.file(), 0, nullptr), TMX_ERR_ARGUMENT);
  TMXFile* f = p.file();
  EXPECT_EQ(TMXGetOriginalTitle(f, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            TMX_ERR_ARGUMENT);
  // Programmes of this container have no original title.
  std::uint32_t w[7] = {9, 9, 9, 9, 9, 9, 9};
  ASSERT_EQ(TMXGetOriginalTitle(f, &w[0], &w[1], &w[2], &w[3], &w[4], &w[5], &w[6]), TMX_OK);
  EXPECT_EQ(w[0], 0u);
  EXPECT_EQ(w[1], 9u);
  // Nothing has been described yet.
  EXPECT_EQ(TMXSkipNextFrame(f), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(TMXGetNextFrameInfo(f, &info), TMX_OK);
}

TEST(Playback, ChaptersAndTheCurrentChapter) {
  OpenProgramme p(BuildProgramme(Book()).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  std::uint32_t v = 0;
  ASSERT_EQ(TMXGetChapterCount(p.file(), &v), TMX_OK);
  EXPECT_EQ(v, 3u);
  for (auto [chapter, ms] : {std::pair{0u, 0u}, std::pair{1u, 60000u}, std::pair{2u, 120000u}}) {
    ASSERT_EQ(TMXGetChapterStartTime(p.file(), chapter, &v), TMX_OK);
    EXPECT_EQ(v, ms);
  }
  EXPECT_EQ(TMXGetChapterStartTime(p.file(), 3, &v), TMX_ERR_INDEX);
  for (auto [ms, chapter] : {std::pair{60000u, 1u}, std::pair{59999u, 0u}, std::pair{500000u, 2u},
                             std::pair{0u, 0u}, std::pair{120000u, 2u}}) {
    ASSERT_EQ(TMXSeek(p.file(), ms), TMX_OK) << ms;
    ASSERT_EQ(TMXGetCurrentChapter(p.file(), &v), TMX_OK);
    EXPECT_EQ(v, chapter) << ms;
  }
  ASSERT_EQ(TMXSeekToChapter(p.file(), 2), TMX_OK);
  EXPECT_EQ(p.file()->reader.currentFrame, 3750u);
  EXPECT_EQ(p.file()->reader.decoderResetPending, 1u);
  EXPECT_EQ(TMXSeekToChapter(p.file(), 3), TMX_ERR_INDEX);
}

TEST(Playback, ReadsToTheEndThenStartsAgain) {
  auto plan = Book(40);
  MemoryStream position;
  OpenProgramme p(BuildProgramme(plan).bytes, &position);
  ASSERT_EQ(p.rc(), TMX_OK);
  ByteVec frame;
  for (std::uint32_t i = 0; i < 40; ++i) {
    ASSERT_EQ(p.ReadAudio(frame), TMX_OK) << i;
    EXPECT_EQ(frame, plan.tracks[0].samples[i]);
  }
  EXPECT_EQ(p.ReadAudio(frame), TMX_ERR_END);
  // The end wrote a finished record whose checksum leaves the flag out.
  EXPECT_EQ(position.data(), RecordBytes(2, 0, 1, PositionChecksum(0, 0)));
  EXPECT_EQ(PositionChecksum(0x01020304, 1), ~11u);  // the complement of a byte sum
  ASSERT_EQ(p.ReadAudio(frame), TMX_OK);
  EXPECT_EQ(frame, plan.tracks[0].samples[0]);
}

TEST(Playback, AdtsHeadersAndSmallBuffers) {
  // Profile, rate index and channels from the configuration; 4207 bytes in
  // all; buffer fullness 0x7FF.
  const struct {
    std::uint16_t asc;
    std::uint8_t byte2, byte3;
  } cases[] = {
      {0x1208, 0x50, 0x72}, {0x1230, 0x51, 0xB2}, {0x1390, 0x5C, 0xB2},
      {0x1188, 0x4C, 0x72}, {0x1590, 0x6C, 0xB2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.asc);
    auto plan = Book(10);
    plan.audioSpecificConfig = c.asc;
    plan.tracks[0].samples[0] = ByteVec(4200, 0x5A);
    OpenProgramme p(BuildProgramme(plan).bytes);
    ASSERT_EQ(p.rc(), TMX_OK);
    TMXEnableADTSHeaders(p.file());
    ByteVec frame;
    EXPECT_EQ(p.ReadAudio(frame, 4206), TMX_ERR_BUFFER);
    ASSERT_EQ(p.ReadAudio(frame, 4207), TMX_OK);
    EXPECT_EQ(frame,
              Concat({{0xFF, 0xF9, c.byte2, c.byte3, 0x0D, 0xFF, 0xFC}, ByteVec(4200, 0x5A)}));
    TMXDisableADTSHeaders(p.file());
    ASSERT_EQ(p.ReadAudio(frame), TMX_OK);
    EXPECT_EQ(frame, plan.tracks[0].samples[1]);
  }
}

TEST(PositionFile, SavesOnSeekAndClose) {
  const auto bytes = BuildProgramme(Book(4000)).bytes;
  MemoryStream position;
  {
    OpenProgramme p(bytes, &position);
    ASSERT_EQ(p.rc(), TMX_OK);
    ASSERT_EQ(TMXSeek(p.file(), 64000), TMX_OK);
    EXPECT_EQ(position.data(), RecordBytes(2, 64000, 0));
    ASSERT_EQ(TMXSeek(p.file(), 96000), TMX_OK);
  }
  EXPECT_EQ(position.data(), RecordBytes(2, 96000, 0));  // the close wrote it again
  EXPECT_EQ(position.closes(), 1);
}

// A saved place is restored; bad records start at the beginning, finished ones
// on the last frame.
TEST(PositionFile, RecordsReadAtOpen) {
  const auto bytes = BuildProgramme(Book(4000)).bytes;
  ByteVec changed = RecordBytes(2, 64000, 0);
  changed[10] ^= 0x10;  // a changed byte in the position field
  const struct {
    const char* name;
    ByteVec record;
    std::int32_t rc;      // of the first frame request
    std::uint32_t frame;  // where the reader stands after it
  } cases[] = {
      {"saved", RecordBytes(2, 96000, 0), TMX_OK, 3000},
      {"empty", {}, TMX_OK, 0},
      {"short", ByteVec(10, 0), TMX_OK, 0},
      {"another version", RecordBytes(1, 64000, 0), TMX_OK, 0},
      {"changed checksum", RecordBytes(2, 64000, 0, PositionChecksum(64000, 0) ^ 1), TMX_OK, 0},
      {"changed position", changed, TMX_OK, 0},
      // The last frame lies in the chunk the tables cannot seek to: the
      // request fails with the reader at the end.
      {"finished", RecordBytes(2, 1000, 1), TMX_ERR_SEEK_RANGE, 4000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MemoryStream position(c.record);
    OpenProgramme p(bytes, &position);
    ASSERT_EQ(p.rc(), TMX_OK);
    TMXFrameInfo info{};
    EXPECT_EQ(TMXGetNextFrameInfo(p.file(), &info), c.rc);
    EXPECT_EQ(p.file()->reader.currentFrame, c.frame);
  }
}

TEST(PositionFile, MissingFileIsCreatedOnTheFirstSave) {
  const auto bytes = BuildProgramme(Book(100)).bytes;
  MemoryStream position;
  position.ops().Open = [](TMXStream*, std::int32_t) -> std::int32_t { return TMX_ERR_FILE; };
  OpenProgramme p(bytes, &position);
  ASSERT_EQ(p.rc(), TMX_OK);
  ByteVec frame;
  // The load finds no file and plays from 0; the first save creates it.
  ASSERT_EQ(p.ReadAudio(frame), TMX_OK);
  EXPECT_EQ(position.opens(), 1);
  EXPECT_EQ(position.data().size(), 0u);  // the countdown has not run out
  ASSERT_EQ(TMXSavePlaybackPosition(p.file(), 0), TMX_OK);
  EXPECT_EQ(position.opens(), 1);
  EXPECT_EQ(position.data(), RecordBytes(2, 32, 0));

  // Neither open nor create: every save reports -1.
  MemoryStream nowhere;
  nowhere.ops().Open = position.ops().Open;
  nowhere.ops().Create = [](TMXStream*) -> std::int32_t { return TMX_ERR_FILE; };
  OpenProgramme q(bytes, &nowhere);
  EXPECT_EQ(TMXSavePlaybackPosition(q.file(), 0), TMX_ERR_FILE);
  EXPECT_EQ(TMXSeek(q.file(), 64), TMX_OK);
}

TEST(PositionFile, PeriodicSavesFollowTheCountdown) {
  ProgrammeSpec plan;
  plan.tracks.push_back(Audio(2000, 22050, 4));
  MemoryStream position;
  OpenProgramme p(BuildProgramme(plan).bytes, &position);
  ASSERT_EQ(p.rc(), TMX_OK);
  ASSERT_EQ(p.file()->positionSaveInterval, 645);
  ByteVec frame;
  std::vector<std::uint32_t> writtenAt;
  int writes = position.writes();
  for (std::uint32_t i = 1; i <= 1950; ++i) {
    ASSERT_EQ(p.ReadAudio(frame), TMX_OK);
    if (position.writes() != writes) writtenAt.push_back(i);
    writes = position.writes();
    if (i == 1300) {  // a seek restarts the count
      ASSERT_EQ(TMXSeek(p.file(), FramesToMs(1300, 22050, 1024) + 1), TMX_OK);
      ASSERT_EQ(p.file()->reader.currentFrame, 1300u);
      writes = position.writes();
    }
  }
  EXPECT_EQ(writtenAt, (std::vector<std::uint32_t>{646, 1292, 1946}));
}

}  // namespace
}  // namespace tmx
