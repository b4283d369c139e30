// Reading frames: chunk headers, the table fallback, seeking, side samples.
#include "mp4_fixture.h"

namespace tmx::mp4 {
namespace {

using namespace tmx::test;

// Reads every audio frame from the current position to the end.
std::vector<ByteVec> ReadAll(OpenProgramme& p) {
  std::vector<ByteVec> frames;
  for (ByteVec frame; p.Read(frame) == TMX_OK;) frames.push_back(frame);
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

TEST(Mp4Reader, SeekPlacesTheNextFrame) {
  ProgrammeSpec runs;
  runs.tracks.push_back(AudioTrack(30));
  runs.tracks[0].stsc = {{1, 2}, {3, 5}, {5, 1}};  // chunks of 2, 2, 5, 5, then 1s
  const struct {
    ProgrammeSpec plan;
    std::vector<std::uint32_t> targets;
    // Samples of the very last chunk are beyond what the tables seek to.
    std::vector<std::uint32_t> beyond;
  } cases[] = {
      {Interleaved(40), {0, 1, 4, 5, 17, 34}, {35, 40}},
      {runs, {0, 3, 4, 13, 14, 20, 28}, {29}},
  };
  for (const auto& c : cases) {
    OpenProgramme p(BuildProgramme(c.plan).bytes);
    ASSERT_EQ(p.rc(), TMX_OK);
    for (std::uint32_t target : c.targets) {
      SCOPED_TRACE(target);
      ASSERT_EQ(p.handler().SeekToFrame(&p.file()->reader, target), TMX_OK);
      EXPECT_EQ(p.file()->reader.currentFrame, target);
      EXPECT_EQ(p.file()->reader.currentFrameInfo.index, target);
      ByteVec frame;
      ASSERT_EQ(p.Read(frame), TMX_OK);
      EXPECT_EQ(frame, c.plan.tracks[0].samples[target]);
      ASSERT_EQ(p.Read(frame), TMX_OK);
      EXPECT_EQ(frame, c.plan.tracks[0].samples[target + 1]);
    }
    for (std::uint32_t target : c.beyond)
      EXPECT_EQ(p.handler().SeekToFrame(&p.file()->reader, target), TMX_ERR_SEEK_RANGE) << target;
  }
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
  EXPECT_EQ(p.handler().GetSampleInfo(&p.file()->reader, FourCC("tx3g"), 0, &info),
            TMX_ERR_NOT_FOUND);
}

}  // namespace
}  // namespace tmx::mp4
