// tmxtool with the older container: a spoken WAV file muxed with the
// speech encoder, shown, and decoded back.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <string>

#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "support/test_data.h"

namespace {

using tmx::test::ToolRun;

ToolRun Tool(const std::string& arguments) { return tmx::test::RunTool(TMXTOOL_PATH, arguments); }

void Put(std::string& b, std::uint32_t v, int n) {
  for (int i = 0; i < n; ++i) b.push_back(char(v >> (8 * i)));
}

// A mono 16-bit WAV file of a vowel-like tone with a glide.
std::string Wav(std::uint32_t rate, double seconds) {
  const auto n = std::uint32_t(rate * seconds);
  std::string b;
  // "RIFF", size, "WAVE", "fmt ", 16, PCM mono, rate, bytes a second, 16-bit, "data", size.
  for (std::uint32_t word : {0x46464952u, 36 + 2 * n, 0x45564157u, 0x20746D66u, 16u, 0x10001u, rate,
                             2 * rate, 0x100002u, 0x61746164u, 2 * n})
    Put(b, word, 4);
  double phase = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    phase += 2 * std::numbers::pi * (120 + 60 * double(i) / n) / rate;
    double s = 0;
    for (int h = 1; h <= 12; ++h) s += std::sin(h * phase) / h * (h == 3 || h == 6 ? 2 : 1);
    Put(b, std::uint32_t(std::int16_t(3000 * s)), 2);
  }
  return b;
}

TEST(LegacyCli, MuxInfoDecodeForBothRates) {
  tmx::test::TempDir dir;
  const std::string book = (dir.path() / "book.tmx").string();
  const std::string out = (dir.path() / "out.wav").string();
  for (auto [mode, rate, code] : {std::tuple{"8k", 8000u, 6}, std::tuple{"16k", 16000u, 5}}) {
    const std::string wav = dir.Write("in.wav", Wav(rate, 2.0)).string();
    ASSERT_EQ(Tool(std::string("mux --legacy=") + mode + " " + wav + " -o " + book +
                   " --title Clock --product-id p1")
                  .status,
              0);
    const ToolRun shown = Tool("info " + book);
    ASSERT_EQ(shown.status, 0) << shown.err;
    for (const std::string& line :
         {"file type: " + std::to_string(code), std::string("title: Clock"),
          "sample rate: " + std::to_string(rate)})
      EXPECT_NE(shown.out.find(line), std::string::npos) << shown.out;
    ASSERT_EQ(Tool("decode " + book + " -o " + out).status, 0);
    // About the input's length, whole packets, and not silent.
    const auto pcm = tmx::test::ReadFileBytes(out);
    ASSERT_GT(pcm.size(), 44u);
    EXPECT_NEAR(double(pcm.size() - 44) / 2 / rate, 2.0, 0.05);
    double energy = 0;
    for (std::size_t i = 44; i + 1 < pcm.size(); i += 2) {
      const auto s = std::int16_t(pcm[i] | (pcm[i + 1] << 8));
      energy += double(s) * s;
    }
    EXPECT_GT(energy / ((pcm.size() - 44) / 2), 1e5);
  }
  // Input at another rate is refused with a hint, and nothing is written.
  const std::string wav44 = dir.Write("44k.wav", Wav(44100, 0.2)).string();
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
