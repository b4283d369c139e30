// tmxtool end to end: mux an ADTS file, extract it again, keep a position.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "support/temp_dir.h"
#include "support/test_data.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using tmx::test::ReadFileBytes;
using tmx::test::ReadFileText;
using tmx::test::SplitAdts;

int Tool(const std::string& arguments, const std::string& output = "/dev/null") {
  const std::string command =
      std::string(TMXTOOL_PATH) + " " + arguments + " > " + output + " 2>&1";
  return std::system(command.c_str());
}

class Cli : public ::testing::TestWithParam<const char*> {
 protected:
  tmx::test::TempDir dir_;
  std::string Path(const std::string& name) { return (dir_.path() / name).string(); }
};

TEST_P(Cli, ExtractGivesBackTheMuxedStream) {
  const std::string input = std::string(TMX_TEST_DATA_DIR) + "/" + GetParam();
  ASSERT_EQ(Tool("mux " + input + " -o " + Path("book.tmx") + " --frames-per-chunk 9"), 0);
  ASSERT_EQ(Tool("extract " + Path("book.tmx") + " -o " + Path("out.aac")), 0);
  EXPECT_FALSE(std::ifstream(Path("book.pos")).good()) << "extract wrote a position file";
  const Bytes in = ReadFileBytes(input), out = ReadFileBytes(Path("out.aac"));
  ASSERT_EQ(in.size(), out.size());
  const auto frames = SplitAdts(in);
  ASSERT_FALSE(frames.empty());
  std::size_t pos = 0;
  for (const Bytes& a : frames) {
    const std::uint8_t* b = out.data() + pos;
    // The template fixes the MPEG version, private, original/copy and home
    // bits, the buffer fullness and the block count; everything else is the
    // input's, payload included.
    EXPECT_EQ(a[0], b[0]);
    EXPECT_EQ(a[1] & 0xF7, b[1] & 0xF7);
    EXPECT_EQ(a[2] & 0xFD, b[2] & 0xFD);
    EXPECT_EQ(a[3] & 0xC3, b[3] & 0xC3);
    EXPECT_EQ(a[4], b[4]);
    EXPECT_EQ(a[5] & 0xE0, b[5] & 0xE0);
    ASSERT_TRUE(std::equal(a.begin() + 7, a.end(), b + 7)) << "frame at " << pos;
    pos += a.size();
  }
}

INSTANTIATE_TEST_SUITE_P(Material, Cli,
                         ::testing::Values("speech_mono_16000.aac", "speech_stereo_44100.aac",
                                           "music_mono_48000.aac"));

TEST(CliPosition, SetThenShowThroughThePositionFile) {
  tmx::test::TempDir dir;
  const std::string book = (dir.path() / "book.tmx").string();
  ASSERT_EQ(Tool("mux " + std::string(TMX_TEST_DATA_DIR) + "/speech_mono_22050.aac -o " + book), 0);
  const std::string shown = (dir.path() / "shown.txt").string();
  ASSERT_EQ(Tool("position " + book + " --set 2000", shown), 0);
  EXPECT_TRUE(std::ifstream((dir.path() / "book.pos").string()).good());
  ASSERT_EQ(Tool("position " + book, shown), 0);
  std::ifstream text(shown);
  const std::string line((std::istreambuf_iterator<char>(text)), {});
  EXPECT_NE(line.find("position: 0:00:01."), std::string::npos) << line;
  EXPECT_NE(Tool("position " + book + " --set 99999999"), 0);
  EXPECT_NE(Tool("extract " + book), 0);
  EXPECT_NE(Tool("info " + (dir.path() / "missing.tmx").string()), 0);
}

// Tags, cover and chapters given to mux come back through info, cover and
// chapters; the printed chapter list muxes to the same list again.
TEST(CliMetadata, MuxedTagsCoverAndChaptersComeBack) {
  tmx::test::TempDir dir;
  auto path = [&](const std::string& name) { return (dir.path() / name).string(); };
  const std::string cover("\xFF\xD8\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\xFF\xD9", 16);
  dir.Write("cover.jpg", cover);
  dir.Write("chapters.txt", "0 Anfang\n1.5 Zweites \"\xC3\x9C\" \\ Kapitel\n2:00 Third\n");
  const std::string audio = std::string(TMX_TEST_DATA_DIR) + "/speech_mono_22050.aac";
  ASSERT_EQ(Tool("mux " + audio + " -o " + path("book.tmx") + " --chapters " +
                 path("chapters.txt") + " --cover " + path("cover.jpg") +
                 " --title 'Das \u201EBuch\u201C' --author 'A. \"Q\" Author'"),
            0);

  ASSERT_EQ(Tool("info --json " + path("book.tmx"), path("info.json")), 0);
  const std::string json = ReadFileText(path("info.json"));
  for (const std::string& fragment : {
           std::string("\"title\": \"Das \u201EBuch\u201C\""),
           std::string("\"author\": \"A. \\\"Q\\\" Author\""),
           std::string("\"cover\": {\"bytes\": 16}"),
           std::string("\"chapterCount\": 3"),
           std::string("\"pictureCount\": 1"),
           std::string("{\"startMs\": 0, \"start\": \"0:00:00.000\", \"title\": \"Anfang\"}"),
           std::string("\"title\": \"Zweites \\\"\xC3\x9C\\\" \\\\ Kapitel\"}"),
           std::string("\"links\": []"),
       }) {
    EXPECT_NE(json.find(fragment), std::string::npos) << fragment << "\nin\n" << json;
  }
  EXPECT_EQ(json.front(), '{');
  EXPECT_EQ(json.substr(json.size() - 2), "}\n");

  ASSERT_EQ(Tool("info " + path("book.tmx"), path("info.txt")), 0);
  const std::string text = ReadFileText(path("info.txt"));
  EXPECT_NE(text.find("author: A. \"Q\" Author\n"), std::string::npos) << text;
  EXPECT_NE(text.find("cover: 16 bytes\n"), std::string::npos) << text;
  EXPECT_NE(text.find("chapter 3: 0:02:00.0"), std::string::npos) << text;

  ASSERT_EQ(Tool("cover " + path("book.tmx") + " -o " + path("out.jpg")), 0);
  EXPECT_EQ(ReadFileText(path("out.jpg")), cover);

  // Start times come back rounded to whole frames (1.5 s is frame 32).
  ASSERT_EQ(Tool("chapters " + path("book.tmx"), path("list.txt")), 0);
  const std::string list = ReadFileText(path("list.txt"));
  EXPECT_EQ(list,
            "0:00:00.000 Anfang\n0:00:01.486 Zweites \"\xC3\x9C\" \\ Kapitel\n0:02:00.000 Third\n");
  ASSERT_EQ(Tool("mux " + audio + " -o " + path("again.tmx") + " --chapters " + path("list.txt")),
            0);
  ASSERT_EQ(Tool("chapters " + path("again.tmx"), path("again.txt")), 0);
  EXPECT_EQ(ReadFileText(path("again.txt")), list);

  // A programme without a cover, and bad usage.
  EXPECT_NE(Tool("cover " + path("again.tmx") + " -o " + path("none.jpg")), 0);
  EXPECT_FALSE(std::ifstream(path("none.jpg")).good());
  EXPECT_NE(Tool("cover " + path("book.tmx")), 0);
  EXPECT_NE(Tool("chapters"), 0);
  EXPECT_NE(Tool("info " + path("book.tmx") + " --yaml"), 0);
  ASSERT_EQ(Tool("info --json " + path("again.tmx"), path("bare.json")), 0);
  EXPECT_NE(ReadFileText(path("bare.json")).find("\"cover\": null"), std::string::npos);
}

}  // namespace
