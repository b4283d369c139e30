// The circular input buffer and the bit reader: fields across the ring's
// wrap, reads past the end of a frame, frame size limits.
#include "codec/aac/bitreader.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

namespace tmx::aac {
namespace {

// Reference: bit k of a byte string, most significant bit first.
std::uint32_t Field(const std::vector<std::uint8_t>& d, std::size_t pos, int n) {
  std::uint32_t v = 0;
  for (int i = 0; i < n; ++i) {
    const std::size_t k = pos + static_cast<std::size_t>(i);
    v = (v << 1) | ((d[k / 8] >> (7 - k % 8)) & 1u);
  }
  return v;
}

class AacBitReader : public ::testing::Test {
 protected:
  void SetUp() override { buffer->Reset(); }
  std::unique_ptr<BitBuffer> buffer = std::make_unique<BitBuffer>();
};

TEST_F(AacBitReader, FieldsOfEveryWidthAcrossTheWrap) {
  std::mt19937 rng(7);
  // Frames of awkward sizes walk the write position around the ring several times.
  for (int frame = 0; frame < 40; ++frame) {
    std::vector<std::uint8_t> data(1 + rng() % kBitBufferBytes);
    for (auto& b : data) b = static_cast<std::uint8_t>(rng());
    ASSERT_TRUE(buffer->Load(data.data(), static_cast<std::uint32_t>(data.size())));
    BitReader br(*buffer);
    std::size_t pos = 0;
    while (true) {
      const int n = static_cast<int>(rng() % 33);
      if (pos + static_cast<std::size_t>(n) > data.size() * 8) break;
      ASSERT_EQ(br.Read(n), Field(data, pos, n))
          << "frame " << frame << " bit " << pos << " width " << n;
      pos += static_cast<std::size_t>(n);
    }
    EXPECT_FALSE(br.overrun());
    EXPECT_EQ(br.remaining(), data.size() * 8 - pos);
  }
}

TEST_F(AacBitReader, ReadsStopAtTheFrameWhichTheRingLimits) {
  const std::uint8_t first[] = {0xFF, 0xFF, 0xFF};
  const std::uint8_t second[] = {0xA5};
  ASSERT_TRUE(buffer->Load(first, 3));
  ASSERT_TRUE(buffer->Load(second, 1));  // the ring still holds 0xFF bytes after it
  BitReader br(*buffer);
  EXPECT_EQ(br.Read(4), 0xAu);
  EXPECT_EQ(br.Read(8), 0x50u);  // 4 bits of the frame, then zeros
  EXPECT_TRUE(br.overrun());
  EXPECT_EQ(br.position(), 8u);
  EXPECT_EQ(br.Read(32), 0u);
  EXPECT_EQ(br.remaining(), 0u);
  // Skip and ByteAlign stop at the frame's end too.
  const std::uint8_t data[] = {0x12, 0x34, 0x56};
  ASSERT_TRUE(buffer->Load(data, 3));
  BitReader aligned(*buffer);
  aligned.Read(3);
  aligned.ByteAlign();
  EXPECT_EQ(aligned.position(), 8u);
  aligned.ByteAlign();
  EXPECT_EQ(aligned.Read(8), 0x34u);
  aligned.Skip(8);
  EXPECT_FALSE(aligned.overrun());
  aligned.Skip(1);
  EXPECT_TRUE(aligned.overrun());
  EXPECT_EQ(aligned.position(), 24u);
  // Frames are limited to the ring's size.
  std::vector<std::uint8_t> big(kBitBufferBytes + 1, 0x5A);
  EXPECT_FALSE(buffer->Load(big.data(), kBitBufferBytes + 1));
  ASSERT_TRUE(buffer->Load(big.data(), kBitBufferBytes));
  EXPECT_EQ(BitReader(*buffer).remaining(), kBitBufferBytes * 8);
  EXPECT_TRUE(buffer->Load(nullptr, 0));
  BitReader empty(*buffer);
  EXPECT_EQ(empty.Read(1), 0u);
  EXPECT_TRUE(empty.overrun());
}

}  // namespace
}  // namespace tmx::aac
