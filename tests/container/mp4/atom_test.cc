// Box primitives: type folding, bounded child search, locating the movie.
#include <gtest/gtest.h>

#include "container/mp4/atom.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx::mp4 {
namespace {

using test::Atom;
using test::Be32;
using test::Concat;
using test::MemoryStream;

TEST(AtomTypes, CapitalsInTheFileMatchLowerCaseLiterals) {
  EXPECT_TRUE(AtomTypeMatches(FourCC("TRAK"), FourCC("trak")));
  EXPECT_TRUE(AtomTypeMatches(FourCC("moov"), FourCC("moov")));
  EXPECT_FALSE(AtomTypeMatches(FourCC("trak"), FourCC("TRAK")));  // literals are not folded
  EXPECT_FALSE(AtomTypeMatches(FourCC("tra_"), FourCC("trak")));
}

TEST(Boxes, FoundByTypeAbsentIsNotAFailure) {
  MemoryStream m(Concat({Atom("free", {1, 2}), Atom("TRAK", {7, 8, 9}), Atom("udta", {})}));
  const AtomRange all{0, std::uint32_t(m.data().size())};
  Box box{};
  ASSERT_EQ(FindBox(m.stream(), all, FourCC("trak"), &box), TMX_OK);
  EXPECT_EQ(box.pos, 10u);
  EXPECT_EQ(box.size, 11u);
  EXPECT_EQ(m.position(), 18u);
  EXPECT_EQ(FindBox(m.stream(), all, FourCC("mdia"), &box), kAbsent);
  EXPECT_EQ(FindBoxOr(m.stream(), all, FourCC("mdia"), &box, TMX_ERR_NOT_FOUND), TMX_ERR_NOT_FOUND);
  // A failed read is passed on as it is, never taken for "absent".
  m.fail_read(1);
  EXPECT_EQ(FindBox(m.stream(), all, FourCC("mdia"), &box), TMX_ERR_READ);
  // An empty range is not read at all.
  const int reads = m.reads();
  EXPECT_EQ(FindBox(m.stream(), {10, 10}, FourCC("trak"), &box), kAbsent);
  EXPECT_EQ(m.reads(), reads);
}

TEST(Boxes, ChildrenMustLieInsideTheirParent) {
  // A zero size would never advance; a size past the parent leaves it; a
  // parent range past the end of its own box is cut by the box read first.
  for (std::uint32_t badSize : {0u, 7u, 1000u}) {
    auto bytes = Concat({Atom("free", {1, 2}), Atom("udta", {})});
    bytes[3] = std::uint8_t(badSize);
    bytes[2] = std::uint8_t(badSize >> 8);
    MemoryStream m(bytes);
    Box box{};
    EXPECT_EQ(FindBox(m.stream(), {0, std::uint32_t(bytes.size())}, FourCC("udta"), &box),
              TMX_ERR_INCONSISTENT)
        << badSize;
  }
  MemoryStream m(Concat({Atom("trak", Atom("tref", Atom("chap", Be32(1))))}));
  Box trak{}, tref{};
  ASSERT_EQ(ReadBoxAt(m.stream(), 0, {0, 100}, &trak), TMX_OK);
  ASSERT_EQ(FindBox(m.stream(), trak.payload(), FourCC("tref"), &tref), TMX_OK);
  EXPECT_EQ(ReadBoxAt(m.stream(), 0, {0, 27}, &trak), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(ReadBoxAt(m.stream(), 4, {0, 28}, &trak), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(OpenBoxAt(m.stream(), 8, FourCC("trak"), {0, 28}, &trak), kAbsent);
  EXPECT_TRUE(CountFits({16, 28}, 20, 2, 4));
  EXPECT_FALSE(CountFits({16, 28}, 20, 3, 4));
  EXPECT_FALSE(CountFits({16, 28}, 20, 0x40000001, 4));
}

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

TEST(AtomLocateMovie, NeedsFtypFirstAndAMovie) {
  const auto ftyp = Atom("ftyp", Concat({Be32(0x746D7820), Be32(0)}));
  const auto moov = Atom("moov", Atom("mvhd", {}));
  AtomRange movie{};
  {
    MemoryStream m(Concat({ftyp, Atom("free", {0, 0}), moov}));
    ASSERT_EQ(AtomLocateMovie(m.stream(), &movie), TMX_OK);
    EXPECT_EQ(movie.begin, std::uint32_t(ftyp.size() + 10 + 8));
    EXPECT_EQ(movie.end, std::uint32_t(ftyp.size() + 10 + moov.size()));
  }
  {
    MemoryStream m(Concat({Atom("skip", {0, 0, 0, 0}), ftyp, moov}));
    EXPECT_EQ(AtomLocateMovie(m.stream(), &movie), TMX_ERR_INCONSISTENT);
  }
  {
    MemoryStream m(Concat({ftyp, Atom("mdat", {1, 2, 3})}));
    EXPECT_EQ(AtomLocateMovie(m.stream(), &movie), TMX_ERR_INCONSISTENT);
  }
  {
    // A zero-sized atom between them ends the walk instead of looping.
    auto bytes = Concat({ftyp, Atom("free", {}), moov});
    bytes[ftyp.size() + 3] = 0;
    MemoryStream m(bytes);
    m.set_unknown_size(true);
    EXPECT_EQ(AtomLocateMovie(m.stream(), &movie), TMX_ERR_INCONSISTENT);
  }
}

}  // namespace
}  // namespace tmx::mp4
