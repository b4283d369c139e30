// What the muxer reads: ADTS headers and streams, AudioSpecificConfig, and
// chapter list files (start times and the line format).
#include "writer/adts.h"
#include "writer/chapter_list.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <tuple>

#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx::writer {
namespace {

using tmx::test::Concat, tmx::test::MemoryStream;

// One ADTS frame: AAC-LC, 22050 Hz (index 7), stereo unless told otherwise,
// with `payload` bytes of value `fill`, and a CRC when asked.
std::vector<std::uint8_t> AdtsFrame(std::uint32_t payload, std::uint8_t fill, bool crc = false,
                                    std::uint32_t channels = 2, std::uint32_t blocks = 0) {
  const std::uint32_t length = payload + (crc ? 9 : 7);
  // The header, the CRC (which the reader skips) and the payload.
  std::vector<std::uint8_t> f(length, fill);
  const std::uint8_t header[] = {0xFF,
                                 std::uint8_t(crc ? 0xF0 : 0xF1),
                                 std::uint8_t((1 << 6) | (7 << 2) | (channels >> 2)),
                                 std::uint8_t(((channels & 3) << 6) | (length >> 11)),
                                 std::uint8_t(length >> 3),
                                 std::uint8_t(((length & 7) << 5) | 0x1F),
                                 std::uint8_t(0xFC | blocks),
                                 0xAB,
                                 0xAB};
  std::copy(header, header + (crc ? 9 : 7), f.begin());
  return f;
}

TEST(AdtsHeader, FieldsConfigurationAndRefusals) {
  AdtsHeader h;
  ASSERT_EQ(ParseAdtsHeader(AdtsFrame(300, 0, true, 6), &h), 0);
  EXPECT_EQ(std::tuple(h.channelConfig, h.hasCrc, h.headerSize, h.frameLength),
            std::tuple(6u, true, 9u, 309u));
  ASSERT_EQ(ParseAdtsHeader(AdtsFrame(300, 0), &h), 0);
  EXPECT_EQ(std::tuple(h.objectType, h.frequencyIndex, h.channelConfig, h.hasCrc, h.headerSize,
                       h.frameLength),
            std::tuple(2u, 7u, 2u, false, 7u, 307u));
  AudioConfig c;
  ASSERT_EQ(ConfigFromAdts(h, &c), 0);
  EXPECT_EQ(std::vector(c.audioSpecificConfig().begin(), c.audioSpecificConfig().end()),
            (std::vector<std::uint8_t>{0x13, 0x90}));
  EXPECT_EQ(std::tuple(c.objectType, c.sampleRate, c.channelConfig), std::tuple(2u, 22050u, 2u));
  std::vector<std::uint8_t> f = AdtsFrame(10, 0);
  EXPECT_EQ(ParseAdtsHeader({f.data(), 6}, &h), TMX_ERR_ARGUMENT);
  f[1] = 0xE1;  // sync word broken
  EXPECT_EQ(ParseAdtsHeader(f, &h), TMX_ERR_UNSUPPORTED);
  EXPECT_EQ(ParseAdtsHeader(AdtsFrame(0, 0), &h), TMX_ERR_INCONSISTENT);
}

TEST(AudioSpecificConfig, Parsed) {
  const struct {
    std::vector<std::uint8_t> asc;
    std::int32_t expected;
    std::uint32_t objectType = 0, sampleRate = 0, channels = 0;
  } cases[] = {
      // Explicit rate (index 15, 24 bits): LC, 32000 Hz, mono.
      {{0x17, 0x80, 0x3E, 0x80, 0x08}, TMX_OK, 2, 32000, 1},
      {{0xF8, 0x06, 0x40}, TMX_OK, 32, 48000, 2},  // escaped type 32 + 0, index 3, stereo
      {{0x16, 0x90}, TMX_ERR_UNSUPPORTED},         // index 13
      {{0x13, 0x80}, TMX_ERR_UNSUPPORTED},         // no channels
      {{0x17}, TMX_ERR_ARGUMENT},
      {{0x17, 0x80, 0x3E}, TMX_ERR_ARGUMENT},  // the explicit rate cut
  };
  for (const auto& row : cases) {
    AudioConfig config;
    ASSERT_EQ(ParseAudioSpecificConfig(row.asc, &config), row.expected) << row.asc.size();
    if (row.expected != TMX_OK) continue;
    EXPECT_EQ(
        std::tuple(config.objectType, config.sampleRate, config.channelConfig, config.ascSize),
        std::tuple(row.objectType, row.sampleRate, row.channels, row.asc.size()));
  }
}

// Payloads without headers or CRC up to the end or the damage.
TEST(AdtsReader, HandsOutPayloadsAndReportsDamageAndReadErrors) {
  struct Case {
    const char* what;
    std::vector<std::uint8_t> bytes;
    std::int32_t expected;
    std::vector<std::vector<std::uint8_t>> frames;
    int failRead = 0;
  };
  const std::vector<std::uint8_t> two = Concat({AdtsFrame(5, 1), AdtsFrame(5, 1)});
  std::vector<std::uint8_t> lostSync = two, cutFrame = two, cutHeader = two;
  lostSync[12] = 0x00;
  cutFrame.pop_back();
  cutHeader.resize(12 + 4);
  const std::vector<std::uint8_t> one(5, 1);
  const auto crc = Concat({AdtsFrame(5, 1), AdtsFrame(3, 2, true), AdtsFrame(4, 3)});
  const auto mono = Concat({AdtsFrame(5, 1), AdtsFrame(5, 1, false, 1)});
  const Case cases[] = {
      {"with and without CRC", crc, TMX_ERR_END, {one, {2, 2, 2}, {3, 3, 3, 3}}},
      {"not ADTS", {'I', 'D', '3', 4, 0, 0, 0, 0, 0, 0}, TMX_ERR_UNSUPPORTED, {}},
      {"lost sync", lostSync, TMX_ERR_INCONSISTENT, {one}},
      {"truncated frame", cutFrame, TMX_ERR_INCONSISTENT, {one}},
      {"truncated header", cutHeader, TMX_ERR_INCONSISTENT, {one}},
      {"format change", mono, TMX_ERR_INCONSISTENT, {one}},
      {"several raw blocks", AdtsFrame(5, 1, false, 2, 1), TMX_ERR_UNSUPPORTED, {}},
      {"empty", {}, TMX_ERR_END, {}},
      {"read error in the second header", two, TMX_ERR_READ, {one}, 3},
  };
  for (const Case& c : cases) {
    MemoryStream in(c.bytes);
    in.fail_read(c.failRead);
    AdtsReader reader(in.stream());
    std::vector<std::vector<std::uint8_t>> frames;
    std::span<const std::uint8_t> frame;
    std::int32_t rc;
    while ((rc = reader.Next(&frame)) == 0) frames.emplace_back(frame.begin(), frame.end());
    EXPECT_EQ(rc, c.expected) << c.what;
    EXPECT_EQ(frames, c.frames) << c.what;
  }
}

TEST(ChapterTime, AcceptsSecondsAndClockTimes) {
  const std::pair<const char*, std::uint32_t> good[] = {
      {"0", 0},
      {"95", 95000},
      {"95.5", 95500},
      {"1.25", 1250},
      {"0.007", 7},
      {"2:05", 125000},
      {"1:02:03.250", 3723250},
      {"10:00:00", 36000000},
      {"4294967.295", 4294967295u},
  };
  for (auto [text, ms] : good) {
    std::uint32_t value = 1;
    EXPECT_TRUE(ParseChapterTime(text, &value)) << text;
    EXPECT_EQ(value, ms) << text;
  }
  for (const char* bad : {"", "abc", "1:60", "1:2:3:4", "1.2345", "-1", "1:", ":5", "1.",
                          "4294967.296", "99999999999"}) {
    std::uint32_t value = 0;
    EXPECT_FALSE(ParseChapterTime(bad, &value)) << bad;
  }
}

TEST(ChapterList, ParsesLinesSkippingCommentsAndBlanks) {
  std::vector<Chapter> chapters;
  std::string error;
  ASSERT_TRUE(ParseChapterList("# book\r\n0 Opening words\r\n\n  1:30\tThe  middle \n3:00 End",
                               &chapters, &error))
      << error;
  std::vector<std::pair<std::uint32_t, std::string>> got;
  for (const Chapter& c : chapters) got.emplace_back(c.startMs, c.title);
  EXPECT_EQ(got, (std::vector<std::pair<std::uint32_t, std::string>>{
                     {0, "Opening words"}, {90000, "The  middle"}, {180000, "End"}}));
}

TEST(ChapterList, NamesTheFirstBadLine) {
  const std::pair<const char*, const char*> bad[] = {
      {"0 a\n1 b\nx c\n", "line 3: bad start time"},
      {"0 a\n5\n", "line 2: missing title"},
      {"10 a\n5 b\n", "line 2: chapters out of order"},
  };
  for (auto [text, message] : bad) {
    std::vector<Chapter> chapters = {{1, "kept"}};
    std::string error;
    EXPECT_FALSE(ParseChapterList(text, &chapters, &error));
    EXPECT_EQ(error, message);
    EXPECT_EQ(chapters.size(), 1u) << "the list is left alone on failure";
  }
}

}  // namespace
}  // namespace tmx::writer
