// Speech-coded programmes of the older container, written with the
// project's writer and decoded through TMXDecodePCMFrame.
#include <gtest/gtest.h>

#include <vector>

#include "codec/speech/layout.h"
#include "speech_test_util.h"
#include "support/memory_stream.h"
#include "tmxsdk.h"

namespace tmx::speech {
namespace {

// An open programme of 32000 clip samples in `mode`, and its packets.
struct Programme {
  explicit Programme(int mode)
      : packets(test::Encode(mode, test::Clip(mode, 0, 32000))),
        stream(test::LegacyProgramme(mode, packets)) {
    EXPECT_EQ(TMXOpenFile(&file, stream.stream(), nullptr), TMX_OK);
  }
  ~Programme() { TMXCloseFile(file); }
  std::vector<std::uint8_t> packets;
  ::tmx::test::MemoryStream stream;
  TMXFile* file = nullptr;
};

TEST(SpeechProgramme, DecodesLikeTheDecoderItself) {
  for (int mode : {3, 4}) {
    Programme p(mode);
    const ModeLayout& layout = *LayoutForMode(mode);
    // Ten packets a call, as a player would hand them over.
    const std::uint32_t size = 10 * layout.packetBytes;
    std::vector<std::int16_t> got, pcm(10 * layout.samplesPerFrame);
    for (std::size_t at = 0; at + size <= p.packets.size(); at += size) {
      std::uint32_t length = 0;
      ASSERT_EQ(TMXDecodePCMFrame(p.file, p.packets.data() + at, size, pcm.data(),
                                  std::uint32_t(pcm.size() * 2), &length),
                TMX_OK);
      ASSERT_EQ(length, pcm.size() * 2);
      got.insert(got.end(), pcm.begin(), pcm.end());
    }
    const std::vector<std::int16_t> all = test::DecodeAll(mode, p.packets);
    ASSERT_GT(got.size(), all.size() / 2);
    EXPECT_EQ(got, std::vector<std::int16_t>(all.begin(), all.begin() + got.size())) << mode;
  }
}

// After a seek the next decode starts from a fresh decoder state.
TEST(SpeechProgramme, ASeekResetsTheDecoder) {
  Programme p(3);
  std::vector<std::int16_t> pcm(144 * 20);
  std::uint32_t length = 0;
  ASSERT_EQ(TMXDecodePCMFrame(p.file, p.packets.data(), 19 * 20, pcm.data(), 144 * 40, &length),
            TMX_OK);
  ASSERT_EQ(TMXSeek(p.file, 1000), TMX_OK);
  const auto later = p.packets.begin() + 19 * 100;
  ASSERT_EQ(TMXDecodePCMFrame(p.file, &*later, 19 * 20, pcm.data(), 144 * 40, &length), TMX_OK);
  EXPECT_EQ(pcm, test::DecodeAll(3, std::vector<std::uint8_t>(later, later + 19 * 20)));
}

}  // namespace
}  // namespace tmx::speech
