// The bytes of a bookmark list after each kind of edit.
#include <gtest/gtest.h>

#include "bookmarks/bookmark_support.h"

namespace tmx::test {
namespace {

const std::string kPid = "PID-123";
// "@pid" as delivered in single-byte text: 7 bytes of UTF-8 are sized 9.
const ByteVec kStoredPid = {'P', 'I', 'D', '-', '1', '2', '3', 0, 0};
constexpr std::uint32_t kN = 9;
constexpr std::uint32_t kFirst = 16 + 8 + 8 + 12 + kN + 44;  // behind "blst"

class NewList : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(TMXInitBookmarkList(f, s.position().stream()), TMX_OK); }
  void Add(std::initializer_list<std::uint32_t> times) {
    std::uint32_t index = 0;
    for (std::uint32_t t : times) ASSERT_EQ(TMXAddBookmark(f, t, &index), TMX_OK) << t;
  }
  std::uint32_t Word(std::uint32_t at) { return Be32At(s.bytes(), at); }
  Session s{ProgrammeBytes(kPid)};
  TMXFile* f = s.f();
};

TEST_F(NewList, StartsAsTheEmptyTreeAndGrowsOnlyWhenTheSpareRoomIsUsed) {
  const ByteVec e = Concat(
      {ByteVec(16, 0), Be32(kN + 100), V("moov"), Be32(kN + 92), V("udta"), Be32(kN + 84),
       V("bmet"), Be32(1), Be32(kN + 44), V("blst"), Be32(0), Be32(kN + 24), V("prID"),
       Be32(kN + 16), V("data"), Be32(0), Be32(0), kStoredPid, Be32(8), V("free"), Be32(28),
       V("free"), ByteVec(20, 0)});
  ASSERT_EQ(s.bytes(), e);

  Add({5000});  // fits the 28 spare bytes, leaving an empty "free" atom
  EXPECT_EQ(s.bytes().size(), kN + 116);
  const ByteVec atom(s.bytes().begin() + kFirst, s.bytes().end());
  EXPECT_EQ(
      atom,
      Concat({Be32(20), V("bmrk"), Be32(5000), Be32(8), V("free"), Be32(8), V("free")}));
  Add({7000});  // grows the file, "moov", "udta" and "bmet" by 20 bytes
  EXPECT_EQ(s.bytes().size(), kN + 136);
  EXPECT_EQ(Word(16), kN + 120);
  EXPECT_EQ(Word(24), kN + 112);
  EXPECT_EQ(Word(32), kN + 104);
  const ParsedList l = ParseList(s.bytes());
  EXPECT_EQ(l.bookmarks.at(1).pos, kFirst + 20);
  EXPECT_EQ(l.freeSize, 8u);
}

TEST_F(NewList, AReplacedItemLeavesItsRoomOrIsGrownOver) {
  Add({1000, 3000});
  const ByteVec big(40, 'x'), small(10, 'y'), bigger(100, 'z');
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 0, kKeyAlias, big.data(), 40), TMX_OK);
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 0, kKeyAlias, small.data(), 10), TMX_OK);
  EXPECT_EQ(Word(kFirst), 12u + 64 + 8);  // the smaller one took the old room
  EXPECT_EQ(Word(kFirst + 12), 34u);
  EXPECT_EQ(Word(kFirst + 46), 30u);
  EXPECT_EQ(Word(kFirst + 50), FourCC("free"));
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 0, kKeyAlias, bigger.data(), 100), TMX_OK);
  EXPECT_EQ(Word(kFirst), 12u + 124 + 8);  // grown by what the free room lacked
  const ParsedList l = ParseList(s.bytes());
  EXPECT_EQ(l.bookmarks.at(0).items.at(FourCC("ausr")), bigger);
  const ByteVec longer(103, 'w');  // 3 bytes more: no room for a "free" atom between
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 0, kKeyAlias, longer.data(), 103), TMX_OK);
  EXPECT_EQ(ParseList(s.bytes()).bookmarks.at(0).items.at(FourCC("ausr")), longer);
  EXPECT_EQ(ParseList(s.bytes()).bookmarks.at(1).time, 3000u);
}

// A list in a stream that starts with "ftyp" has no prefix, and the tree
// grows only when nothing follows "moov".
ByteVec FtypList(const ByteVec& behind = {}) {
  const ByteVec item = Atom("prID", Atom("data", Concat({Be32(0), Be32(0), kStoredPid})));
  const ByteVec blst = Atom("blst", Concat({Be32(0), item, Atom("free", {})}));
  const ByteVec bmet = Atom("bmet", Concat({Be32(1), blst, Atom("free", ByteVec(20))}));
  return Concat({Atom("ftyp", V("bmksbmks")), Box("moov", {Box("udta", {bmet})}), behind});
}

TEST(FtypList, GrowsAtItsEndUnlessAtomsFollowTheMovie) {
  for (bool mdat : {false, true}) {
    MemoryStream list(FtypList(mdat ? Atom("mdat", ByteVec(40, 7)) : ByteVec{}));
    Session s(ProgrammeBytes(kPid));
    ASSERT_EQ(TMXOpenBookmarkList(s.f(), list.stream()), TMX_OK);
    std::uint32_t index = 0;
    ASSERT_EQ(TMXAddBookmark(s.f(), 1000, &index), TMX_OK);  // fits
    const ByteVec before = list.data(), value(30, 'v');
    if (mdat) {
      EXPECT_EQ(TMXAddBookmark(s.f(), 3000, &index), TMX_ERR_INCONSISTENT);
      EXPECT_EQ(TMXAddBookmarkListMetadata(s.f(), kKeyAlias, value.data(), 30),
                TMX_ERR_INCONSISTENT);
      EXPECT_EQ(list.data(), before);
    } else {
      ASSERT_EQ(TMXAddBookmark(s.f(), 3000, &index), TMX_OK);
      EXPECT_EQ(list.data().size(), before.size() + 20);
      EXPECT_EQ(ParseList(list.data()).bookmarks.size(), 2u);
    }
  }
}

}  // namespace
}  // namespace tmx::test
