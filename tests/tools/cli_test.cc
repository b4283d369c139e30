// tmxtool end to end: mux an ADTS file, extract it again, keep a position.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "support/test_data.h"

namespace {

using tmx::test::ReadFileBytes;
using tmx::test::ReadFileText;
using tmx::test::ToolRun;

const std::string kData = TMX_TEST_DATA_DIR;

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

// Replaces every `from` in `text`.
std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

class Cli : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (dir_.path() / name).string(); }
  tmx::test::TempDir dir_;
};

TEST_F(Cli, ExtractGivesBackTheMuxedStream) {
  for (const char* material :
       {"speech_mono_16000.aac", "speech_stereo_44100.aac", "music_mono_48000.aac"}) {
    SCOPED_TRACE(material);
    const std::string input = kData + "/" + material;
    ASSERT_EQ(Tool("mux " + input + " -o " + Path("book.tmx") + " --frames-per-chunk 9"), 0);
    ASSERT_EQ(Tool("extract " + Path("book.tmx") + " -o " + Path("out.aac")), 0);
    EXPECT_FALSE(std::filesystem::exists(Path("book.pos"))) << "extract wrote a position file";
    const auto in = ReadFileBytes(input), out = ReadFileBytes(Path("out.aac"));
    ASSERT_EQ(in.size(), out.size());
    // The template fixes the MPEG version, private, original/copy and home
    // bits, the buffer fullness and the block count; everything else is the
    // input's, payload included.
    constexpr std::uint8_t kKept[7] = {0xFF, 0xF7, 0xFD, 0xC3, 0xFF, 0xE0, 0};
    std::size_t pos = 0;
    for (const auto& a : tmx::test::SplitAdts(in)) {
      for (std::size_t i = 0; i < 7; ++i) EXPECT_EQ(a[i] & kKept[i], out[pos + i] & kKept[i]);
      ASSERT_TRUE(std::equal(a.begin() + 7, a.end(), out.begin() + std::ptrdiff_t(pos + 7)))
          << "frame at " << pos;
      pos += a.size();
    }
    EXPECT_EQ(pos, in.size());
  }
}

TEST_F(Cli, SetThenShowThroughThePositionFile) {
  const std::string book = Path("book.tmx");
  ASSERT_EQ(Tool("mux " + kData + "/speech_mono_22050.aac -o " + book), 0);
  ASSERT_EQ(Tool("position " + book + " --set 2000"), 0);
  EXPECT_TRUE(std::filesystem::exists(Path("book.pos")));
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
TEST_F(Cli, MuxedTagsCoverAndChaptersComeBack) {
  const std::string cover("\xFF\xD8\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\xFF\xD9", 16);
  dir_.Write("cover.jpg", cover);
  dir_.Write("chapters.txt", "0 Anfang\n1.5 Zweites \"\xC3\x9C\" \\ Kapitel\n2:00 Third\n");
  const std::string audio = kData + "/speech_mono_22050.aac";
  ASSERT_EQ(Tool("mux " + audio + " -o " + Path("book.tmx") + " --chapters " +
                 Path("chapters.txt") + " --cover " + Path("cover.jpg") +
                 " --title 'Das \u201EBuch\u201C' --author 'A. \"Q\" Author'"),
            0);

  const ToolRun info = Tmxtool("info --json " + Path("book.tmx"));
  ASSERT_EQ(info.status, 0) << info.err;
  for (const char* fragment : {
           "\"title\": \"Das \u201EBuch\u201C\"",
           "\"author\": \"A. \\\"Q\\\" Author\"",
           "\"cover\": {\"bytes\": 16}",
           "{\"startMs\": 0, \"start\": \"0:00:00.000\", \"title\": \"Anfang\"}",
           "\"title\": \"Zweites \\\"\xC3\x9C\\\" \\\\ Kapitel\"}",
           "\"links\": []\n}\n",
       }) {
    EXPECT_NE(info.out.find(fragment), std::string::npos) << fragment << "\nin\n" << info.out;
  }
  ASSERT_EQ(Tool("cover " + Path("book.tmx") + " -o " + Path("out.jpg")), 0);
  EXPECT_EQ(ReadFileText(Path("out.jpg")), cover);

  // Start times come back rounded to whole frames (1.5 s is frame 32).
  const ToolRun listed = Tmxtool("chapters " + Path("book.tmx"));
  ASSERT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(listed.out,
            "0:00:00.000 Anfang\n0:00:01.486 Zweites \"\xC3\x9C\" \\ Kapitel\n0:02:00.000 Third\n");
  dir_.Write("list.txt", listed.out);
  ASSERT_EQ(Tool("mux " + audio + " -o " + Path("again.tmx") + " --chapters " + Path("list.txt")),
            0);
  EXPECT_EQ(Tmxtool("chapters " + Path("again.tmx")).out, listed.out);

  // A programme without a cover, and bad usage.
  const ToolRun none = Tmxtool("cover " + Path("again.tmx") + " -o " + Path("none.jpg"));
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "tmxtool: " + Path("again.tmx") +
                          ": cover picture: the container is inconsistent or information is "
                          "missing (-7)\n");
  EXPECT_FALSE(std::filesystem::exists(Path("none.jpg")));
  for (const std::string& usage : {"cover " + Path("book.tmx"), std::string("chapters"),
                                   "info " + Path("book.tmx") + " --yaml"})
    ExpectUsage(usage);
}

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

class CliBadInput : public Cli, public ::testing::WithParamInterface<BadInput> {};

// Each command exits with status 1 (no crash) and one line naming the file
// and the cause, and leaves nothing behind in the folder: no output, no
// temporary file, no position file.
TEST_P(CliBadInput, EveryCommandFailsWithOneLine) {
  const BadInput& input = GetParam();
  const std::string name = input.file, path = Path(name);
  if (name == "folder.tmx") {
    std::filesystem::create_directory(path);
  } else if (name == "empty.tmx") {
    dir_.Write(name, "");
  } else if (name == "cut.tmx") {
    // The programme's index comes after its audio: half of it is gone.
    ASSERT_EQ(Tool("mux " + kData + "/speech_mono_16000.aac -o " + Path("whole.tmx")), 0);
    const std::string bytes = ReadFileText(Path("whole.tmx"));
    std::filesystem::remove(Path("whole.tmx"));
    dir_.Write(name, bytes.substr(0, bytes.size() / 2));
  } else if (name == "tone.wav") {
    dir_.Write(name, SilentWav());
  } else if (input.ffmpeg) {
    if (std::system("ffmpeg -version > /dev/null 2>&1") != 0)
      GTEST_SKIP() << "ffmpeg is not installed, so no " << name << " can be made";
    const std::string make = "ffmpeg -nostdin -loglevel error " + std::string(input.ffmpeg);
    ASSERT_EQ(std::system((make + " " + path).c_str()), 0);
  }
  const std::vector<std::string> before = Listing(dir_.path());
  for (const char* command : kCommands) {
    const std::string arguments = Replace(Replace(command, "PROGRAMME", path), "OUT", Path("out"));
    const ToolRun r = Tmxtool(arguments);
    EXPECT_EQ(r.status, 1) << arguments;
    EXPECT_EQ(r.err, "tmxtool: " + path + ": " + input.cause + "\n") << arguments;
    EXPECT_EQ(r.out, "") << arguments;
    EXPECT_EQ(Listing(dir_.path()), before) << arguments;
  }
}

INSTANTIATE_TEST_SUITE_P(Inputs, CliBadInput, ::testing::ValuesIn(kBadInputs),
                         [](const auto& info) { return std::string(info.param.name); });

// An output that names one of the command's inputs, under any spelling, is
// refused before anything is written; a failed command keeps an existing
// output as it was and leaves no temporary file.
TEST_F(Cli, InputsAreNeverOverwritten) {
  dir_.Write("book.aac", ReadFileText(kData + "/speech_mono_16000.aac"));
  dir_.Write("old.tmx", "an earlier programme");
  dir_.Write("tone.wav", SilentWav());
  ASSERT_EQ(Tool("mux " + Path("book.aac") + " -o " + Path("book.tmx")), 0);
  const std::vector<std::string> names = Listing(dir_.path());
  std::vector<std::string> contents;
  for (const std::string& name : names) contents.push_back(ReadFileText(Path(name)));

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
    const auto expand = [&](const std::string& text) {
      return Replace(Replace(text, "BOOK", Path("book")), "DIR", dir_.path().string());
    };
    const ToolRun r = Tmxtool(expand(c.arguments));
    EXPECT_EQ(r.status, 1) << c.arguments;
    EXPECT_EQ(r.err, expand(c.err)) << c.arguments;
    ASSERT_EQ(Listing(dir_.path()), names) << c.arguments;
    for (std::size_t i = 0; i < names.size(); ++i)
      EXPECT_EQ(ReadFileText(Path(names[i])), contents[i]) << c.arguments << ": " << names[i];
  }
}

}  // namespace
