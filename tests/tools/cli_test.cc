// tmxtool end to end: mux an ADTS file, extract it again, keep a position.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "support/temp_dir.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

int Tool(const std::string& arguments, const std::string& output = "/dev/null") {
  const std::string command =
      std::string(TMXTOOL_PATH) + " " + arguments + " > " + output + " 2>&1";
  return std::system(command.c_str());
}

struct Frame {
  std::size_t header, length;
};

std::vector<Frame> Frames(const Bytes& adts) {
  std::vector<Frame> frames;
  for (std::size_t pos = 0; pos + 7 <= adts.size();) {
    const std::size_t length =
        ((adts[pos + 3] & 3u) << 11) | (std::size_t(adts[pos + 4]) << 3) | (adts[pos + 5] >> 5);
    if (length < 7) break;
    frames.push_back({pos, length});
    pos += length;
  }
  return frames;
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
  const Bytes in = ReadFile(input), out = ReadFile(Path("out.aac"));
  ASSERT_EQ(in.size(), out.size());
  const auto frames = Frames(in);
  ASSERT_FALSE(frames.empty());
  for (const Frame& f : frames) {
    const std::uint8_t* a = in.data() + f.header;
    const std::uint8_t* b = out.data() + f.header;
    // The template fixes the MPEG version, private, original/copy and home
    // bits, the buffer fullness and the block count; everything else is the
    // input's, payload included.
    EXPECT_EQ(a[0], b[0]);
    EXPECT_EQ(a[1] & 0xF7, b[1] & 0xF7);
    EXPECT_EQ(a[2] & 0xFD, b[2] & 0xFD);
    EXPECT_EQ(a[3] & 0xC3, b[3] & 0xC3);
    EXPECT_EQ(a[4], b[4]);
    EXPECT_EQ(a[5] & 0xE0, b[5] & 0xE0);
    ASSERT_TRUE(std::equal(a + 7, a + f.length, b + 7)) << "frame at " << f.header;
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

}  // namespace
