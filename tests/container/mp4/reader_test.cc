// Reading frames: chunk headers, the table fallback, seeking, side samples.
#include "container/mp4/sample_description.h"
#include "mp4_fixture.h"
#include "util/alloc.h"
#include "util/frame_time.h"

namespace tmx::mp4 {
namespace {

using namespace tmx::test;

// Reads every audio frame from the current position to the end.
std::vector<ByteVec> ReadAll(OpenProgramme& p, std::int32_t* last = nullptr) {
  std::vector<ByteVec> frames;
  ByteVec frame;
  std::int32_t rc;
  while ((rc = p.Read(frame)) == TMX_OK) frames.push_back(frame);
  if (last) *last = rc;
  return frames;
}

ProgrammeSpec Interleaved(std::uint32_t frames) {
  ProgrammeSpec plan;
  plan.tracks.push_back(AudioTrack(frames, 5));
  plan.tracks[0].chap = {2, 3};
  plan.tracks.push_back(TitleTrack(2, {"One", "Two", "Three"}, {0, 10, 25}, frames));
  TrackSpec images = SideTrack(3, "jpeg", {ByteVec(64, 0xD8), ByteVec(80, 0xD9)}, 0x1000);
  images.stts = {{1, 12 * 1024}, {1, (frames - 12) * 1024}};
  plan.tracks.push_back(images);
  return plan;
}

TEST(Mp4Reader, DeliversEveryFrameFromOpenAndAfterASeek) {
  // The first read after open falls back to the tables; after a seek the
  // chunk headers lead.
  auto plan = Interleaved(23);
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  EXPECT_EQ(ReadAll(p), plan.tracks[0].samples);
  ASSERT_EQ(p.handler().SeekToFrame(&p.file()->reader, 0), TMX_OK);
  std::int32_t last = 0;
  EXPECT_EQ(ReadAll(p, &last), plan.tracks[0].samples);
  EXPECT_EQ(last, TMX_ERR_END);
}

TEST(Mp4Reader, SeekPlacesTheNextFrame) {
  auto plan = Interleaved(40);
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  for (std::uint32_t target : {0u, 1u, 4u, 5u, 17u, 34u}) {
    ASSERT_EQ(p.handler().SeekToFrame(&p.file()->reader, target), TMX_OK) << target;
    EXPECT_EQ(p.file()->reader.currentFrame, target);
    EXPECT_EQ(p.file()->reader.currentFrameInfo.index, target);
    ByteVec frame;
    ASSERT_EQ(p.Read(frame), TMX_OK);
    EXPECT_EQ(frame, plan.tracks[0].samples[target]) << target;
    ASSERT_EQ(p.Read(frame), TMX_OK);
    EXPECT_EQ(frame, plan.tracks[0].samples[target + 1]) << target;
  }
  // Samples of the very last chunk are beyond what the tables seek to.
  EXPECT_EQ(p.handler().SeekToFrame(&p.file()->reader, 35), TMX_ERR_SEEK_RANGE);
  EXPECT_EQ(p.handler().SeekToFrame(&p.file()->reader, 40), TMX_ERR_SEEK_RANGE);
}

TEST(Mp4Reader, SeekWalksSeveralStscRuns) {
  ProgrammeSpec plan;
  plan.tracks.push_back(AudioTrack(30));
  plan.tracks[0].stsc = {{1, 2}, {3, 5}, {5, 1}};  // chunks of 2, 2, 5, 5, then 1s
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  for (std::uint32_t target : {0u, 3u, 4u, 13u, 14u, 20u, 28u}) {
    ASSERT_EQ(p.handler().SeekToFrame(&p.file()->reader, target), TMX_OK) << target;
    ByteVec frame;
    ASSERT_EQ(p.Read(frame), TMX_OK);
    EXPECT_EQ(frame, plan.tracks[0].samples[target]) << target;
  }
  EXPECT_EQ(p.handler().SeekToFrame(&p.file()->reader, 29), TMX_ERR_SEEK_RANGE);
}

TEST(Mp4Reader, CorruptChunkHeadersFallBackToTheTables) {
  auto plan = Interleaved(20);
  auto built = BuildProgramme(plan);
  // Damage the size word of the second audio chunk's header, then the total
  // of the third: both are caught, and the tables still find the frames.
  std::vector<std::uint32_t> audioHeaders;
  for (const auto& c : built.chunks)
    if (c.track == 0) audioHeaders.push_back(c.headerPos);
  built.bytes[audioHeaders[1] + 3] ^= 4;
  built.bytes[audioHeaders[2] + 23] ^= 1;
  OpenProgramme p(built.bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  EXPECT_EQ(ReadAll(p), plan.tracks[0].samples);
}

TEST(Mp4Reader, ChunksOfUnknownTracksAreSteppedOver) {
  auto plan = Interleaved(20);
  plan.tracks[0].chap = {2};  // the picture track is no longer known
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  ASSERT_EQ(p.handler().SeekToFrame(&p.file()->reader, 0), TMX_OK);
  // Walk every sample in storage order; the pictures show as type 0.
  std::vector<std::uint32_t> types;
  for (int i = 0; i < 40 && p.handler().AdvanceFrame(&p.file()->reader) == TMX_OK; ++i)
    types.push_back(p.file()->reader.currentFrameInfo.type);
  EXPECT_NE(std::find(types.begin(), types.end(), 0u), types.end());
  ASSERT_EQ(p.handler().SeekToFrame(&p.file()->reader, 0), TMX_OK);
  EXPECT_EQ(ReadAll(p), plan.tracks[0].samples);
}

TEST(Mp4Reader, ImageQualityChoosesTheRendition) {
  ProgrammeSpec plan;
  plan.tracks.push_back(AudioTrack(10));
  plan.tracks[0].chap = {2};
  plan.tracks.push_back(ImageTrack(2, 0x1000, 1, 0xC0, 300));
  plan.tracks.push_back(ImageTrack(3, 0, 1, 0x80, 200));
  plan.tracks.push_back(ImageTrack(4, 0, 1, 0x40, 100));
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  auto sizeAt = [&](std::uint32_t quality) -> std::int64_t {
    TMXSetImageQuality(p.file(), quality);
    TMXFrameInfo info{};
    std::int32_t rc = p.handler().GetSampleInfo(&p.file()->reader, FourCC("jpeg"), 0, &info);
    return rc == TMX_OK ? std::int64_t(info.size) : rc;
  };
  EXPECT_EQ(sizeAt(0), 300);  // the first track
  EXPECT_EQ(sizeAt(1), 100);  // levels above 0x40 passed over
  EXPECT_EQ(sizeAt(2), 200);
  EXPECT_EQ(sizeAt(3), 300);
  EXPECT_EQ(sizeAt(4), TMX_ERR_NOT_FOUND);
  TMXFrameInfo info{};
  EXPECT_EQ(p.handler().GetSampleInfo(&p.file()->reader, FourCC("tx3g"), 0, &info), TMX_ERR_NOT_FOUND);
}

TEST(Mp4Reader, DecodingWithoutACodecIsRefused) {
  auto plan = Interleaved(10);
  plan.brand = "m4b ";
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  std::int16_t pcm[4096];
  std::uint32_t length = 0;
  const std::uint8_t frame[4] = {1, 2, 3, 4};
  EXPECT_EQ(TMXDecodePCMFrame(p.file(), frame, 4, pcm, sizeof pcm, &length), TMX_ERR_NO_DECODER);
}

TEST(Mp4Reader, ReadsNeverLeaveTheBuffer) {
  // Frames larger than any buffer given are refused, not copied.
  auto plan = Interleaved(10);
  plan.tracks[0].samples[0] = ByteVec(5000, 9);
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  ByteVec frame;
  EXPECT_EQ(p.Read(frame, 4999), TMX_ERR_BUFFER);
  EXPECT_EQ(p.Read(frame, 5000), TMX_OK);
}

}  // namespace
}  // namespace tmx::mp4
