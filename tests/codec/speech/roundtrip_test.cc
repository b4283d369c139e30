// Encoder and decoder together: quality floors on speech, determinism.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codec/speech/layout.h"
#include "speech_test_util.h"
#include "support/test_data.h"

namespace tmx::speech {
namespace {

using test::DecodeAll;

struct Case {
  int mode;
  double floor;          // dB, a little under what the codec measures
  std::uint64_t digest;  // of the decoded speech (PcmDigest), the same on every platform
};

class SpeechRoundTrip : public ::testing::TestWithParam<Case> {};

// Segmental SNR of the decoded speech stays above the figure measured with
// the committed tables (15.4, 13.5, 12.1 and 13.7 dB) less half a decibel,
// so a regression in the encoder, the decoder or the tables fails here.
TEST_P(SpeechRoundTrip, SegmentalSnrStaysAboveItsFloor) {
  const Case c = GetParam();
  const std::vector<std::int16_t> pcm = test::Clip(c.mode);
  const std::vector<std::uint8_t> packets = test::Encode(c.mode, pcm);
  EXPECT_EQ(test::Encode(c.mode, pcm), packets);  // the same input, the same packets
  const std::vector<std::int16_t> out = DecodeAll(c.mode, packets);
  ASSERT_GT(out.size(), pcm.size() - 480);
  const double snr = test::SegmentalSnr(pcm, out, LayoutForMode(c.mode)->sampleRate);
  RecordProperty("segmental_snr", std::to_string(snr));
  // Encoder and decoder give the same samples, bit for bit, on every machine.
  EXPECT_EQ(::tmx::test::PcmDigest(out), c.digest) << std::hex << "0x" << ::tmx::test::PcmDigest(out);
  EXPECT_GT(snr, c.floor) << "mode " << c.mode;
}

INSTANTIATE_TEST_SUITE_P(Modes, SpeechRoundTrip,
                         ::testing::Values(Case{3, 14.9, 0x54266e0dcac2200full},
                                           Case{4, 13.0, 0x4c0d4f4cac405967ull},
                                           Case{1, 11.5, 0x83735f30b4856ae4ull},
                                           Case{2, 13.2, 0x2896cc88407a6ff7ull}),
                         [](const ::testing::TestParamInfo<Case>& info) {
                           return "mode" + std::to_string(info.param.mode);
                         });

}  // namespace
}  // namespace tmx::speech
