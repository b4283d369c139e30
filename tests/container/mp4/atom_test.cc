// Box primitives: fields of 64 and 24 bits.
#include <gtest/gtest.h>

#include "container/mp4/atom.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx::mp4 {
namespace {

using test::Be32, test::Concat, test::MemoryStream;

TEST(AtomReads, SixtyFourBitFieldsKeepTheirLowHalf) {
  MemoryStream m(Concat({Be32(1), Be32(5), Be32(0x01ABCDEF)}));
  std::uint32_t v = 0;
  ASSERT_EQ(AtomReadU64Low(m.stream(), &v), TMX_OK);
  EXPECT_EQ(v, 5u);
  std::uint8_t version = 0;
  std::uint32_t flags = 0;
  ASSERT_EQ(AtomReadU24(m.stream(), &version, &flags), TMX_OK);
  EXPECT_EQ(version, 1);
  EXPECT_EQ(flags, 0xABCDEFu);
}

}  // namespace
}  // namespace tmx::mp4
