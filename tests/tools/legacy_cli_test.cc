// tmxtool with the older container: a spoken WAV file muxed with the
// speech encoder, shown, and decoded back.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <string>

#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "support/test_data.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using tmx::test::ToolRun;

ToolRun Tool(const std::string& arguments) { return tmx::test::RunTool(TMXTOOL_PATH, arguments); }

void Put(Bytes& b, std::uint32_t v, int n) {
  for (int i = 0; i < n; ++i) b.push_back(std::uint8_t(v >> (8 * i)));
}

// A mono 16-bit WAV file of a vowel-like tone with a glide.
void WriteWav(const std::string& path, std::uint32_t rate, double seconds) {
  const auto n = std::uint32_t(rate * seconds);
  Bytes b = {'R', 'I', 'F', 'F'};
  Put(b, 36 + 2 * n, 4);
  b.insert(b.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
  Put(b, 16, 4);
  Put(b, 1, 2);
  Put(b, 1, 2);
  Put(b, rate, 4);
  Put(b, rate * 2, 4);
  Put(b, 2, 2);
  Put(b, 16, 2);
  b.insert(b.end(), {'d', 'a', 't', 'a'});
  Put(b, 2 * n, 4);
  double phase = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    const double f0 = 120 + 60 * double(i) / n;
    phase += 2 * std::numbers::pi * f0 / rate;
    double s = 0;
    for (int h = 1; h <= 12; ++h) s += std::sin(h * phase) / h * (h == 3 || h == 6 ? 2 : 1);
    Put(b, std::uint32_t(std::int16_t(3000 * s)), 2);
  }
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
}

TEST(LegacyCli, MuxInfoDecodeForBothRates) {
  tmx::test::TempDir dir;
  for (auto [mode, rate, code] : {std::tuple{"8k", 8000u, 6}, std::tuple{"16k", 16000u, 5}}) {
    const std::string wav = (dir.path() / "in.wav").string();
    const std::string book = (dir.path() / "book.tmx").string();
    const std::string out = (dir.path() / "out.wav").string();
    WriteWav(wav, rate, 2.0);
    ASSERT_EQ(Tool(std::string("mux --legacy=") + mode + " " + wav + " -o " + book +
                   " --title Clock --product-id p1")
                  .status,
              0);
    const ToolRun shown = Tool("info " + book);
    ASSERT_EQ(shown.status, 0) << shown.err;
    const std::string& info = shown.out;
    EXPECT_NE(info.find("file type: " + std::to_string(code)), std::string::npos) << info;
    EXPECT_NE(info.find("title: Clock"), std::string::npos) << info;
    EXPECT_NE(info.find("sample rate: " + std::to_string(rate)), std::string::npos) << info;
    ASSERT_EQ(Tool("decode " + book + " -o " + out).status, 0);
    // About the input's length, whole packets, and not silent.
    const Bytes pcm = tmx::test::ReadFileBytes(out);
    ASSERT_GT(pcm.size(), 44u);
    const double seconds = double(pcm.size() - 44) / 2 / rate;
    EXPECT_NEAR(seconds, 2.0, 0.05);
    double energy = 0;
    for (std::size_t i = 44; i + 1 < pcm.size(); i += 2) {
      const auto s = std::int16_t(pcm[i] | (pcm[i + 1] << 8));
      energy += double(s) * s;
    }
    EXPECT_GT(energy / ((pcm.size() - 44) / 2), 1e5);
  }
  // Input at another rate is refused with a hint, and nothing is written.
  const std::string wav44 = (dir.path() / "44k.wav").string();
  WriteWav(wav44, 44100, 0.2);
  const ToolRun refused =
      Tool("mux --legacy=8k " + wav44 + " -o " + (dir.path() / "x.tmx").string());
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            "tmxtool: " + wav44 +
                ": the WAV file must be sampled at 8000 Hz (for example: sox IN.wav -r "
                "8000 -c 1 OUT.wav)\n");
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "x.tmx"));
}

}  // namespace
