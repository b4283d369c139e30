// tmxtool end to end: mux an ADTS file, extract it again, keep a position.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "support/test_data.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using tmx::test::ReadFileBytes;
using tmx::test::ReadFileText;
using tmx::test::SplitAdts;
using tmx::test::ToolRun;

ToolRun Tmxtool(const std::string& arguments) {
  return tmx::test::RunTool(TMXTOOL_PATH, arguments);
}

// The exit status alone, for steps that must succeed.
int Tool(const std::string& arguments) { return Tmxtool(arguments).status; }

// Bad usage: exit status 2 and the usage text.
void ExpectUsage(const std::string& arguments) {
  const ToolRun r = Tmxtool(arguments);
  EXPECT_EQ(r.status, 2) << arguments;
  EXPECT_EQ(r.err.rfind("usage: tmxtool info PROGRAMME [--json]\n", 0), 0u) << r.err;
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
  ASSERT_EQ(Tool("position " + book + " --set 2000"), 0);
  EXPECT_TRUE(std::ifstream((dir.path() / "book.pos").string()).good());
  const ToolRun shown = Tmxtool("position " + book);
  ASSERT_EQ(shown.status, 0) << shown.err;
  EXPECT_NE(shown.out.find("position: 0:00:01."), std::string::npos) << shown.out;
  const ToolRun far = Tmxtool("position " + book + " --set 99999999");
  EXPECT_EQ(far.status, 1);
  EXPECT_EQ(far.err, "tmxtool: " + book + ": seek: seek target out of range (-21)\n");
  ExpectUsage("extract " + book);
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

  const ToolRun info = Tmxtool("info --json " + path("book.tmx"));
  ASSERT_EQ(info.status, 0) << info.err;
  const std::string& json = info.out;
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

  const ToolRun shown = Tmxtool("info " + path("book.tmx"));
  ASSERT_EQ(shown.status, 0) << shown.err;
  const std::string& text = shown.out;
  EXPECT_NE(text.find("author: A. \"Q\" Author\n"), std::string::npos) << text;
  EXPECT_NE(text.find("cover: 16 bytes\n"), std::string::npos) << text;
  EXPECT_NE(text.find("chapter 3: 0:02:00.0"), std::string::npos) << text;

  ASSERT_EQ(Tool("cover " + path("book.tmx") + " -o " + path("out.jpg")), 0);
  EXPECT_EQ(ReadFileText(path("out.jpg")), cover);

  // Start times come back rounded to whole frames (1.5 s is frame 32).
  const ToolRun listed = Tmxtool("chapters " + path("book.tmx"));
  ASSERT_EQ(listed.status, 0) << listed.err;
  const std::string& list = listed.out;
  dir.Write("list.txt", list);
  EXPECT_EQ(list,
            "0:00:00.000 Anfang\n0:00:01.486 Zweites \"\xC3\x9C\" \\ Kapitel\n0:02:00.000 Third\n");
  ASSERT_EQ(Tool("mux " + audio + " -o " + path("again.tmx") + " --chapters " + path("list.txt")),
            0);
  EXPECT_EQ(Tmxtool("chapters " + path("again.tmx")).out, list);

  // A programme without a cover, and bad usage.
  const ToolRun none = Tmxtool("cover " + path("again.tmx") + " -o " + path("none.jpg"));
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "tmxtool: " + path("again.tmx") +
                          ": cover picture: the container is inconsistent or information is "
                          "missing (-7)\n");
  EXPECT_FALSE(std::filesystem::exists(path("none.jpg")));
  for (const std::string& usage : {"cover " + path("book.tmx"), std::string("chapters"),
                                   "info " + path("book.tmx") + " --yaml"})
    ExpectUsage(usage);
  EXPECT_NE(Tmxtool("info --json " + path("again.tmx")).out.find("\"cover\": null"),
            std::string::npos);
}

namespace bad_input {

// Files no command can take as a programme, made in a fresh folder.
struct BadInput {
  const char* name;
  const char* file;
  const char* cause;   // as the one line on stderr gives it
  const char* ffmpeg;  // the arguments that make the file, or null
};

const BadInput kBadInputs[] = {
    {"Missing", "missing.tmx", "no such file or directory", nullptr},
    {"Directory", "folder.tmx", "is a directory", nullptr},
    {"Empty", "empty.tmx", "not a file this library can open (-8)", nullptr},
    {"Truncated", "cut.tmx", "the container is inconsistent or information is missing (-7)",
     nullptr},
    {"Wav", "tone.wav", "not a file this library can open (-8)", nullptr},
    {"OrdinaryM4b", "tone.m4b", "not a file this library can open (-8)",
     "-f lavfi -i sine=d=1 -c:a aac"},
    {"Mp3", "tone.mp3", "not a file this library can open (-8)", "-f lavfi -i sine=d=1"},
};

// Every command that takes a programme; OUT is an output in the folder.
const char* const kCommands[] = {
    "info PROGRAMME",
    "info PROGRAMME --json",
    "chapters PROGRAMME",
    "cover PROGRAMME -o OUT",
    "extract PROGRAMME -o OUT",
    "decode PROGRAMME -o OUT",
    "position PROGRAMME",
    "position PROGRAMME --set 1000",
    "bookmarks PROGRAMME list",
    "bookmarks PROGRAMME add 1000",
    "bookmarks PROGRAMME delete 1",
    "bookmarks PROGRAMME seek 1",
};

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  if (const std::size_t at = text.find(from); at != std::string::npos)
    text.replace(at, from.size(), to);
  return text;
}

// A mono 16-bit WAV file of eight silent samples at 8 kHz.
std::string SilentWav() {
  return std::string(
             "RIFF\x34\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x40\x1f\0\0"
             "\x80\x3e\0\0\x02\0\x10\0data\x10\0\0\0",
             44) +
         std::string(16, '\0');
}

std::vector<std::string> Listing(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

class CliBadInput : public ::testing::TestWithParam<BadInput> {
 protected:
  // Makes the input at `path`; skips the test when it cannot be made here.
  void Make(const BadInput& input, const std::string& path) {
    const std::string name = input.file;
    if (name == "folder.tmx") {
      std::filesystem::create_directory(path);
    } else if (name == "empty.tmx") {
      dir_.Write(name, "");
    } else if (name == "cut.tmx") {
      // The programme's index comes after its audio: half of it is gone.
      const std::string whole = (dir_.path() / "whole.tmx").string();
      ASSERT_EQ(
          Tool("mux " + std::string(TMX_TEST_DATA_DIR) + "/speech_mono_16000.aac -o " + whole), 0);
      const std::string bytes = ReadFileText(whole);
      std::filesystem::remove(whole);
      dir_.Write(name, bytes.substr(0, bytes.size() / 2));
    } else if (name == "tone.wav") {
      dir_.Write(name, SilentWav());
    } else if (input.ffmpeg) {
      if (std::system("ffmpeg -version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "ffmpeg is not installed, so no " << name << " can be made";
      ASSERT_EQ(
          std::system(("ffmpeg -nostdin -loglevel error " + std::string(input.ffmpeg) + " " + path)
                          .c_str()),
          0);
    }
  }
  tmx::test::TempDir dir_;
};

// Each command exits with status 1 (no crash) and one line naming the file
// and the cause, and leaves nothing behind in the folder: no output, no
// temporary file, no position file.
TEST_P(CliBadInput, EveryCommandFailsWithOneLine) {
  const BadInput& input = GetParam();
  const std::string path = (dir_.path() / input.file).string();
  Make(input, path);
  if (IsSkipped() || HasFatalFailure()) return;
  const std::vector<std::string> before = Listing(dir_.path());
  for (const char* command : kCommands) {
    const std::string arguments =
        Replace(Replace(command, "PROGRAMME", path), "OUT", (dir_.path() / "out").string());
    const ToolRun r = Tmxtool(arguments);
    EXPECT_EQ(r.status, 1) << arguments;
    EXPECT_EQ(r.err, "tmxtool: " + path + ": " + input.cause + "\n") << arguments;
    EXPECT_EQ(r.out, "") << arguments;
    EXPECT_EQ(Listing(dir_.path()), before) << arguments;
  }
}

// An output that names one of the command's inputs, under any spelling, is
// refused before anything is written; a failed command keeps an existing
// output as it was and leaves no temporary file.
TEST(CliOutput, InputsAreNeverOverwritten) {
  tmx::test::TempDir dir;
  auto path = [&](const std::string& name) { return (dir.path() / name).string(); };
  const std::string aac = ReadFileText(std::string(TMX_TEST_DATA_DIR) + "/speech_mono_16000.aac");
  dir.Write("book.aac", aac);
  dir.Write("old.tmx", "an earlier programme");
  dir.Write("tone.wav", SilentWav());
  ASSERT_EQ(Tool("mux " + path("book.aac") + " -o " + path("book.tmx")), 0);
  const std::vector<std::string> names = Listing(dir.path());
  std::vector<std::string> contents;
  for (const std::string& name : names) contents.push_back(ReadFileText(path(name)));

  const std::string same = ": the output is the same file as the input\n";
  const struct {
    std::string arguments;
    std::string err;
  } cases[] = {
      {"mux BOOK.aac -o BOOK.aac", "tmxtool: BOOK.aac" + same},
      {"mux BOOK.aac -o DIR/./book.aac",
       "tmxtool: DIR/./book.aac: the output is the same file as the input BOOK.aac\n"},
      {"mux BOOK.aac -o BOOK.tmx --chapters BOOK.tmx", "tmxtool: BOOK.tmx" + same},
      {"mux --legacy=8k DIR/tone.wav -o DIR/tone.wav", "tmxtool: DIR/tone.wav" + same},
      {"extract BOOK.tmx -o BOOK.tmx", "tmxtool: BOOK.tmx" + same},
      {"decode BOOK.tmx -o BOOK.tmx", "tmxtool: BOOK.tmx" + same},
      {"cover BOOK.tmx -o BOOK.tmx", "tmxtool: BOOK.tmx" + same},
      // Not ADTS: the earlier file stays.
      {"mux DIR/tone.wav -o DIR/old.tmx",
       "tmxtool: DIR/tone.wav: the input is not an ADTS stream this tool can take\n"},
  };
  for (const auto& c : cases) {
    const auto expand = [&](std::string text) {
      for (std::size_t at; (at = text.find("BOOK")) != std::string::npos;)
        text.replace(at, 4, path("book"));
      for (std::size_t at; (at = text.find("DIR")) != std::string::npos;)
        text.replace(at, 3, dir.path().string());
      return text;
    };
    const ToolRun r = Tmxtool(expand(c.arguments));
    EXPECT_EQ(r.status, 1) << c.arguments;
    EXPECT_EQ(r.err, expand(c.err)) << c.arguments;
    ASSERT_EQ(Listing(dir.path()), names) << c.arguments;
    for (std::size_t i = 0; i < names.size(); ++i)
      EXPECT_EQ(ReadFileText(path(names[i])), contents[i]) << c.arguments << ": " << names[i];
  }
}

INSTANTIATE_TEST_SUITE_P(Inputs, CliBadInput, ::testing::ValuesIn(kBadInputs),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace bad_input

}  // namespace
