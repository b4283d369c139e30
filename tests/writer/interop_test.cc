// Written programmes as other software sees them: ffprobe must find them
// well formed and read their chapters.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

#include "support/temp_dir.h"
#include "support/test_data.h"
#include "writer/programme_view.h"

namespace tmx::writer::test {
namespace {

// Runs a shell command; returns its exit status and everything it printed.
int RunCommand(const std::string& command, std::string* output) {
  std::FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return -1;
  char buffer[512];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output->append(buffer, n);
  const int status = pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool HaveFfprobe() { return std::system("ffprobe -version >/dev/null 2>&1") == 0; }

ProgrammeSpec FullSpec(const std::vector<std::uint8_t>& adts) {
  ProgrammeSpec plan;
  plan.adts = adts;
  plan.side.chapters = {{0, "Erstes Kapitel"}, {1200, "Second"}, {2500, "Third"}};
  plan.side.links = {{0, "Site", "https://example.org/book"}};
  // A 1x1 baseline JPEG.
  const std::vector<std::uint8_t> jpeg = {
      0xFF, 0xD8, 0xFF, 0xDB, 0x00, 0x43, 0x00, 0x03, 0x02, 0x02, 0x02, 0x02, 0x02, 0x03, 0x02,
      0x02, 0x02, 0x03, 0x03, 0x03, 0x03, 0x04, 0x06, 0x04, 0x04, 0x04, 0x04, 0x04, 0x08, 0x06,
      0x06, 0x05, 0x06, 0x09, 0x08, 0x0A, 0x0A, 0x09, 0x08, 0x09, 0x09, 0x0A, 0x0C, 0x0F, 0x0C,
      0x0A, 0x0B, 0x0E, 0x0B, 0x09, 0x09, 0x0D, 0x11, 0x0D, 0x0E, 0x0F, 0x10, 0x10, 0x11, 0x10,
      0x0A, 0x0C, 0x12, 0x13, 0x12, 0x10, 0x13, 0x0F, 0x10, 0x10, 0x10, 0xFF, 0xC0, 0x00, 0x0B,
      0x08, 0x00, 0x01, 0x00, 0x01, 0x01, 0x01, 0x11, 0x00, 0xFF, 0xC4, 0x00, 0x14, 0x00, 0x01,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x09, 0xFF, 0xC4, 0x00, 0x14, 0x10, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xDA, 0x00, 0x08, 0x01,
      0x01, 0x00, 0x00, 0x3F, 0x00, 0x2A, 0x9F, 0xFF, 0xD9};
  plan.side.pictures = {{0, 3, jpeg}, {0, 1, jpeg}};
  plan.side.metadata = {TextItem(kItemTitle, "Title"), TextItem(kItemAuthor, "Author")};
  plan.side.metadata.push_back({kItemCover, {{kDataJpeg, 0, jpeg}}});
  return plan;
}

TEST(Interop, FfprobeFindsNoErrors) {
  if (!HaveFfprobe()) GTEST_SKIP() << "ffprobe is not installed";
  tmx::test::TempDir dir;
  const std::vector<std::uint8_t> adts = tmx::test::ReadTestData("music_stereo_44100.aac");
  for (bool plain : {false, true}) {
    ProgrammeSpec plan = FullSpec(adts);
    plan.options.chunkHeaders = !plain;
    plan.options.brand = plain ? Brand::kM4b : Brand::kTmx;
    const std::vector<std::uint8_t> bytes = Write(plan);
    const std::filesystem::path path =
        dir.Write(plain ? "plain.m4b" : "book.tmx", std::string(bytes.begin(), bytes.end()));
    std::string errors;
    EXPECT_EQ(RunCommand("ffprobe -v error '" + path.string() + "'", &errors), 0);
    EXPECT_EQ(errors, "") << path;
  }
}

TEST(Interop, FfprobeReadsChapterTitlesAndTimes) {
  if (!HaveFfprobe()) GTEST_SKIP() << "ffprobe is not installed";
  tmx::test::TempDir dir;
  const std::vector<std::uint8_t> adts = tmx::test::ReadTestData("music_stereo_44100.aac");
  ProgrammeSpec plan = FullSpec(adts);
  // ffprobe takes every text track named by "chap" as chapters; without
  // the link track the chapter titles stand alone.
  plan.side.links.clear();
  const std::vector<std::uint8_t> bytes = Write(plan);
  const std::filesystem::path path = dir.Write("book.tmx", std::string(bytes.begin(), bytes.end()));
  std::string chapters;
  ASSERT_EQ(RunCommand("ffprobe -v error -show_entries chapter=start_time:chapter_tags=title "
                       "-of csv=p=0 '" +
                           path.string() + "'",
                       &chapters),
            0);
  // Starts rounded to whole frames: 1200 ms is frame 52, 2500 ms frame 108.
  EXPECT_EQ(chapters, "0.000000,Erstes Kapitel\n1.207438,Second\n2.507755,Third\n");
}

}  // namespace
}  // namespace tmx::writer::test
