// Big-endian helpers and exact transfers over a memory stream.
#include <gtest/gtest.h>

#include "io/stream_io.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx {
namespace {

using test::MemoryStream;

TEST(StreamIo, ReadsBigEndianNumbersAndAtomHeaders) {
  MemoryStream m(test::Concat({{0xAB, 0x12, 0x34}, test::Be32(0xDEADBEEF), test::Be32(24), test::V("moov")}));
  std::uint8_t b = 0;
  std::uint16_t h = 0;
  std::uint32_t w = 0, size = 0, type = 0;
  EXPECT_EQ(ReadU8(m.stream(), &b), TMX_OK);
  EXPECT_EQ(ReadU16(m.stream(), &h), TMX_OK);
  EXPECT_EQ(ReadU32(m.stream(), &w), TMX_OK);
  EXPECT_EQ(ReadAtomHeader(m.stream(), &size, &type), TMX_OK);
  EXPECT_EQ(b, 0xAB);
  EXPECT_EQ(h, 0x1234);
  EXPECT_EQ(w, 0xDEADBEEFu);
  EXPECT_EQ(size, 24u);
  EXPECT_EQ(type, FourCC("moov"));
  // At the end nothing is stored.
  w = 5;
  EXPECT_EQ(ReadU32(m.stream(), &w), TMX_ERR_READ);
  EXPECT_EQ(w, 5u);
}

TEST(StreamIo, ShortFourByteReadSucceedsWithTheBytesItGot) {
  MemoryStream m({0x12, 0x34});
  std::uint32_t w = 0;
  EXPECT_EQ(ReadU32(m.stream(), &w), TMX_OK);
  EXPECT_EQ(w >> 16, 0x1234u);
}

TEST(StreamIo, WritesAndSkips) {
  MemoryStream m;
  EXPECT_EQ(WriteU32(m.stream(), 0x01020304), TMX_OK);
  EXPECT_EQ(m.data(), (std::vector<std::uint8_t>{1, 2, 3, 4}));
  EXPECT_EQ(Skip(m.stream(), 10), TMX_OK);
  EXPECT_EQ(m.position(), 14u);
  m.ops().Write = nullptr;
  EXPECT_EQ(WriteU32(m.stream(), 1), TMX_ERR_WRITE);
}

TEST(StreamIo, ExactTransfersReportShortCounts) {
  MemoryStream m(std::vector<std::uint8_t>(10, 7));
  std::uint8_t buf[8] = {};
  EXPECT_EQ(ReadExactAt(m.stream(), 2, buf), TMX_OK);
  EXPECT_EQ(ReadExactAt(m.stream(), 4, buf), TMX_ERR_READ);  // 6 of 8
  EXPECT_EQ(ReadExactAt(m.stream(), 4, std::span<std::uint8_t>()), TMX_OK);
  const std::uint8_t data[3] = {1, 2, 3};
  EXPECT_EQ(WriteExactAt(m.stream(), 9, data), TMX_OK);
  EXPECT_EQ(m.data().size(), 12u);
  m.fail_write(1);
  EXPECT_EQ(WriteExactAt(m.stream(), 0, data), TMX_ERR_WRITE);
  m.ops().Seek = [](TMXStream*, std::uint32_t) -> std::int32_t { return TMX_ERR_HANDLE; };
  EXPECT_EQ(ReadExactAt(m.stream(), 0, buf), TMX_ERR_SEEK);
}

TEST(FourCCs, LoweringTouchesCapitalLettersOnly) {
  EXPECT_EQ(LowerFourCC(FourCC("FTYP")), FourCC("ftyp"));
  EXPECT_EQ(LowerFourCC(FourCC("M4B ")), FourCC("m4b "));
  EXPECT_EQ(LowerFourCC(FourCC("@[Z]")), FourCC("@[z]"));
  EXPECT_EQ(LowerFourCC(0xC1D2E3F4), 0xC1D2E3F4u);
}

}  // namespace
}  // namespace tmx
