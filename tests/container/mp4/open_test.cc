// Opening MP4-based programmes: properties, tracks, chapters and pictures.
#include <tuple>

#include "container/mp4/sample_description.h"
#include "mp4_fixture.h"
#include "util/frame_time.h"

namespace tmx::mp4 {
namespace {

using namespace tmx::test;

ProgrammeSpec Basic(std::uint32_t frames = 20) {
  ProgrammeSpec plan;
  plan.tracks.push_back(AudioTrack(frames));
  return plan;
}

TEST(Mp4Open, ReportsTheAudioProperties) {
  OpenProgramme p(BuildProgramme(Basic(100)).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  const TMXFile* f = p.file();
  // 100 frames of 46.44 ms in chunks of four.
  EXPECT_EQ(std::tuple(f->fileType, f->audioTrackType, f->sampleRate, f->samplesPerFrame,
                       f->frameCount, f->duration, f->channelCount, f->maxBitrate, f->avgBitrate,
                       f->positionSaveInterval, f->chapterCount),
            std::tuple(std::uint32_t(TMX_FILETYPE_TMX), FourCC("mp4a"), 22050u, 1024u, 100u, 4643u,
                       2u, 64000u, 48000u, 645, 0u));
  EXPECT_EQ(std::tuple(p.state().chunkCount, p.state().brandMinorVersion,
                       f->reader.info.codecConfigLength),
            std::tuple(25u, 0x200u, 25u));
}

TEST(Mp4Open, CapitalsVersionOneHeadersTmvdAndTheMainFlag) {
  auto plan = Basic();
  plan.brand = "M4B ";
  plan.ftypType = "FTYP";
  plan.mvhdVersion = 1;
  plan.tracks[0].version = 1;  // the low halves of 64-bit fields are kept
  plan.tracks[0].timescale = 44100;
  plan.tracks[0].entry = "tmvd";  // an audio entry as well
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  const TMXFile* f = p.file();
  EXPECT_EQ(std::tuple(f->fileType, p.state().brandMinorVersion, f->sampleRate,
                       p.state().audioTrack.trackId, f->audioTrackType),
            std::tuple(std::uint32_t(TMX_FILETYPE_M4B), 0x200u, 44100u, 1u, FourCC("tmvd")));
  // An audio track not flagged main is refused.
  plan.tracks[0].tkhdFlags = 0x0007;
  EXPECT_EQ(OpenProgramme(BuildProgramme(plan).bytes).rc(), TMX_ERR_UNSUPPORTED);
}

TEST(Mp4Open, ChapterStartsAreSummedPerSttsEntry) {
  auto plan = Basic(300);
  plan.tracks[0].chap = {2};
  TrackSpec titles = SideTrack(2, "text", std::vector<ByteVec>(5, TextSample("Chapter")));
  titles.stts = {{3, 46080}, {2, 92160}};
  plan.tracks.push_back(titles);
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  ASSERT_EQ(p.file()->chapterCount, 5u);
  const std::uint32_t* starts = p.file()->chapterStartFrames;
  EXPECT_EQ(std::vector<std::uint32_t>(starts, starts + 5),
            (std::vector<std::uint32_t>{0, 45, 90, 135, 225}));
  // The start of a title sample is summed the same way.
  TMXFrameInfo info{};
  ASSERT_EQ(p.handler().GetSampleInfo(&p.file()->reader, FourCC("text"), 4, &info), TMX_OK);
  EXPECT_EQ(info.startTime, FramesToMs(225, 22050, 1024));
  EXPECT_TRUE(p.state().hasChapterTextTrack);
}

TEST(Mp4Open, LinksAndPictures) {
  auto plan = Basic(40);
  plan.tracks[0].chap = {2, 3};
  plan.tracks.push_back(SideTrack(2, "tx3g", {TextSample("site"), TextSample("other")}, 0, 20));
  TrackSpec images = SideTrack(3, "jpeg", {ByteVec(30, 1), ByteVec(40, 2), ByteVec(50, 3)}, 0x1000);
  images.pngFirst = true;
  plan.tracks.push_back(images);
  OpenProgramme p(BuildProgramme(plan).bytes);
  ASSERT_EQ(p.rc(), TMX_OK);
  EXPECT_EQ(p.file()->linkCount, 2u);
  // The "png " entry before "jpeg": one sample is no image, and flag 0x10.
  EXPECT_EQ(p.file()->imageCount, 2u);
  ASSERT_EQ(p.state().imageTrackCount, 1u);
  EXPECT_EQ(p.state().imageTracks[0].flags & kLeadingExtraSample, kLeadingExtraSample);
}

}  // namespace
}  // namespace tmx::mp4
