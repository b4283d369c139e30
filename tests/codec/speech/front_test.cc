// The speech codec tables: packet cutting, the carry buffer, the field
// reader and the dormant two-frame modes.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "codec/codec.h"
#include "codec/speech/decoder.h"
#include "codec/speech/layout.h"
#include "codec/speech/speech_codec.h"
#include "tmxsdk.h"
#include "util/alloc.h"

namespace tmx::speech {
namespace {

std::vector<std::uint8_t> RandomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<std::uint8_t> v(n);
  for (auto& b : v) b = static_cast<std::uint8_t>(rng());
  return v;
}

// A decoder instance made through a codec table, destroyed with it.
struct Instance {
  explicit Instance(const Codec& table) : codec(table) {
    EXPECT_EQ(codec.CreateDecoder(&p, nullptr, 0, &codec), TMX_OK);
  }
  ~Instance() {
    if (p) codec.DestroyDecoder(&p);
  }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  // Decodes `bytes` through the table's decode slot.
  std::int32_t Decode(const std::uint8_t* bytes, std::uint32_t n, std::vector<std::int16_t>* pcm,
                      std::uint32_t* produced) {
    pcm->assign(4096, 0);
    return codec.DecodeFrame(p, bytes, n, pcm->data(), static_cast<std::uint32_t>(pcm->size() * 2),
                             produced);
  }

  const Codec& codec;
  void* p = nullptr;
};

// What the frame decoder makes of whole packets, decoded frame by frame
// from a fresh state, for comparison with the front.
std::vector<std::int16_t> Reference(int mode, const std::vector<std::uint8_t>& packets) {
  const ModeLayout& layout = *LayoutForMode(mode);
  DecoderState state;
  InitDecoder(&state, mode);
  std::vector<std::int16_t> out;
  for (std::size_t p = 0; p + layout.packetBytes <= packets.size(); p += layout.packetBytes)
    for (int f = 0; f < layout.framesPerPacket; ++f) {
      Word16 params[kMaxFields + 1], pcm[kMaxFrame];
      ReadFrameParams(layout, packets.data() + p, f, params);
      DecodeFrame(&state, params, pcm);
      out.insert(out.end(), pcm, pcm + layout.samplesPerFrame);
    }
  return out;
}

TEST(SpeechCodec, TableSlotsMakeAndFreeAnInstance) {
  const std::int64_t live = tmx::testing::LiveAllocations();
  void* three = nullptr;
  void* four = nullptr;
  EXPECT_EQ(kSpeechMode3Codec.CreateDecoder(&three, nullptr, 0, &kSpeechMode3Codec), TMX_OK);
  EXPECT_EQ(kSpeechMode4Codec.CreateDecoder(&four, nullptr, 0, &kSpeechMode4Codec), TMX_OK);
  ASSERT_NE(three, nullptr);
  ASSERT_NE(four, nullptr);
  EXPECT_EQ(CurrentMode(three), 3);
  EXPECT_EQ(CurrentMode(four), 4);
  EXPECT_EQ(CarriedBytes(three), 0);
  EXPECT_EQ(tmx::testing::LiveAllocations(), live + 2);
  EXPECT_EQ(kSpeechMode3Codec.DestroyDecoder(&three), TMX_OK);
  EXPECT_EQ(three, nullptr);
  EXPECT_EQ(kSpeechMode3Codec.DestroyDecoder(&three), TMX_ERR_ARGUMENT);
  EXPECT_EQ(kSpeechMode4Codec.DestroyDecoder(nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(kSpeechMode4Codec.DestroyDecoder(&four), TMX_OK);
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
  // Without an instance nothing runs; without memory there is no instance.
  std::uint32_t n = 77;
  EXPECT_EQ(kSpeechMode3Codec.ResetDecoder(nullptr, nullptr, 0, &kSpeechMode3Codec),
            TMX_ERR_ARGUMENT);
  EXPECT_EQ(kSpeechMode3Codec.DecodeFrame(nullptr, nullptr, 0, nullptr, 0, &n), TMX_ERR_ARGUMENT);
  EXPECT_EQ(n, 77u);
  four = reinterpret_cast<void*>(1);
  tmx::testing::FailAllocation(1);
  EXPECT_EQ(kSpeechMode4Codec.CreateDecoder(&four, nullptr, 0, &kSpeechMode4Codec), TMX_ERR_MEMORY);
  tmx::testing::FailAllocation(0);
  EXPECT_EQ(four, nullptr);
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
}

TEST(SpeechCodec, ModeFourCarriesTheByteAfterTwoPackets) {
  Instance d(kSpeechMode4Codec);
  const std::vector<std::uint8_t> bytes = RandomBytes(60, 1);
  std::vector<std::int16_t> pcm, all;
  std::uint32_t n = 0;
  ASSERT_EQ(d.Decode(bytes.data(), 41, &pcm, &n), TMX_OK);
  EXPECT_EQ(n, 640u);
  EXPECT_EQ(CarriedBytes(d.p), 1);
  all.assign(pcm.begin(), pcm.begin() + 320);
  // The carried byte and 19 more complete the third packet.
  ASSERT_EQ(d.Decode(bytes.data() + 41, 19, &pcm, &n), TMX_OK);
  EXPECT_EQ(n, 320u);
  EXPECT_EQ(CarriedBytes(d.p), 0);
  all.insert(all.end(), pcm.begin(), pcm.begin() + 160);
  // Same samples as the three packets decoded whole.
  const std::vector<std::int16_t> ref = Reference(4, bytes);
  ASSERT_EQ(ref.size(), 480u);
  std::vector<std::int16_t> first(ref.begin(), ref.begin() + 320),
      third(ref.begin() + 320, ref.end());
  std::vector<std::int16_t> got(all.begin(), all.begin() + 320);
  EXPECT_EQ(got, first);
  EXPECT_EQ(std::vector<std::int16_t>(all.begin() + 320, all.end()), third);
}

TEST(SpeechCodec, InputThatCompletesNoPacketIsDropped) {
  Instance d(kSpeechMode3Codec);
  const std::vector<std::uint8_t> bytes = RandomBytes(19, 2);
  std::vector<std::int16_t> pcm;
  std::uint32_t n = 1234;
  EXPECT_EQ(d.Decode(bytes.data(), 10, &pcm, &n), TMX_ERR_DECODER);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(CarriedBytes(d.p), 0);
  // Had the 10 bytes been kept, these 9 would complete a packet.
  EXPECT_EQ(d.Decode(bytes.data() + 10, 9, &pcm, &n), TMX_ERR_DECODER);
  // A carry survives a call that completes nothing.
  ASSERT_EQ(d.Decode(bytes.data(), 19 + 0, &pcm, &n), TMX_OK);
  const std::vector<std::uint8_t> more = RandomBytes(40, 3);
  ASSERT_EQ(d.Decode(more.data(), 20, &pcm, &n), TMX_OK);
  EXPECT_EQ(n, 288u);
  EXPECT_EQ(CarriedBytes(d.p), 1);
  EXPECT_EQ(d.Decode(more.data(), 5, &pcm, &n), TMX_ERR_DECODER);
  EXPECT_EQ(CarriedBytes(d.p), 1);
}

TEST(SpeechCodec, ResetClearsTheCarryAndTheHistory) {
  Instance d(kSpeechMode4Codec);
  const std::vector<std::uint8_t> bytes = RandomBytes(200, 4);
  std::vector<std::int16_t> pcm, again;
  std::uint32_t n = 0;
  ASSERT_EQ(d.Decode(bytes.data(), 20, &pcm, &n), TMX_OK);
  ASSERT_EQ(d.Decode(bytes.data() + 20, 101, &pcm, &n), TMX_OK);
  EXPECT_EQ(CarriedBytes(d.p), 1);
  EXPECT_EQ(kSpeechMode4Codec.ResetDecoder(d.p, bytes.data(), 0, &kSpeechMode4Codec), TMX_OK);
  EXPECT_EQ(CarriedBytes(d.p), 0);
  EXPECT_EQ(CurrentMode(d.p), 4);
  EXPECT_EQ(d.Decode(bytes.data(), 19, &pcm, &n), TMX_ERR_DECODER);
  // After the reset the first packet decodes as from a fresh decoder.
  ASSERT_EQ(d.Decode(bytes.data(), 20, &pcm, &n), TMX_OK);
  const std::vector<std::int16_t> ref =
      Reference(4, std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 20));
  EXPECT_EQ(std::vector<std::int16_t>(pcm.begin(), pcm.begin() + 160), ref);
}

TEST(SpeechCodec, DecodingWithoutAModeFails) {
  Instance d(kSpeechMode3Codec);
  SelectMode(d.p, 0);
  const std::vector<std::uint8_t> bytes = RandomBytes(40, 5);
  std::vector<std::int16_t> pcm;
  std::uint32_t n = 0;
  EXPECT_EQ(d.Decode(bytes.data(), 40, &pcm, &n), TMX_ERR_DECODER);
  EXPECT_EQ(n, 8192u);  // the length is set to the capacity first
  SelectMode(d.p, 7);
  EXPECT_EQ(d.Decode(bytes.data(), 40, &pcm, &n), TMX_ERR_DECODER);
}

TEST(SpeechFields, BitsCountFromTheLeastSignificantBitOfByteZero) {
  const std::uint8_t bytes[4] = {0xB5, 0x3C, 0x01, 0x80};  // 1011 0101, 0011 1100, ...
  EXPECT_EQ(ReadField(bytes, 0, 1), 1u);
  EXPECT_EQ(ReadField(bytes, 1, 1), 0u);
  EXPECT_EQ(ReadField(bytes, 0, 4), 0x5u);
  EXPECT_EQ(ReadField(bytes, 4, 4), 0xBu);
  EXPECT_EQ(ReadField(bytes, 6, 4), 0x2u | (0x0u << 2));  // bits 6,7 = 0,1 -> 2; bits 8,9 = 0,0
  EXPECT_EQ(ReadField(bytes, 6, 6), 0x2u | (0xCu << 2));  // byte 1 low bits 00 then 11
  EXPECT_EQ(ReadField(bytes, 8, 9), 0x13Cu);
  EXPECT_EQ(ReadField(bytes, 31, 1), 1u);
  std::uint8_t out[4] = {};
  WriteField(out, 6, 6, 0x32);
  WriteField(out, 0, 6, 0x35);
  WriteField(out, 12, 20, 0x80013u);
  EXPECT_EQ(ReadField(out, 0, 6), 0x35u);
  EXPECT_EQ(ReadField(out, 6, 6), 0x32u);
  EXPECT_EQ(ReadField(out, 12, 20), 0x80013u);
}

TEST(SpeechFields, LayoutsAddUpAndRoundTrip) {
  for (int mode = 1; mode <= 4; ++mode) {
    const ModeLayout& l = *LayoutForMode(mode);
    int bits = 0;
    for (int i = 0; i < l.fieldCount; ++i) bits += l.widths[i];
    EXPECT_EQ(bits, l.frameBits);
    EXPECT_LE(l.framesPerPacket * l.frameBits, l.packetBytes * 8);
    const std::vector<std::uint8_t> packet =
        RandomBytes(static_cast<std::size_t>(l.packetBytes), 10u + mode);
    std::vector<std::uint8_t> copy(packet.size(), 0);
    for (int f = 0; f < l.framesPerPacket; ++f) {
      Word16 params[kMaxFields + 1];
      ReadFrameParams(l, packet.data(), f, params);
      WriteFrameParams(l, params, f, copy.data());
    }
    // Every bit the frames use comes back; mode 1's spare bits stay 0.
    for (int b = 0; b < l.framesPerPacket * l.frameBits; ++b)
      EXPECT_EQ(ReadField(copy.data(), b, 1), ReadField(packet.data(), b, 1)) << mode << " " << b;
  }
  EXPECT_EQ(LayoutForMode(0), nullptr);
  EXPECT_EQ(LayoutForMode(5), nullptr);
}

TEST(SpeechFields, DormantModesReadTheirSecondFrameFromTheMiddleOfAByte) {
  // Mode 2: leading word 1, then fields; frame 2 starts at bit 116.
  const ModeLayout& two = *LayoutForMode(2);
  std::vector<std::uint8_t> packet(29, 0);
  WriteField(packet.data(), 116, 6, 0x2D);      // frame 2, first LSF field
  WriteField(packet.data(), 116 + 6, 7, 0x55);  // frame 2, second field
  WriteField(packet.data(), 116 - 7, 7, 0x7F);  // frame 1, last gain field
  Word16 params[kMaxFields + 1];
  EXPECT_EQ(ReadFrameParams(two, packet.data(), 0, params), 21);
  EXPECT_EQ(params[0], 1);
  EXPECT_EQ(params[20], 0x7F);
  EXPECT_EQ(params[1], 0);
  ReadFrameParams(two, packet.data(), 1, params);
  EXPECT_EQ(params[0], 1);
  EXPECT_EQ(params[1], 0x2D);
  EXPECT_EQ(params[2], 0x55);
  // Mode 3: leading word 0, no second frame.
  EXPECT_EQ(ReadFrameParams(*LayoutForMode(3), packet.data(), 0, params), 21);
  EXPECT_EQ(params[0], 0);
  // Mode 1: no leading word; frame 2 starts at bit 148.
  const ModeLayout& one = *LayoutForMode(1);
  std::vector<std::uint8_t> p1(37, 0);
  WriteField(p1.data(), 148, 6, 0x3F);
  WriteField(p1.data(), 148 + 6, 7, 0x01);
  EXPECT_EQ(ReadFrameParams(one, p1.data(), 1, params), 20);
  EXPECT_EQ(params[0], 0x3F);
  EXPECT_EQ(params[1], 0x01);
  ReadFrameParams(one, p1.data(), 0, params);
  EXPECT_EQ(params[19], 0);
}

TEST(SpeechCodec, ModeOneDecodesTwoFramesPerPacket) {
  Instance d(kSpeechMode3Codec);
  SelectMode(d.p, 1);
  const std::vector<std::uint8_t> bytes = RandomBytes(37, 6);
  std::vector<std::int16_t> pcm;
  std::uint32_t n = 0;
  ASSERT_EQ(d.Decode(bytes.data(), 37, &pcm, &n), TMX_OK);
  EXPECT_EQ(n, 960u);
  EXPECT_EQ(CarriedBytes(d.p), 0);
  // The second frame is the one read from bit 148: decoding its fields
  // after the first frame gives the same samples.
  const std::vector<std::int16_t> ref = Reference(1, bytes);
  EXPECT_EQ(std::vector<std::int16_t>(pcm.begin(), pcm.begin() + 480), ref);
  // Moving the second frame's bits changes only the second frame.
  std::vector<std::uint8_t> other = bytes;
  other[30] ^= 0xFF;
  SelectMode(d.p, 1);
  ASSERT_EQ(d.Decode(other.data(), 37, &pcm, &n), TMX_OK);
  EXPECT_EQ(std::vector<std::int16_t>(pcm.begin(), pcm.begin() + 240),
            std::vector<std::int16_t>(ref.begin(), ref.begin() + 240));
}

TEST(SpeechCodec, ModeTwoUsesTheOnePulseLayout) {
  Instance d(kSpeechMode3Codec);
  SelectMode(d.p, 2);
  const std::vector<std::uint8_t> bytes = RandomBytes(29 * 3, 7);
  std::vector<std::int16_t> pcm;
  std::uint32_t n = 0;
  ASSERT_EQ(d.Decode(bytes.data(), 29 * 3, &pcm, &n), TMX_OK);
  EXPECT_EQ(n, 3u * 576u);
  const std::vector<std::int16_t> ref = Reference(2, bytes);
  EXPECT_EQ(std::vector<std::int16_t>(pcm.begin(), pcm.begin() + 3 * 288), ref);
}

}  // namespace
}  // namespace tmx::speech
