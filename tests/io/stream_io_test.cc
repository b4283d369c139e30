// Big-endian helpers and exact transfers over a memory stream.
#include <gtest/gtest.h>

#include "io/stream_io.h"
#include "support/memory_stream.h"

namespace tmx {
namespace {

using test::MemoryStream;

TEST(StreamIo, WordsAndSkips) {
  MemoryStream m({0x12, 0x34});
  std::uint32_t w = 0;
  EXPECT_EQ(ReadU32(m.stream(), &w), TMX_OK);  // a short read succeeds with the bytes it got
  EXPECT_EQ(w >> 16, 0x1234u);
  EXPECT_EQ(WriteU32(m.stream(), 0x01020304), TMX_OK);
  EXPECT_EQ(m.data(), (std::vector<std::uint8_t>{0x12, 0x34, 1, 2, 3, 4}));
  EXPECT_EQ(Skip(m.stream(), 10), TMX_OK);
  EXPECT_EQ(m.position(), 16u);
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

}  // namespace
}  // namespace tmx
