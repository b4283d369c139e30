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

PositionRecord Record(const MemoryStream& m) {
  const auto& d = const_cast<MemoryStream&>(m).data();
  return {Be32At(d, 0), Be32At(d, 4), Be32At(d, 8), Be32At(d, 12)};
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
  EXPECT_EQ(TMXGetCurrentChapter(nullptr, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetPlaybackPosition(nullptr, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSavePlaybackPosition(nullptr, 0), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetOriginalTitle(nullptr, &v, &v, &v, &v, &v, &v, &v), TMX_ERR_HANDLE);

  OpenProgramme p(BuildProgramme(Book(100)).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  EXPECT_EQ(TMXGetNextFrameInfo(p.file(), nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedAudio(p.file(), nullptr, 4, &v), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedAudio(p.file(), buf, 4, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetChapterStartTime(p.file(), 0, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetCurrentChapter(p.file(), nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetPlaybackPosition(p.file(), nullptr), TMX_ERR_ARGUMENT);
  // Nothing has been described yet.
  EXPECT_EQ(TMXSkipNextFrame(p.file()), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(TMXGetNextFrameInfo(p.file(), &info), TMX_OK);
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

TEST(Playback, CurrentChapterNeedsChapters) {
  auto plan = Book(100);
  plan.tracks[0].chap.clear();
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  std::uint32_t v = 9;
  EXPECT_EQ(TMXGetCurrentChapter(p.file(), &v), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(TMXGetChapterCount(p.file(), &v), TMX_OK);
  EXPECT_EQ(v, 0u);
}

TEST(Playback, SeekBoundaries) {
  OpenProgramme p(BuildProgramme(Book(100)).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  // Frame 95 begins at 3040 ms; the last chunk (frames 96-99) is reached
  // only by reading on, and 100 frames end at 3200 ms.
  EXPECT_EQ(TMXSeek(p.file(), 3040), TMX_OK);
  EXPECT_EQ(p.file()->reader.currentFrame, 95u);
  EXPECT_EQ(TMXSeek(p.file(), 3200), TMX_ERR_SEEK_RANGE);
  EXPECT_EQ(TMXSeek(p.file(), 0xFFFFFFFF), TMX_ERR_SEEK_RANGE);
  EXPECT_EQ(TMXSeek(p.file(), 0), TMX_OK);
  p.file()->samplesPerFrame = 0;
  EXPECT_EQ(TMXSeek(p.file(), 0), TMX_ERR_INCONSISTENT);
  p.file()->samplesPerFrame = 1024;
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
  PositionRecord r = Record(position);
  EXPECT_EQ(r.version, 2u);
  EXPECT_EQ(r.position, 0u);
  EXPECT_EQ(r.finished, 1u);
  EXPECT_EQ(r.checksum, PositionChecksum(0, 0));
  EXPECT_EQ(PositionChecksum(0x01020304, 1), ~11u);  // the complement of a byte sum
  ASSERT_EQ(p.ReadAudio(frame), TMX_OK);
  EXPECT_EQ(frame, plan.tracks[0].samples[0]);
}

TEST(Playback, AdtsHeadersAndSmallBuffers) {
  for (std::uint16_t asc : {0x1208, 0x1230, 0x1390, 0x1188, 0x1590}) {
    auto plan = Book(10);
    plan.audioSpecificConfig = asc;
    plan.tracks[0].samples[0] = ByteVec(4200, 0x5A);
    OpenProgramme p(BuildProgramme(plan).bytes);
    ASSERT_EQ(p.rc(), TMX_OK);
    TMXEnableADTSHeaders(p.file());
    ByteVec frame;
    EXPECT_EQ(p.ReadAudio(frame, 4206), TMX_ERR_BUFFER);
    ASSERT_EQ(p.ReadAudio(frame, 4207), TMX_OK);
    ASSERT_EQ(frame.size(), 4207u);
    // Field by field.
    EXPECT_EQ(frame[0], 0xFF);
    EXPECT_EQ(frame[1], 0xF9);                           // sync, MPEG-2, layer 0, no CRC
    EXPECT_EQ(frame[2] >> 6, (asc >> 11) - 1);           // profile
    EXPECT_EQ((frame[2] >> 2) & 0xF, (asc >> 7) & 0xF);  // rate index
    EXPECT_EQ(((frame[2] & 1) << 2) | (frame[3] >> 6), (asc >> 3) & 0xF);  // channels
    EXPECT_EQ(frame[3] & 0x30, 0x30);                                      // original/copy and home
    EXPECT_EQ(((frame[3] & 3) << 11) | (frame[4] << 3) | (frame[5] >> 5), 4207);
    EXPECT_EQ(((frame[5] & 0x1F) << 6) | (frame[6] >> 2), 0x7FF);
    EXPECT_EQ(frame[6] & 3, 0);
    EXPECT_EQ(ByteVec(frame.begin() + 7, frame.end()), ByteVec(4200, 0x5A));
    TMXDisableADTSHeaders(p.file());
    ASSERT_EQ(p.ReadAudio(frame), TMX_OK);
    EXPECT_EQ(frame, plan.tracks[0].samples[1]);
  }
}

TEST(Playback, NextFrameInfoFiltersSideSamples) {
  ProgrammeSpec plan = Book(40);
  plan.tracks[1] = Titles({0, 10, 25}, 40);
  plan.tracks[0].chap = {2, 3};
  plan.tracks.push_back(SideTrack(3, "jpeg", {ByteVec(50, 1), ByteVec(70, 2)}, 0x1000, 20));
  auto walk = [&](bool text, bool images) {
    OpenProgramme p(BuildProgramme(plan).bytes);
    EXPECT_EQ(p.rc(), TMX_OK);
    if (text) TMXEnableChapterText(p.file());
    if (images) TMXEnableChapterImages(p.file());
    std::vector<TMXFrameInfo> seen;
    TMXFrameInfo info;
    while (TMXGetNextFrameInfo(p.file(), &info) == TMX_OK && seen.size() < 200) {
      seen.push_back(info);
      EXPECT_EQ(TMXSkipNextFrame(p.file()), TMX_OK);
    }
    return seen;
  };
  auto count = [](const std::vector<TMXFrameInfo>& v, const char(&t)[5]) {
    return std::count_if(v.begin(), v.end(), [&](auto& i) { return i.type == FourCC(t); });
  };
  auto audioOnly = walk(false, false);
  EXPECT_EQ(audioOnly.size(), 40u);
  EXPECT_EQ(count(audioOnly, "mp4a"), 40);
  auto all = walk(true, true);
  EXPECT_EQ(count(all, "mp4a"), 40);
  EXPECT_EQ(count(all, "jpeg"), 1);  // the first picture shares frame 0 with the reader's start
  EXPECT_EQ(count(all, "text"), 2);  // the titles at frames 10 and 25
  for (const auto& i : all) {
    if (i.type == FourCC("jpeg")) {
      EXPECT_EQ(i.size, 70u);
      EXPECT_EQ(i.index, 1u);
    }
  }
}

TEST(PositionFile, SavesOnSeekAndCloseAndRestoresAtOpen) {
  const auto bytes = BuildProgramme(Book(4000)).bytes;
  MemoryStream position;
  {
    OpenProgramme p(bytes, &position);
    ASSERT_EQ(p.rc(), TMX_OK);
    ASSERT_EQ(TMXSeek(p.file(), 64000), TMX_OK);
    PositionRecord r = Record(position);
    EXPECT_EQ(r.position, 64000u);
    EXPECT_EQ(r.finished, 0u);
    ASSERT_EQ(TMXSeek(p.file(), 96000), TMX_OK);
  }
  EXPECT_EQ(Record(position).position, 96000u);  // the close wrote it again
  EXPECT_EQ(position.closes(), 1);
  OpenProgramme q(bytes, &position);
  ASSERT_EQ(q.rc(), TMX_OK);
  std::uint32_t ms = 0;
  ASSERT_EQ(TMXGetPlaybackPosition(q.file(), &ms), TMX_OK);
  EXPECT_EQ(ms, 96000u);
  EXPECT_EQ(q.file()->reader.decoderResetPending, 1u);
}

TEST(PositionFile, BadRecordsStartAtTheBeginning) {
  const auto bytes = BuildProgramme(Book(4000)).bytes;
  ByteVec changed = RecordBytes(2, 64000, 0);
  changed[10] ^= 0x10;  // a changed byte in the position field
  const std::vector<ByteVec> bad = {
      {},                                                        // empty
      ByteVec(10, 0),                                            // short
      RecordBytes(1, 64000, 0),                                  // another version
      RecordBytes(2, 64000, 0, PositionChecksum(64000, 0) ^ 1),  // changed checksum
      changed,
  };
  for (const auto& record : bad) {
    MemoryStream position(record);
    OpenProgramme p(bytes, &position);
    ASSERT_EQ(p.rc(), TMX_OK);
    std::uint32_t ms = 1;
    EXPECT_EQ(TMXGetPlaybackPosition(p.file(), &ms), TMX_OK);
    EXPECT_EQ(ms, 0u);
    TMXFrameInfo info;
    ASSERT_EQ(TMXGetNextFrameInfo(p.file(), &info), TMX_OK);
    EXPECT_EQ(info.index, 0u);
  }
}

TEST(PositionFile, FinishedRecordsPlaceTheReaderOnTheLastFrame) {
  const auto bytes = BuildProgramme(Book(4000)).bytes;
  MemoryStream position(RecordBytes(2, 1000, 1));
  OpenProgramme p(bytes, &position);
  ASSERT_EQ(p.rc(), TMX_OK);
  TMXFrameInfo info;
  TMXGetNextFrameInfo(p.file(), &info);
  EXPECT_GE(p.file()->reader.currentFrame, 3999u);
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
  EXPECT_EQ(Record(position).position, 32u);

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
    if (i == 1300) {
      ASSERT_EQ(TMXSeek(p.file(), FramesToMs(1300, 22050, 1024) + 1),
                TMX_OK);  // restarts the count
      ASSERT_EQ(p.file()->reader.currentFrame, 1300u);
      writes = position.writes();
    }
  }
  EXPECT_EQ(writtenAt, (std::vector<std::uint32_t>{646, 1292, 1946}));
}

TEST(Playback, OriginalTitleOfMp4FilesIsEmpty) {
  OpenProgramme p(BuildProgramme(Book(10)).bytes);
  std::uint32_t w[7] = {9, 9, 9, 9, 9, 9, 9};
  ASSERT_EQ(TMXGetOriginalTitle(p.file(), &w[0], &w[1], &w[2], &w[3], &w[4], &w[5], &w[6]), TMX_OK);
  EXPECT_EQ(w[0], 0u);
  EXPECT_EQ(w[1], 9u);
  EXPECT_EQ(
      TMXGetOriginalTitle(p.file(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
      TMX_ERR_ARGUMENT);
}

}  // namespace
}  // namespace tmx
