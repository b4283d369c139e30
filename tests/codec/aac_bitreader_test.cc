// The circular input buffer and the bit reader: reads past the end of a
// frame, frame size limits. Fields across the ring's wrap are pinned by the
// exact decodes of the clips.
#include "codec/aac/bitreader.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace tmx::aac {
namespace {

TEST(AacBitReader, ReadsStopAtTheFrameWhichTheRingLimits) {
  const auto buffer = std::make_unique<BitBuffer>();
  buffer->Reset();
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
