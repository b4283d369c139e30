// The decoder on hand-built frames: creation and its failures, element kinds
// accepted and refused with their codes, fill and data elements, output buffer
// checks, and pulses against a double-precision synthesis.
#include "codec/aac/decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "codec/aac/bitreader.h"
#include "codec/aac/cpu.h"
#include "codec/aac/tables.h"
#include "support/fault_loops.h"
#include "tmxsdk.h"
#include "util/alloc.h"

namespace tmx::aac {
namespace {

constexpr double kPi = 3.14159265358979323846;

// Builds frames bit by bit, most significant bit first.
class BitWriter {
 public:
  BitWriter& Put(std::uint32_t value, int bits) {
    for (int i = bits - 1; i >= 0; --i) {
      if (count_ % 8 == 0) bytes_.push_back(0);
      if ((value >> i) & 1) bytes_.back() |= static_cast<std::uint8_t>(0x80 >> (count_ % 8));
      ++count_;
    }
    return *this;
  }
  std::vector<std::uint8_t> Aligned() {
    count_ = (count_ + 7) / 8 * 8;
    return bytes_;
  }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t count_ = 0;
};

// Owns a decoder for one test.
struct DecoderHolder {
  DecoderHolder() { EXPECT_EQ(CreateDecoder(&d, 4, 0), TMX_OK); }  // 44.1 kHz
  ~DecoderHolder() { DestroyDecoder(&d); }
  Decoder* d = nullptr;
};

// ics_info of a long window: reserved, only long, sine, max_sfb, no prediction.
void PutIcsInfo(BitWriter& w, std::uint32_t maxSfb = 0, std::uint32_t predictor = 0) {
  w.Put(0, 1).Put(0, 2).Put(0, 1).Put(maxSfb, 6).Put(predictor, 1);
}
// A single channel element up to its ics_info.
BitWriter& PutSce(BitWriter& w, std::uint32_t gain, std::uint32_t maxSfb = 0,
                  std::uint32_t predictor = 0) {
  PutIcsInfo(w.Put(0, 3).Put(0, 4).Put(gain, 8), maxSfb, predictor);
  return w;
}
// A channel element with no bands: no pulse, TNS or gain control data.
BitWriter& PutSilentSce(BitWriter& w) { return PutSce(w, 100).Put(0, 3); }
BitWriter& PutSilentCpe(BitWriter& w) {
  PutIcsInfo(w.Put(1, 3).Put(0, 4).Put(1, 1));
  return w.Put(0, 2).Put(100, 8).Put(0, 3).Put(100, 8).Put(0, 3);
}
std::vector<std::uint8_t> End(BitWriter& w) { return w.Put(7, 3).Aligned(); }
BitWriter& PutWord(BitWriter& w, const HuffmanBook& book, int index) {
  return w.Put(book.codes[index], book.lengths[index]);
}

Status Decode(Decoder* d, const std::vector<std::uint8_t>& frame,
              std::vector<std::int16_t>* pcm = nullptr, FrameInfo* info = nullptr,
              std::uint32_t capacity = 4096) {
  std::vector<std::int16_t> out(2048, 0x5555);
  const Status s = DecodeFrame(d, frame.data(), static_cast<std::uint32_t>(frame.size()),
                               out.data(), capacity, info);
  if (pcm) *pcm = out;
  return s;
}

TEST(AacDecoderApi, CreationChecksItsArgumentsAndConfiguration) {
  Decoder* d = reinterpret_cast<Decoder*>(1);
  EXPECT_EQ(CreateDecoder(nullptr, 4, 2), TMX_ERR_ARGUMENT);
  for (std::uint32_t rate : {13u, 14u, 15u}) {
    EXPECT_EQ(CreateDecoder(&d, rate, 2), TMX_ERR_DECODER);
    EXPECT_EQ(d, nullptr);
  }
  EXPECT_EQ(CreateDecoder(&d, 4, 3), TMX_ERR_DECODER);
  EXPECT_EQ(CreateDecoder(&d, 12, 1), TMX_OK);  // 7350 Hz
  EXPECT_EQ(ChannelSetting(d), 1u);
  EXPECT_EQ(DestroyDecoder(&d), TMX_OK);
  EXPECT_EQ(d, nullptr);
  EXPECT_EQ(DestroyDecoder(&d), TMX_ERR_ARGUMENT);
  EXPECT_EQ(DestroyDecoder(nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(ResetDecoder(nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(CreateDecoderFromConfig(&d, nullptr, 2), TMX_ERR_DECODER);
  const struct {
    std::uint8_t bytes[2];
    std::uint32_t length;
    std::int32_t want;
  } configs[] = {
      {{0x12, 0x10}, 2, TMX_OK},           // LC, index 4, 2 channels
      {{0x16, 0x08}, 2, TMX_OK},           // LC, index 12, 1 channel
      {{0x0A, 0x10}, 2, TMX_ERR_DECODER},  // object type 1
      {{0x12, 0x14}, 2, TMX_ERR_DECODER},  // 960-sample frames
      {{0x17, 0x90}, 2, TMX_ERR_DECODER},  // index 15
      {{0x12, 0x30}, 2, TMX_ERR_DECODER},  // six channels
      {{0x12, 0x10}, 1, TMX_ERR_DECODER},  // cut short
  };
  for (const auto& c : configs) {
    EXPECT_EQ(CreateDecoderFromConfig(&d, c.bytes, c.length), c.want) << int(c.bytes[1]);
    EXPECT_EQ(d != nullptr, c.want == TMX_OK);
    DestroyDecoder(&d);
  }
}

// Creation makes one allocation and fails cleanly without it; decoding makes none.
TEST(AacDecoderApi, OneAllocationAtCreationNoneWhileDecoding) {
  const std::uint8_t config[] = {0x12, 0x10};
  Decoder* d = reinterpret_cast<Decoder*>(1);
  const auto run = [&](std::int32_t rc) {
    EXPECT_EQ(d == nullptr, rc != TMX_OK);
    DestroyDecoder(&d);
    return rc;
  };
  EXPECT_EQ(test::FailEachAllocation({"create", [&] { return run(CreateDecoder(&d, 4, 2)); }}), 1);
  EXPECT_EQ(test::FailEachAllocation(
                {"config", [&] { return run(CreateDecoderFromConfig(&d, config, 2)); }}),
            1);
  EXPECT_LT(InstanceSize(), 48u * 1024u);

  ASSERT_EQ(CreateDecoder(&d, 3, 2), TMX_OK);
  const std::uint64_t before = tmx::testing::AllocationCount();
  BitWriter w;
  const auto frame = End(PutSilentCpe(w));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Decode(d, frame), kOk);
  EXPECT_EQ(tmx::testing::AllocationCount(), before);
  DestroyDecoder(&d);
}

TEST(AacDecoderSyntax, SilentFramesDecodeToSilence) {
  DecoderHolder h;
  BitWriter mono, stereo, two;
  std::vector<std::int16_t> pcm;
  FrameInfo info{};
  ASSERT_EQ(Decode(h.d, End(PutSilentSce(mono)), &pcm, &info), kOk);
  EXPECT_EQ(info.channels, 1u);
  EXPECT_EQ(info.samplesPerChannel, 1024u);
  EXPECT_EQ(info.sampleRate, 44100u);
  EXPECT_EQ(std::count(pcm.begin(), pcm.begin() + 1024, 0), 1024);
  EXPECT_EQ(pcm[1024], 0x5555);  // nothing written past one channel

  ASSERT_EQ(Decode(h.d, End(PutSilentCpe(stereo)), &pcm, &info), kOk);
  EXPECT_EQ(info.channels, 2u);
  EXPECT_EQ(ChannelSetting(h.d), 2u);
  EXPECT_EQ(std::count(pcm.begin(), pcm.end(), 0), 2048);

  // Two single channel elements make a stereo frame.
  ASSERT_EQ(Decode(h.d, End(PutSilentSce(PutSilentSce(two))), &pcm, &info), kOk);
  EXPECT_EQ(info.channels, 2u);
}

TEST(AacDecoderSyntax, MalformedFramesHaveTheirOwnCodes) {
  struct Case {
    const char* name;
    std::function<void(BitWriter&)> put;
    Status want;
    bool end = true;  // an END element closes the frame
  };
  const Case cases[] = {
      {"coupling", [](BitWriter& w) { w.Put(2, 3).Put(0, 32); }, kCouplingChannel},
      {"lfe", [](BitWriter& w) { w.Put(3, 3).Put(0, 32); }, kLfeChannel},
      {"program config", [](BitWriter& w) { w.Put(5, 3).Put(0, 32); }, kProgramConfig},
      {"prediction", [](BitWriter& w) { PutSce(w, 100, 0, 1); }, kPrediction},
      {"gain control", [](BitWriter& w) { PutSce(w, 100).Put(0, 2).Put(1, 1); }, kGainControl},
      {"no channels", [](BitWriter&) {}, kNoChannels},
      {"three channels", [](BitWriter& w) { PutSilentSce(PutSilentSce(PutSilentSce(w))); },
       kTooManyChannels},
      {"mono then pair", [](BitWriter& w) { PutSilentCpe(PutSilentSce(w)); }, kTooManyChannels},
      {"intensity band in a single channel",
       [](BitWriter& w) {  // section: book 15, one band
         PutWord(PutSce(w, 100, 1).Put(15, 4).Put(1, 5), kScalefactorBook, 60).Put(0, 3);
       },
       kBadSyntax},
      {"reserved book 12", [](BitWriter& w) { PutSce(w, 100, 1).Put(12, 4).Put(1, 5); },
       kBadSyntax},
      {"max_sfb above the 49 bands at 44.1 kHz", [](BitWriter& w) { PutSce(w, 100, 50); },
       kBadSyntax},
      {"section past max_sfb", [](BitWriter& w) { PutSce(w, 100, 2).Put(1, 4).Put(3, 5); },
       kBadSyntax},
      {"scalefactor 250 + 60 leaves 0..255",
       [](BitWriter& w) {
         PutWord(PutSce(w, 250, 1).Put(1, 4).Put(1, 5), kScalefactorBook, 120).Put(0, 3);
       },
       kBadSyntax},
      {"dynamic range payload longer than its element",
       [](BitWriter& w) {
         PutSilentSce(w.Put(6, 3).Put(1, 4).Put(11, 4).Put(0, 3).Put(1, 1).Put(0, 16));
       },
       kBadSyntax},
      {"no END", [](BitWriter& w) { PutSilentSce(w); }, kTruncated, false},
      {"data stream longer than the frame",
       [](BitWriter& w) { w.Put(4, 3).Put(0, 4).Put(0, 1).Put(200, 8).Put(0, 16); }, kTruncated,
       false},
  };
  DecoderHolder h;
  for (const Case& c : cases) {
    BitWriter w;
    c.put(w);
    EXPECT_EQ(Decode(h.d, c.end ? End(w) : w.Aligned()), c.want) << c.name;
  }
}

TEST(AacDecoderSyntax, DataAndFillElementsAreSkipped) {
  DecoderHolder h;
  BitWriter w;
  // Data stream element: byte-aligned, 3 bytes.
  w.Put(4, 3).Put(0, 4).Put(1, 1).Put(3, 8).Aligned();
  w.Put(0xABCDEF, 24);
  // Fill element of 10 bytes: fill data (3), dynamic range (3), ancillary data (4).
  w.Put(6, 3).Put(10, 4);
  w.Put(1, 4).Put(0, 4).Put(0xA5, 8).Put(0xA5, 8);
  w.Put(11, 4).Put(0, 3).Put(1, 1).Put(0x28, 7).Put(0, 1).Put(1, 1).Put(0x10, 7);
  w.Put(2, 4).Put(0, 4).Put(2, 8).Put(0x1234, 16);
  // Fill element with an escaped count: 15 + 5 - 1 = 19 bytes of fill.
  w.Put(6, 3).Put(15, 4).Put(5, 8).Put(0, 4).Put(0, 4);
  for (int i = 0; i < 18; ++i) w.Put(0xA5, 8);
  std::vector<std::int16_t> pcm;
  ASSERT_EQ(Decode(h.d, End(PutSilentSce(w)), &pcm), kOk);
  EXPECT_EQ(pcm[0], 0);
}

TEST(AacDecoderApi, BadArgumentsAndBuffers) {
  DecoderHolder h;
  std::vector<std::uint8_t> big(kBitBufferBytes + 1, 0);
  std::vector<std::int16_t> pcm;
  EXPECT_EQ(Decode(h.d, big), kFrameTooLarge);
  std::int16_t out[2048];
  EXPECT_EQ(DecodeFrame(h.d, nullptr, 4, out, 4096, nullptr), kBadArgument);
  BitWriter stereo;
  const auto frame = End(PutSilentCpe(stereo));
  EXPECT_EQ(Decode(nullptr, frame), kBadArgument);
  // The buffer must hold 2048 bytes a channel. One channel until a frame sets
  // more: 2048 bytes pass the first check, then the stereo frame needs 4096
  // and writes nothing.
  EXPECT_EQ(Decode(h.d, frame, &pcm, nullptr, 2047), kOutputTooSmall);
  EXPECT_EQ(Decode(h.d, frame, &pcm, nullptr, 2048), kOutputTooSmall);
  EXPECT_EQ(pcm[0], 0x5555);
  EXPECT_EQ(ChannelSetting(h.d), 2u);
  EXPECT_EQ(Decode(h.d, frame, &pcm), kOk);
  EXPECT_EQ(pcm[0], 0);
}

// Reference synthesis of one long sine-windowed frame holding a single line.
double Expected(int n, int line, double x) {
  const double n0 = (1024 + 1) / 2.0;
  const double y = 2.0 / 2048 * x * std::cos(2 * kPi / 2048 * (n + n0) * (line + 0.5));
  return y * std::sin(kPi / 2048 * (n + 0.5));
}

TEST(AacDecoderOutput, PulsesAddToSingleLinesAwayFromZero) {
  DecoderHolder h;
  BitWriter w;
  PutSce(w, 180, 2).Put(5, 4).Put(2, 5);  // book 5 on bands 0 and 1 (lines 0..7)
  PutWord(w, kScalefactorBook, 60);
  PutWord(w, kScalefactorBook, 60);
  w.Put(1, 1).Put(2, 2).Put(0, 6);           // three pulses from band 0
  w.Put(0, 5).Put(3, 4);                     // line 0: 2 -> 5
  w.Put(1, 5).Put(2, 4);                     // line 1: 0 -> -2
  w.Put(2, 5).Put(4, 4);                     // line 3: -1 -> -5
  w.Put(0, 1).Put(0, 1);                     // no TNS, no gain control
  PutWord(w, kSpectralBooks[5], 9 * 6 + 4);  // (2, 0)
  PutWord(w, kSpectralBooks[5], 9 * 4 + 3);  // (0, -1)
  PutWord(w, kSpectralBooks[5], 9 * 4 + 4);
  PutWord(w, kSpectralBooks[5], 9 * 4 + 4);
  std::vector<std::int16_t> pcm;
  FrameInfo info{};
  ASSERT_EQ(Decode(h.d, End(w), &pcm, &info), kOk);
  EXPECT_TRUE(info.tools & kToolPulse);
  const int q[4] = {5, -2, 0, -5};
  for (int n = 0; n < 1024; ++n) {
    double want = 0;
    for (int k = 0; k < 4; ++k)
      want += Expected(n, k, std::cbrt(q[k]) * std::abs(q[k]) * std::exp2(20));
    ASSERT_NEAR(pcm[n], want, 0.51) << n;
  }
}

}  // namespace
}  // namespace tmx::aac
