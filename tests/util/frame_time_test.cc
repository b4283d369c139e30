#include <gtest/gtest.h>

#include "util/frame_time.h"

namespace tmx {
namespace {

TEST(FrameTime, MatchesExactArithmeticWithTheTruncatedRate) {
  for (std::uint32_t rate : {8000u, 11025u, 16000u, 22050u, 44100u, 48000u}) {
    const std::uint64_t d = rate / 25, m = 1024 * 40;
    // Every frame count whose time fits in 32 bits.
    const std::uint64_t lastFrame = (0xFFFFFFFFull * d + d - 1) / m;
    for (std::uint64_t frames = 0; frames <= lastFrame; frames = frames * 3 + 7) {
      EXPECT_EQ(FramesToMs(std::uint32_t(frames), rate, 1024), frames * m / d) << rate;
    }
    EXPECT_EQ(FramesToMs(std::uint32_t(lastFrame), rate, 1024), lastFrame * m / d);
    for (std::uint64_t ms = 0; ms <= 0xFFFFFFFFull; ms = ms * 3 + 11) {
      EXPECT_EQ(TimeToFrame(std::uint32_t(ms), rate, 1024), ms * d / m) << rate;
    }
    EXPECT_EQ(TimeToFrame(0xFFFFFFFF, rate, 1024), 0xFFFFFFFFull * d / m);
  }
  // Zero divisors: a rate below 25 and no samples per frame.
  EXPECT_EQ(FramesToMs(100, 24, 1024), 0u);
  EXPECT_EQ(TimeToFrame(100, 22050, 0), 0u);
}

}  // namespace
}  // namespace tmx
