// The speech codec front: instances through the codec tables, packet cutting,
// the carry buffer, the field reader, the dormant two-frame modes' layout, and
// programmes of the older container decoded through TMXDecodePCMFrame.
#include <gtest/gtest.h>

#include <vector>

#include "codec/codec.h"
#include "codec/speech/encoder.h"
#include "codec/speech/layout.h"
#include "codec/speech/speech_codec.h"
#include "speech_test_util.h"
#include "support/memory_stream.h"
#include "tmxsdk.h"
#include "util/alloc.h"

namespace tmx::speech {
namespace {

using test::DecodeAll, test::RandomBytes;
using Pcm = std::vector<std::int16_t>;
using Bytes = std::vector<std::uint8_t>;

// A decoder instance made through a codec table, destroyed with it.
struct Instance {
  explicit Instance(const Codec& table) : codec(table) {
    EXPECT_EQ(codec.CreateDecoder(&p, nullptr, 0, &codec), TMX_OK);
  }
  ~Instance() { codec.DestroyDecoder(&p); }

  // Decodes `n` bytes through the table's decode slot; `pcm` gets the
  // samples produced.
  std::int32_t Decode(const Bytes& bytes, std::size_t n, std::uint32_t* produced,
                      Pcm* pcm = nullptr, std::size_t from = 0) {
    Pcm out(4096, 0);
    const std::int32_t rc = codec.DecodeFrame(p, bytes.data() + from, std::uint32_t(n), out.data(),
                                              std::uint32_t(out.size() * 2), produced);
    if (pcm) pcm->assign(out.begin(), out.begin() + (rc == TMX_OK ? *produced / 2 : 0));
    return rc;
  }

  const Codec& codec;
  void* p = nullptr;
};

TEST(SpeechCodec, TableSlotsMakeAndFreeAnInstance) {
  const std::int64_t live = tmx::testing::LiveAllocations();
  {
    Instance three(kSpeechMode3Codec), four(kSpeechMode4Codec);
    EXPECT_EQ(CurrentMode(three.p), 3);
    EXPECT_EQ(CurrentMode(four.p), 4);
    EXPECT_EQ(tmx::testing::LiveAllocations(), live + 2);
    EXPECT_EQ(kSpeechMode3Codec.DestroyDecoder(&three.p), TMX_OK);
    EXPECT_EQ(three.p, nullptr);
    EXPECT_EQ(kSpeechMode3Codec.DestroyDecoder(&three.p), TMX_ERR_ARGUMENT);
  }
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
  EXPECT_EQ(kSpeechMode4Codec.DestroyDecoder(nullptr), TMX_ERR_ARGUMENT);
  // Without an instance nothing runs; without memory there is no instance.
  std::uint32_t n = 77;
  EXPECT_EQ(kSpeechMode3Codec.ResetDecoder(nullptr, nullptr, 0, &kSpeechMode3Codec),
            TMX_ERR_ARGUMENT);
  EXPECT_EQ(kSpeechMode3Codec.DecodeFrame(nullptr, nullptr, 0, nullptr, 0, &n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(n, 77u);
  void* p = reinterpret_cast<void*>(1);
  tmx::testing::FailAllocation(1);
  EXPECT_EQ(kSpeechMode4Codec.CreateDecoder(&p, nullptr, 0, &kSpeechMode4Codec), TMX_ERR_MEMORY);
  tmx::testing::FailAllocation(0);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
}

TEST(SpeechCodec, ModeFourCarriesTheByteAfterTwoPackets) {
  Instance d(kSpeechMode4Codec);
  const Bytes bytes = RandomBytes(60, 1);
  Pcm first, second;
  std::uint32_t n = 0;
  ASSERT_EQ(d.Decode(bytes, 41, &n, &first), TMX_OK);
  EXPECT_EQ(n, 640u);
  EXPECT_EQ(CarriedBytes(d.p), 1);
  // The carried byte and 19 more complete the third packet.
  ASSERT_EQ(d.Decode(bytes, 19, &n, &second, 41), TMX_OK);
  EXPECT_EQ(n, 320u);
  EXPECT_EQ(CarriedBytes(d.p), 0);
  // Same samples as the three packets decoded whole.
  first.insert(first.end(), second.begin(), second.end());
  EXPECT_EQ(first, DecodeAll(4, bytes));
}

TEST(SpeechCodec, InputThatCompletesNoPacketIsDropped) {
  Instance d(kSpeechMode3Codec);
  const Bytes bytes = RandomBytes(19, 2);
  std::uint32_t n = 1234;
  EXPECT_EQ(d.Decode(bytes, 10, &n), TMX_ERR_DECODER);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(CarriedBytes(d.p), 0);
  // Had the 10 bytes been kept, these 9 would complete a packet.
  EXPECT_EQ(d.Decode(bytes, 9, &n, nullptr, 10), TMX_ERR_DECODER);
  // A carry survives a call that completes nothing.
  ASSERT_EQ(d.Decode(bytes, 19, &n), TMX_OK);
  const Bytes more = RandomBytes(40, 3);
  ASSERT_EQ(d.Decode(more, 20, &n), TMX_OK);
  EXPECT_EQ(n, 288u);
  EXPECT_EQ(CarriedBytes(d.p), 1);
  EXPECT_EQ(d.Decode(more, 5, &n), TMX_ERR_DECODER);
  EXPECT_EQ(CarriedBytes(d.p), 1);
  // Without a mode nothing decodes; the length is set to the capacity first.
  for (int mode : {0, 7}) {
    SelectMode(d.p, mode);
    EXPECT_EQ(d.Decode(more, 40, &n), TMX_ERR_DECODER);
    EXPECT_EQ(n, 8192u);
  }
}

TEST(SpeechCodec, ResetClearsTheCarryAndTheHistory) {
  Instance d(kSpeechMode4Codec);
  const Bytes bytes = RandomBytes(200, 4);
  Pcm pcm;
  std::uint32_t n = 0;
  ASSERT_EQ(d.Decode(bytes, 20, &n), TMX_OK);
  ASSERT_EQ(d.Decode(bytes, 101, &n, nullptr, 20), TMX_OK);
  EXPECT_EQ(CarriedBytes(d.p), 1);
  EXPECT_EQ(kSpeechMode4Codec.ResetDecoder(d.p, bytes.data(), 0, &kSpeechMode4Codec), TMX_OK);
  EXPECT_EQ(CarriedBytes(d.p), 0);
  EXPECT_EQ(CurrentMode(d.p), 4);
  EXPECT_EQ(d.Decode(bytes, 19, &n), TMX_ERR_DECODER);
  // After the reset the first packet decodes as from a fresh decoder.
  ASSERT_EQ(d.Decode(bytes, 20, &n, &pcm), TMX_OK);
  EXPECT_EQ(pcm, DecodeAll(4, Bytes(bytes.begin(), bytes.begin() + 20)));
}

TEST(SpeechFields, BitsCountFromTheLeastSignificantBitOfByteZero) {
  const std::uint8_t bytes[4] = {0xB5, 0x3C, 0x01, 0x80};  // 1011 0101, 0011 1100, ...
  // Position, width, value: bits 6, 7 are 0, 1 and bits 8, 9 are 0, 0, giving 2.
  const std::uint32_t fields[][3] = {{0, 1, 1},   {1, 1, 0},    {0, 4, 0x5},   {4, 4, 0xB},
                                     {6, 4, 0x2}, {6, 6, 0x32}, {8, 9, 0x13C}, {31, 1, 1}};
  for (const auto& [pos, width, value] : fields)
    EXPECT_EQ(ReadField(bytes, int(pos), int(width)), value) << pos << " " << width;
  std::uint8_t out[4] = {};
  WriteField(out, 6, 6, 0x32);
  WriteField(out, 0, 6, 0x35);
  WriteField(out, 12, 20, 0x80013u);
  EXPECT_EQ(ReadField(out, 0, 6), 0x35u);
  EXPECT_EQ(ReadField(out, 6, 6), 0x32u);
  EXPECT_EQ(ReadField(out, 12, 20), 0x80013u);
}

// Mode 2 leads each frame with the word 1 (mode 3 with 0) and starts its
// second frame at bit 116; mode 1 has no leading word and starts it at 148.
TEST(SpeechFields, DormantModesReadTheirSecondFrameFromTheMiddleOfAByte) {
  Word16 params[kMaxFields + 1];
  Bytes two(29, 0), one(37, 0);
  WriteField(two.data(), 116, 6, 0x2D);      // frame 2, first LSF field
  WriteField(two.data(), 116 + 6, 7, 0x55);  // frame 2, second field
  WriteField(two.data(), 116 - 7, 7, 0x7F);  // frame 1, last gain field
  EXPECT_EQ(ReadFrameParams(*LayoutForMode(2), two.data(), 0, params), 21);
  EXPECT_EQ(std::vector<Word16>(params, params + 3), (std::vector<Word16>{1, 0, 0}));
  EXPECT_EQ(params[20], 0x7F);
  ReadFrameParams(*LayoutForMode(2), two.data(), 1, params);
  EXPECT_EQ(std::vector<Word16>(params, params + 3), (std::vector<Word16>{1, 0x2D, 0x55}));
  EXPECT_EQ(ReadFrameParams(*LayoutForMode(3), two.data(), 0, params), 21);
  EXPECT_EQ(params[0], 0);
  WriteField(one.data(), 148, 6, 0x3F);
  WriteField(one.data(), 148 + 6, 7, 0x01);
  EXPECT_EQ(ReadFrameParams(*LayoutForMode(1), one.data(), 1, params), 20);
  EXPECT_EQ(std::vector<Word16>(params, params + 2), (std::vector<Word16>{0x3F, 0x01}));
  ReadFrameParams(*LayoutForMode(1), one.data(), 0, params);
  EXPECT_EQ(params[19], 0);
  EXPECT_EQ(LayoutForMode(0), nullptr);
  EXPECT_EQ(LayoutForMode(5), nullptr);
  EXPECT_EQ(CreateEncoder(0), nullptr);
  EXPECT_EQ(CreateEncoder(5), nullptr);
}

TEST(SpeechProgramme, DecodesLikeTheDecoderItself) {
  for (int mode : {3, 4}) {
    const std::vector<std::uint8_t> packets = test::Encode(mode, test::Clip(mode, 32000));
    ::tmx::test::MemoryStream stream(test::LegacyProgramme(mode, packets));
    TMXFile* file = nullptr;
    ASSERT_EQ(TMXOpenFile(&file, stream.stream(), nullptr), TMX_OK);
    const ModeLayout& layout = *LayoutForMode(mode);
    // Ten packets a call, as a player would hand them over.
    const std::uint32_t size = 10 * layout.packetBytes;
    std::vector<std::int16_t> got, pcm(10 * layout.samplesPerFrame);
    for (std::size_t at = 0; at + size <= packets.size(); at += size) {
      std::uint32_t length = 0;
      ASSERT_EQ(TMXDecodePCMFrame(file, packets.data() + at, size, pcm.data(),
                                  std::uint32_t(pcm.size() * 2), &length),
                TMX_OK);
      ASSERT_EQ(length, pcm.size() * 2);
      got.insert(got.end(), pcm.begin(), pcm.end());
    }
    TMXCloseFile(file);
    const std::vector<std::int16_t> all = test::DecodeAll(mode, packets);
    ASSERT_GT(got.size(), all.size() / 2);
    EXPECT_EQ(got, std::vector<std::int16_t>(all.begin(), all.begin() + got.size())) << mode;
  }
}

}  // namespace
}  // namespace tmx::speech
