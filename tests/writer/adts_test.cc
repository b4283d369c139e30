// ADTS headers and streams, and AudioSpecificConfig parsing.
#include "writer/adts.h"

#include <gtest/gtest.h>

#include "support/memory_stream.h"

namespace tmx::writer {
namespace {

using tmx::test::MemoryStream;

// One ADTS frame: AAC-LC, 22050 Hz (index 7), stereo unless told otherwise,
// with `payload` bytes of value `fill`, and a CRC when asked.
std::vector<std::uint8_t> AdtsFrame(std::uint32_t payload, std::uint8_t fill, bool crc = false,
                                    std::uint32_t channels = 2, std::uint32_t blocks = 0) {
  const std::uint32_t length = payload + (crc ? 9 : 7);
  std::vector<std::uint8_t> f = {0xFF,
                                 std::uint8_t(crc ? 0xF0 : 0xF1),
                                 std::uint8_t((1 << 6) | (7 << 2) | (channels >> 2)),
                                 std::uint8_t(((channels & 3) << 6) | (length >> 11)),
                                 std::uint8_t(length >> 3),
                                 std::uint8_t(((length & 7) << 5) | 0x1F),
                                 std::uint8_t(0xFC | blocks)};
  f.reserve(length);
  if (crc) {
    f.push_back(0xAB);
    f.push_back(0xCD);
  }
  f.insert(f.end(), payload, fill);
  return f;
}

std::vector<std::uint8_t> Concat(std::initializer_list<std::vector<std::uint8_t>> parts) {
  std::vector<std::uint8_t> all;
  for (const auto& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

TEST(AdtsHeader, DecodesFieldsWithAndWithoutCrc) {
  AdtsHeader h;
  ASSERT_EQ(ParseAdtsHeader(AdtsFrame(300, 0), &h), 0);
  EXPECT_EQ(h.objectType, 2u);
  EXPECT_EQ(h.frequencyIndex, 7u);
  EXPECT_EQ(h.channelConfig, 2u);
  EXPECT_FALSE(h.hasCrc);
  EXPECT_EQ(h.headerSize, 7u);
  EXPECT_EQ(h.frameLength, 307u);
  ASSERT_EQ(ParseAdtsHeader(AdtsFrame(300, 0, true, 6), &h), 0);
  EXPECT_TRUE(h.hasCrc);
  EXPECT_EQ(h.headerSize, 9u);
  EXPECT_EQ(h.frameLength, 309u);
  EXPECT_EQ(h.channelConfig, 6u);
}

TEST(AdtsHeader, RejectsBadSyncShortInputAndImpossibleLengths) {
  AdtsHeader h;
  std::vector<std::uint8_t> f = AdtsFrame(10, 0);
  EXPECT_EQ(ParseAdtsHeader({f.data(), 6}, &h), TMX_ERR_ARGUMENT);
  f[1] = 0xE1;  // sync word broken
  EXPECT_EQ(ParseAdtsHeader(f, &h), TMX_ERR_UNSUPPORTED);
  std::vector<std::uint8_t> empty = AdtsFrame(0, 0);
  EXPECT_EQ(ParseAdtsHeader(empty, &h), TMX_ERR_INCONSISTENT);
}

TEST(AudioSpecificConfig, FromAdtsAndParsed) {
  AdtsHeader h;
  ASSERT_EQ(ParseAdtsHeader(AdtsFrame(10, 0), &h), 0);
  AudioConfig c;
  ASSERT_EQ(ConfigFromAdts(h, &c), 0);
  EXPECT_EQ(
      std::vector<std::uint8_t>(c.audioSpecificConfig().begin(), c.audioSpecificConfig().end()),
      (std::vector<std::uint8_t>{0x13, 0x90}));
  EXPECT_EQ(c.sampleRate, 22050u);
  EXPECT_EQ(c.channelConfig, 2u);

  // Explicit rate (index 15, 24 bits) and an escaped object type.
  const std::uint8_t explicitRate[] = {0x17, 0x80, 0x3E, 0x80, 0x08};  // LC, 32000 Hz, mono
  ASSERT_EQ(ParseAudioSpecificConfig(explicitRate, &c), 0);
  EXPECT_EQ(c.sampleRate, 32000u);
  EXPECT_EQ(c.channelConfig, 1u);
  EXPECT_EQ(c.ascSize, 5u);
  const std::uint8_t escaped[] = {0xF8, 0x06, 0x40};  // type 32 + 0, index 3, stereo
  ASSERT_EQ(ParseAudioSpecificConfig(escaped, &c), 0);
  EXPECT_EQ(c.objectType, 32u);
  EXPECT_EQ(c.sampleRate, 48000u);

  const std::uint8_t reservedRate[] = {0x16, 0x90};  // index 13
  EXPECT_EQ(ParseAudioSpecificConfig(reservedRate, &c), TMX_ERR_UNSUPPORTED);
  const std::uint8_t noChannels[] = {0x13, 0x80};
  EXPECT_EQ(ParseAudioSpecificConfig(noChannels, &c), TMX_ERR_UNSUPPORTED);
  EXPECT_EQ(ParseAudioSpecificConfig({explicitRate, 1}, &c), TMX_ERR_ARGUMENT);
  EXPECT_EQ(ParseAudioSpecificConfig({explicitRate, 3}, &c), TMX_ERR_ARGUMENT);
}

// Reads every frame; returns the final result and the payloads.
std::int32_t ReadAll(MemoryStream& in, std::vector<std::vector<std::uint8_t>>* frames) {
  AdtsReader reader(in.stream());
  std::span<const std::uint8_t> frame;
  std::int32_t rc;
  while ((rc = reader.Next(&frame)) == 0) frames->emplace_back(frame.begin(), frame.end());
  return rc;
}

TEST(AdtsReader, HandsOutPayloadsWithoutHeadersOrCrc) {
  MemoryStream in(Concat({AdtsFrame(5, 1), AdtsFrame(3, 2, true), AdtsFrame(4, 3)}));
  std::vector<std::vector<std::uint8_t>> frames;
  EXPECT_EQ(ReadAll(in, &frames), TMX_ERR_END);
  EXPECT_EQ(frames,
            (std::vector<std::vector<std::uint8_t>>{{1, 1, 1, 1, 1}, {2, 2, 2}, {3, 3, 3, 3}}));
}

TEST(AdtsReader, ReportsDamage) {
  struct Case {
    const char* what;
    std::vector<std::uint8_t> bytes;
    std::int32_t expected;
    std::size_t framesBefore;
  };
  std::vector<std::uint8_t> lostSync = Concat({AdtsFrame(5, 1), AdtsFrame(5, 1)});
  lostSync[12] = 0x00;
  std::vector<std::uint8_t> cutFrame = Concat({AdtsFrame(5, 1), AdtsFrame(5, 1)});
  cutFrame.pop_back();
  std::vector<std::uint8_t> cutHeader = Concat({AdtsFrame(5, 1), AdtsFrame(5, 1)});
  cutHeader.resize(12 + 4);
  const Case cases[] = {
      {"not ADTS", {'I', 'D', '3', 4, 0, 0, 0, 0, 0, 0}, TMX_ERR_UNSUPPORTED, 0},
      {"lost sync", lostSync, TMX_ERR_INCONSISTENT, 1},
      {"truncated frame", cutFrame, TMX_ERR_INCONSISTENT, 1},
      {"truncated header", cutHeader, TMX_ERR_INCONSISTENT, 1},
      {"format change", Concat({AdtsFrame(5, 1), AdtsFrame(5, 1, false, 1)}), TMX_ERR_INCONSISTENT,
       1},
      {"several raw blocks", AdtsFrame(5, 1, false, 2, 1), TMX_ERR_UNSUPPORTED, 0},
      {"empty", {}, TMX_ERR_END, 0},
  };
  for (const Case& c : cases) {
    MemoryStream in(c.bytes);
    std::vector<std::vector<std::uint8_t>> frames;
    EXPECT_EQ(ReadAll(in, &frames), c.expected) << c.what;
    EXPECT_EQ(frames.size(), c.framesBefore) << c.what;
  }
}

TEST(AdtsReader, PassesReadErrorsOn) {
  MemoryStream in(Concat({AdtsFrame(5, 1), AdtsFrame(5, 1), AdtsFrame(5, 1)}));
  in.fail_read(3);  // the second frame's header
  std::vector<std::vector<std::uint8_t>> frames;
  EXPECT_EQ(ReadAll(in, &frames), TMX_ERR_READ);
  EXPECT_EQ(frames.size(), 1u);
}

}  // namespace
}  // namespace tmx::writer
