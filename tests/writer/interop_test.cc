// Written programmes as other software sees them: ffprobe must find them
// well formed and read their chapters. And tmxtool mux failing cleanly.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "support/test_data.h"
#include "writer/programme_view.h"

namespace tmx::writer::test {
namespace {

// Both brands, with and without chunk headers, are well formed; ffprobe
// takes every text track named by "chap" as chapters, so without the link
// track the chapter titles stand alone.
TEST(Interop, FfprobeFindsNoErrorsAndReadsChapterTitlesAndTimes) {
  if (std::system("ffprobe -version >/dev/null 2>&1 && ffmpeg -version >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "ffprobe or ffmpeg is not installed";
  tmx::test::TempDir dir;
  const std::vector<std::uint8_t> adts = tmx::test::ReadTestData("music_stereo_44100.aac");
  const std::string jpeg = (dir.path() / "cover.jpg").string();
  const std::string lavfi = "-nostdin -loglevel error -f lavfi -i color=s=16x16 -frames:v 1 ";
  ASSERT_EQ(tmx::test::RunTool("ffmpeg", lavfi + jpeg).status, 0);
  const ByteVec cover = tmx::test::ReadFileBytes(jpeg);
  const std::string chapters = "-show_entries chapter=start_time:chapter_tags=title -of csv=p=0 ";
  for (int run : {0, 1, 2}) {
    ProgrammeSpec plan;
    plan.adts = adts;
    plan.side.chapters = {{0, "Erstes Kapitel"}, {1200, "Second"}, {2500, "Third"}};
    plan.side.links = {{0, "Site", "https://example.org/book"}};
    plan.side.pictures = {{0, 3, cover}, {0, 1, cover}};
    plan.side.metadata = {TextItem(kItemTitle, "Title"), TextItem(kItemAuthor, "Author")};
    plan.side.metadata.push_back({kItemCover, {{kDataJpeg, 0, cover}}});
    plan.options.chunkHeaders = run != 1;
    plan.options.brand = run == 1 ? Brand::kM4b : Brand::kTmx;
    if (run == 2) plan.side.links.clear();
    const std::vector<std::uint8_t> bytes = Write(plan);
    const std::string name = "book" + std::to_string(run) + (run == 1 ? ".m4b" : ".tmx");
    const std::string path = dir.Write(name, std::string(bytes.begin(), bytes.end())).string();
    const tmx::test::ToolRun probe =
        tmx::test::RunTool("ffprobe", "-v error " + (run == 2 ? chapters : "") + path);
    EXPECT_EQ(probe.status, 0);
    EXPECT_EQ(probe.err, "") << path;
    // Starts rounded to whole frames: 1200 ms is frame 52, 2500 ms frame 108.
    EXPECT_EQ(probe.out,
              run < 2 ? "" : "0.000000,Erstes Kapitel\n1.207438,Second\n2.507755,Third\n");
  }
}

// Bad usage: status 2, the message and then the usage text. Bad input:
// status 1 and the one message line. Neither leaves an output or a
// temporary file behind.
TEST(Tmxtool, MuxFailsCleanly) {
  tmx::test::TempDir dir;
  const std::string data = TMX_TEST_DATA_DIR, aac = data + "/speech_mono_16000.aac";
  const std::string out = (dir.path() / "failed.tmx").string();
  const std::string chapters = dir.Write("chapters.txt", "0 Start\nlater Second\n").string();
  const struct {
    std::string arguments;
    int status;
    std::string message;
  } cases[] = {
      {aac, 2, "tmxtool mux: an input file and -o OUTPUT are required"},
      {aac + " -o " + out + " --loud", 2, "tmxtool mux: unknown option --loud"},
      {aac + " -o " + out + " --brand mp3", 2, "tmxtool mux: --brand takes tmx or m4b"},
      {data + "/none.aac -o " + out, 1,
       "tmxtool: " + data + "/none.aac: no such file or directory"},
      {aac + " -o " + out + " --chapters " + chapters, 1,
       "tmxtool: " + chapters + ": line 2: bad start time"},
  };
  for (const auto& c : cases) {
    const tmx::test::ToolRun r = tmx::test::RunTool(TMXTOOL_PATH, "mux " + c.arguments);
    EXPECT_EQ(r.status, c.status) << c.arguments;
    const std::string expected = c.message + (c.status == 2 ? "\nusage: tmxtool mux " : "\n");
    EXPECT_EQ(c.status == 2 ? r.err.substr(0, expected.size()) : r.err, expected) << c.arguments;
    const auto files = std::filesystem::directory_iterator(dir.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << c.arguments;
  }
}

}  // namespace
}  // namespace tmx::writer::test
