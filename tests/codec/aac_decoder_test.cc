// The decoder's interface and syntax handling on hand-built frames: creation
// and its failures, element kinds accepted and refused with their codes,
// fill and data elements, output buffer checks, and the absolute scale of
// the output against a double-precision synthesis.
#include "codec/aac/decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "aac_test_util.h"
#include "codec/aac/cpu.h"
#include "codec/aac/filterbank.h"
#include "codec/aac/spectrum.h"
#include "codec/aac/tables.h"
#include "tmxsdk.h"
#include "util/alloc.h"

namespace tmx::aac {
namespace {

using testing::BitWriter;
constexpr double kPi = 3.14159265358979323846;
constexpr std::uint32_t kRate44k = 4;

// Owns a decoder for one test.
struct DecoderHolder {
  explicit DecoderHolder(std::uint32_t rate = kRate44k) {
    EXPECT_EQ(CreateDecoder(&d, rate, 0), TMX_OK);
  }
  ~DecoderHolder() {
    if (d) DestroyDecoder(&d);
  }
  Decoder* d = nullptr;
};

// ics_info of a long window: reserved, only long, sine, max_sfb, no prediction.
void PutIcsInfo(BitWriter& w, std::uint32_t maxSfb = 0, std::uint32_t predictor = 0) {
  w.Put(0, 1).Put(0, 2).Put(0, 1).Put(maxSfb, 6).Put(predictor, 1);
}
// A channel stream with no bands: global_gain, [ics_info], no pulse, TNS, gain control.
void PutSilentStream(BitWriter& w, bool withInfo) {
  w.Put(100, 8);
  if (withInfo) PutIcsInfo(w);
  w.Put(0, 1).Put(0, 1).Put(0, 1);
}
void PutSilentSce(BitWriter& w) {
  w.Put(0, 3).Put(0, 4);
  PutSilentStream(w, true);
}
void PutSilentCpe(BitWriter& w) {
  w.Put(1, 3).Put(0, 4).Put(1, 1);
  PutIcsInfo(w);
  w.Put(0, 2);
  PutSilentStream(w, false);
  PutSilentStream(w, false);
}
std::vector<std::uint8_t> End(BitWriter& w) {
  w.Put(7, 3).Align();
  return w.bytes();
}
void PutWord(BitWriter& w, const HuffmanBook& book, int index) {
  w.Put(book.codes[index], book.lengths[index]);
}

Status Decode(Decoder* d, const std::vector<std::uint8_t>& frame,
              std::vector<std::int16_t>* pcm = nullptr, FrameInfo* info = nullptr) {
  std::vector<std::int16_t> out(2048, 0x5555);
  const Status s = DecodeFrame(d, frame.data(), static_cast<std::uint32_t>(frame.size()),
                               out.data(), static_cast<std::uint32_t>(out.size() * 2), info);
  if (pcm) *pcm = out;
  return s;
}

TEST(AacDecoderApi, CreationChecksItsArguments) {
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
}

TEST(AacDecoderApi, AudioSpecificConfig) {
  Decoder* d = nullptr;
  const std::uint8_t lc44Stereo[] = {0x12, 0x10};  // LC, index 4, 2 channels
  ASSERT_EQ(CreateDecoderFromConfig(&d, lc44Stereo, 2), TMX_OK);
  DestroyDecoder(&d);
  const std::uint8_t lc7350Mono[] = {0x16, 0x08};  // LC, index 12, 1 channel
  ASSERT_EQ(CreateDecoderFromConfig(&d, lc7350Mono, 2), TMX_OK);
  DestroyDecoder(&d);
  const std::uint8_t main44[] = {0x0A, 0x10};        // object type 1
  const std::uint8_t lc960[] = {0x12, 0x14};         // 960-sample frames
  const std::uint8_t explicitRate[] = {0x17, 0x90};  // index 15
  const std::uint8_t sixChannels[] = {0x12, 0x30};
  for (const std::uint8_t* c : {main44, lc960, explicitRate, sixChannels}) {
    EXPECT_EQ(CreateDecoderFromConfig(&d, c, 2), TMX_ERR_DECODER);
    EXPECT_EQ(d, nullptr);
  }
  EXPECT_EQ(CreateDecoderFromConfig(&d, lc44Stereo, 1), TMX_ERR_DECODER);
  EXPECT_EQ(CreateDecoderFromConfig(&d, nullptr, 2), TMX_ERR_DECODER);
}

TEST(AacDecoderApi, OneAllocationAtCreationNoneWhileDecoding) {
  const std::int64_t live = tmx::testing::LiveAllocations();
  const std::uint64_t before = tmx::testing::AllocationCount();
  Decoder* d = nullptr;
  ASSERT_EQ(CreateDecoder(&d, 3, 2), TMX_OK);
  EXPECT_EQ(tmx::testing::AllocationCount(), before + 1);
  EXPECT_LT(InstanceSize(), 48u * 1024u);

  BitWriter w;
  PutSilentCpe(w);
  const auto frame = End(w);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Decode(d, frame), kOk);
  EXPECT_EQ(tmx::testing::AllocationCount(), before + 1);
  DestroyDecoder(&d);
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
}

TEST(AacDecoderApi, FailedAllocationReportsMemoryAndLeaksNothing) {
  const std::int64_t live = tmx::testing::LiveAllocations();
  Decoder* d = reinterpret_cast<Decoder*>(1);
  tmx::testing::FailAllocation(1);
  EXPECT_EQ(CreateDecoder(&d, 4, 2), TMX_ERR_MEMORY);
  EXPECT_EQ(d, nullptr);
  tmx::testing::FailAllocation(1);
  const std::uint8_t config[] = {0x12, 0x10};
  EXPECT_EQ(CreateDecoderFromConfig(&d, config, 2), TMX_ERR_MEMORY);
  EXPECT_EQ(d, nullptr);
  tmx::testing::FailAllocation(0);
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
  ASSERT_EQ(CreateDecoder(&d, 4, 2), TMX_OK);  // the next attempt succeeds
  DestroyDecoder(&d);
}

TEST(AacDecoderSyntax, SilentFramesDecodeToSilence) {
  DecoderHolder h;
  BitWriter mono;
  PutSilentSce(mono);
  std::vector<std::int16_t> pcm;
  FrameInfo info{};
  ASSERT_EQ(Decode(h.d, End(mono), &pcm, &info), kOk);
  EXPECT_EQ(info.channels, 1u);
  EXPECT_EQ(info.samplesPerChannel, 1024u);
  EXPECT_EQ(info.sampleRate, 44100u);
  for (int i = 0; i < 1024; ++i) ASSERT_EQ(pcm[i], 0);
  EXPECT_EQ(pcm[1024], 0x5555);  // nothing written past one channel

  BitWriter stereo;
  PutSilentCpe(stereo);
  ASSERT_EQ(Decode(h.d, End(stereo), &pcm, &info), kOk);
  EXPECT_EQ(info.channels, 2u);
  EXPECT_EQ(ChannelSetting(h.d), 2u);
  for (int i = 0; i < 2048; ++i) ASSERT_EQ(pcm[i], 0);

  BitWriter two;  // two single channel elements make a stereo frame
  PutSilentSce(two);
  PutSilentSce(two);
  ASSERT_EQ(Decode(h.d, End(two), &pcm, &info), kOk);
  EXPECT_EQ(info.channels, 2u);
}

TEST(AacDecoderSyntax, RefusedElementsHaveTheirOwnCodes) {
  DecoderHolder h;
  struct Case {
    std::uint32_t id;
    Status want;
  };
  for (const Case& c : {Case{2, kCouplingChannel}, Case{3, kLfeChannel}, Case{5, kProgramConfig}}) {
    BitWriter w;
    w.Put(c.id, 3).Put(0, 32);
    EXPECT_EQ(Decode(h.d, End(w)), c.want) << c.id;
  }
  BitWriter prediction;
  prediction.Put(0, 3).Put(0, 4).Put(100, 8);
  PutIcsInfo(prediction, 0, 1);
  EXPECT_EQ(Decode(h.d, End(prediction)), kPrediction);

  BitWriter gain;
  gain.Put(0, 3).Put(0, 4).Put(100, 8);
  PutIcsInfo(gain);
  gain.Put(0, 1).Put(0, 1).Put(1, 1);  // gain_control_data_present
  EXPECT_EQ(Decode(h.d, End(gain)), kGainControl);

  BitWriter none;
  EXPECT_EQ(Decode(h.d, End(none)), kNoChannels);

  BitWriter three;
  for (int i = 0; i < 3; ++i) PutSilentSce(three);
  EXPECT_EQ(Decode(h.d, End(three)), kTooManyChannels);

  BitWriter monoThenPair;
  PutSilentSce(monoThenPair);
  PutSilentCpe(monoThenPair);
  EXPECT_EQ(Decode(h.d, End(monoThenPair)), kTooManyChannels);
}

TEST(AacDecoderSyntax, DataAndFillElementsAreSkipped) {
  DecoderHolder h;
  BitWriter w;
  // Data stream element: byte-aligned, 3 bytes.
  w.Put(4, 3).Put(0, 4).Put(1, 1).Put(3, 8).Align().Put(0xABCDEF, 24);
  // Fill element of 10 bytes: fill data (3), dynamic range (3), ancillary data (4).
  w.Put(6, 3).Put(10, 4);
  w.Put(1, 4).Put(0, 4).Put(0xA5, 8).Put(0xA5, 8);
  w.Put(11, 4).Put(0, 1).Put(0, 1).Put(0, 1).Put(1, 1).Put(0x28, 7).Put(0, 1).Put(1, 1).Put(0x10,
                                                                                            7);
  w.Put(2, 4).Put(0, 4).Put(2, 8).Put(0x1234, 16);
  // Fill element with an escaped count: 15 + 5 - 1 = 19 bytes of fill.
  w.Put(6, 3).Put(15, 4).Put(5, 8).Put(0, 4).Put(0, 4);
  for (int i = 0; i < 18; ++i) w.Put(0xA5, 8);
  PutSilentSce(w);
  std::vector<std::int16_t> pcm;
  ASSERT_EQ(Decode(h.d, End(w), &pcm), kOk);
  EXPECT_EQ(pcm[0], 0);

  BitWriter tooLong;  // a dynamic range payload longer than its element
  tooLong.Put(6, 3).Put(1, 4).Put(11, 4).Put(0, 1).Put(0, 1).Put(0, 1).Put(1, 1).Put(0, 8).Put(0,
                                                                                               8);
  PutSilentSce(tooLong);
  EXPECT_EQ(Decode(h.d, End(tooLong)), kBadSyntax);
}

TEST(AacDecoderSyntax, TruncatedAndOversizedFrames) {
  DecoderHolder h;
  BitWriter w;
  PutSilentSce(w);  // no END
  w.Align();
  EXPECT_EQ(Decode(h.d, w.bytes()), kTruncated);

  BitWriter dse;  // data stream longer than the frame
  dse.Put(4, 3).Put(0, 4).Put(0, 1).Put(200, 8).Put(0, 16);
  EXPECT_EQ(Decode(h.d, dse.bytes()), kTruncated);

  std::vector<std::uint8_t> big(kBitBufferBytes + 1, 0);
  std::vector<std::int16_t> pcm(4096);
  EXPECT_EQ(DecodeFrame(h.d, big.data(), static_cast<std::uint32_t>(big.size()), pcm.data(), 8192,
                        nullptr),
            kFrameTooLarge);
  EXPECT_EQ(DecodeFrame(h.d, nullptr, 4, pcm.data(), 8192, nullptr), kBadArgument);
  EXPECT_EQ(DecodeFrame(nullptr, big.data(), 4, pcm.data(), 8192, nullptr), kBadArgument);
}

TEST(AacDecoderSyntax, IntensityBandsOnlyInTheSecondChannelOfAPair) {
  DecoderHolder h;
  BitWriter w;  // single channel with an intensity band
  w.Put(0, 3).Put(0, 4).Put(100, 8);
  PutIcsInfo(w, 1);
  w.Put(15, 4).Put(1, 5);  // section: book 15, one band
  PutWord(w, kScalefactorBook, 60);
  w.Put(0, 3);
  EXPECT_EQ(Decode(h.d, End(w)), kBadSyntax);
}

TEST(AacDecoderSyntax, BadSectionsAndScalefactors) {
  DecoderHolder h;
  BitWriter reserved;  // book 12 does not exist
  reserved.Put(0, 3).Put(0, 4).Put(100, 8);
  PutIcsInfo(reserved, 1);
  reserved.Put(12, 4).Put(1, 5);
  EXPECT_EQ(Decode(h.d, End(reserved)), kBadSyntax);

  BitWriter tooMany;  // max_sfb above the rate's band count (49 at 44.1 kHz)
  tooMany.Put(0, 3).Put(0, 4).Put(100, 8);
  PutIcsInfo(tooMany, 50);
  EXPECT_EQ(Decode(h.d, End(tooMany)), kBadSyntax);

  BitWriter overlong;  // a section past max_sfb
  overlong.Put(0, 3).Put(0, 4).Put(100, 8);
  PutIcsInfo(overlong, 2);
  overlong.Put(1, 4).Put(3, 5);
  EXPECT_EQ(Decode(h.d, End(overlong)), kBadSyntax);

  BitWriter range;  // scalefactor 250 + 60 leaves 0..255
  range.Put(0, 3).Put(0, 4).Put(250, 8);
  PutIcsInfo(range, 1);
  range.Put(1, 4).Put(1, 5);
  PutWord(range, kScalefactorBook, 120);
  range.Put(0, 3);
  EXPECT_EQ(Decode(h.d, End(range)), kBadSyntax);
}

TEST(AacDecoderOutput, BufferMustHold2048BytesPerChannel) {
  DecoderHolder h;
  BitWriter stereo;
  PutSilentCpe(stereo);
  const auto frame = End(stereo);
  std::vector<std::int16_t> pcm(2048, 7);
  // One channel until a frame sets more: 2048 bytes pass the first check,
  // then the stereo frame needs 4096 and writes nothing.
  EXPECT_EQ(DecodeFrame(h.d, frame.data(), static_cast<std::uint32_t>(frame.size()), pcm.data(),
                        2047, nullptr),
            kOutputTooSmall);
  EXPECT_EQ(DecodeFrame(h.d, frame.data(), static_cast<std::uint32_t>(frame.size()), pcm.data(),
                        2048, nullptr),
            kOutputTooSmall);
  EXPECT_EQ(pcm[0], 7);
  EXPECT_EQ(ChannelSetting(h.d), 2u);
  EXPECT_EQ(DecodeFrame(h.d, frame.data(), static_cast<std::uint32_t>(frame.size()), pcm.data(),
                        4096, nullptr),
            kOk);
  EXPECT_EQ(pcm[0], 0);
}

// Reference synthesis of one long sine-windowed frame holding a single line.
double Expected(int n, int line, double x) {
  const double n0 = (1024 + 1) / 2.0;
  const double y = 2.0 / 2048 * x * std::cos(2 * kPi / 2048 * (n + n0) * (line + 0.5));
  return y * std::sin(kPi / 2048 * (n + 0.5));
}

TEST(AacDecoderOutput, ScaleOfASingleLineMatchesTheStandardsSynthesis) {
  for (const int q : {1, -3, 40}) {
    DecoderHolder h;
    BitWriter w;  // band 0 (lines 0..3) in book 1 or 11, everything else zero
    const int gain = q == 40 ? 166 : q == 1 ? 192 : 184;
    w.Put(0, 3).Put(0, 4).Put(static_cast<std::uint32_t>(gain), 8);
    PutIcsInfo(w, 1);
    const int book = q == 40 ? 11 : 5;
    w.Put(static_cast<std::uint32_t>(book), 4).Put(1, 5);
    PutWord(w, kScalefactorBook, 60);  // scalefactor = global_gain
    w.Put(0, 3);
    if (book == 5) {  // pairs, signed, index 9 (y + 4) + (z + 4)
      PutWord(w, kSpectralBooks[5], 9 * (q + 4) + 4);
      PutWord(w, kSpectralBooks[5], 9 * 4 + 4);
    } else {  // book 11: escape for 40 = 2^5 + 8, then sign
      PutWord(w, kSpectralBooks[11], 17 * 16 + 0);
      w.Put(0, 1);               // sign of y: positive
      w.Put(0b10, 2).Put(8, 5);  // escape: N = 1, 5-bit 8
      PutWord(w, kSpectralBooks[11], 0);
    }
    const auto frame = End(w);
    BitWriter silent;
    PutSilentSce(silent);
    const double x =
        std::pow(std::abs(q), 4.0 / 3.0) * std::pow(2.0, (gain - 100) / 4.0) * (q < 0 ? -1 : 1);
    std::vector<std::int16_t> first, second;
    ASSERT_EQ(Decode(h.d, frame, &first), kOk);
    ASSERT_EQ(Decode(h.d, End(silent), &second), kOk);
    double peak = 0;
    for (int n = 0; n < 1024; ++n) {
      const double a = Expected(n, 0, x);
      const double b = Expected(n + 1024, 0, x);  // the overlap: falling half of the window
      ASSERT_NEAR(first[n], a, 0.51) << "q " << q << " n " << n;
      ASSERT_NEAR(second[n], b, 0.51) << "q " << q << " n " << n;
      peak = std::max(peak, std::abs(a));
    }
    EXPECT_GT(peak, 1000);  // the test would be vacuous on near-silence
  }
}

TEST(AacDecoderOutput, PulsesAddToSingleLinesAwayFromZero) {
  DecoderHolder h;
  BitWriter w;
  w.Put(0, 3).Put(0, 4).Put(180, 8);
  PutIcsInfo(w, 2);
  w.Put(5, 4).Put(2, 5);  // book 5 on bands 0 and 1 (lines 0..7)
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
    for (int k = 0; k < 4; ++k) {
      want += Expected(
          n, k, std::pow(std::abs(q[k]), 4.0 / 3.0) * std::pow(2.0, 20.0) * (q[k] < 0 ? -1 : 1));
    }
    ASSERT_NEAR(pcm[n], want, 0.51) << n;
  }
}

// One band of lines 0..3 in a long window at 44.1 kHz.
ChannelStream OneBand(int type, int scale) {
  ChannelStream cs{};
  cs.ics.windowSequence = kOnlyLong;
  cs.ics.maxSfb = 1;
  cs.ics.numWindows = 1;
  cs.ics.numGroups = 1;
  cs.ics.groupLength[0] = 1;
  cs.ics.numSwb = kNumSwbLong[kRate44k];
  cs.ics.swbOffset = kSwbOffsetLong[kRate44k];
  cs.ics.windowLength = 1024;
  cs.bandType[0][0] = static_cast<std::uint8_t>(type);
  cs.scale[0][0] = static_cast<std::int16_t>(scale);
  return cs;
}

TEST(AacStereo, IntensitySignIsInvertedOnlyByAPerBandMask) {
  struct Case {
    int type;
    int maskPresent;
    int used;
    int sign;
  };
  const Case cases[] = {
      {kIntensityInPhase, 0, 0, 1},     {kIntensityOutOfPhase, 0, 0, -1},
      {kIntensityInPhase, 1, 0, 1},     {kIntensityInPhase, 1, 1, -1},
      {kIntensityOutOfPhase, 1, 1, 1},  {kIntensityInPhase, 2, 1, 1},
      {kIntensityOutOfPhase, 2, 1, -1},
  };
  for (const Case& c : cases) {
    const ChannelStream right = OneBand(c.type, 4);  // position 4: half the left level
    PairInfo pair{};
    pair.commonWindow = true;
    pair.msMaskPresent = static_cast<std::uint8_t>(c.maskPresent);
    pair.msUsed[0][0] = static_cast<std::uint8_t>(c.used);
    std::vector<std::int32_t> l(1024, 0), r(1024, 0);
    l[0] = 1000;
    l[3] = -64;
    ApplyIntensity(right, pair, l.data(), r.data());
    EXPECT_EQ(r[0], c.sign * 500) << c.type << " " << c.maskPresent << " " << c.used;
    EXPECT_EQ(r[3], c.sign * -32);
    EXPECT_EQ(r[4], 0);
  }
}

}  // namespace
}  // namespace tmx::aac
