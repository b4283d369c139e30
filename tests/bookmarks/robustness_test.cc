// Long random edit sequences checked against a model, a failed time array,
// and malformed or corrupted lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "bookmarks/bookmark_support.h"
#include "util/alloc.h"

namespace tmx::test {
namespace {

const std::string kPid = "robust-pid";
const std::pair<std::uint32_t, std::uint32_t> kKeys[] = {  // key, item type
    {kKeyCover, FourCC("covr")},
    {kKeyAlias, FourCC("ausr")},
    {kKeyNote, kItemNote}};
const std::uint8_t kBytes[2000] = {};

struct Model {
  std::map<std::uint32_t, ByteVec> listItems;
  std::vector<ParsedBookmark> bookmarks;  // ascending times; pos unused
};

// One random edit, applied to the list and to the model.
void RandomStep(std::mt19937& rng, TMXFile* f, Model& m) {
  const auto count = std::uint32_t(m.bookmarks.size());
  const std::uint32_t i = count && rng() % 8 ? rng() % count : count + rng() % 3;
  const auto [key, type] = kKeys[rng() % 3];
  ByteVec value(rng() % 10 ? rng() % 120 : rng() % 1500);
  for (auto& b : value) b = std::uint8_t('a' + rng() % 26);
  const void* data = value.empty() ? kBytes : value.data();
  const auto n = std::uint32_t(value.size());
  switch (rng() % (count > 300 ? 11 : 12)) {
    case 0:
    case 1:
    case 2:
    case 11: {
      const std::uint32_t ms = rng() % 610000, stored = std::min(ms, f->duration);
      const bool near = std::any_of(m.bookmarks.begin(), m.bookmarks.end(), [&](const auto& b) {
        return b.time <= stored && stored < std::uint64_t(b.time) + 1000;
      });
      std::uint32_t at = 0;
      ASSERT_EQ(TMXAddBookmark(f, ms, &at), near ? TMX_ERR_DUPLICATE_BOOKMARK : TMX_OK);
      if (near) return;
      auto pos = std::lower_bound(m.bookmarks.begin(), m.bookmarks.end(), stored,
                                  [](const auto& b, std::uint32_t t) { return b.time < t; });
      ASSERT_EQ(at, std::uint32_t(pos - m.bookmarks.begin()));
      m.bookmarks.insert(pos, {0, stored, {}});
      return;
    }
    case 3:
    case 4:
    case 5:
      ASSERT_EQ(TMXDeleteBookmark(f, i), i < count ? TMX_OK : TMX_ERR_INDEX);
      if (i < count) m.bookmarks.erase(m.bookmarks.begin() + i);
      return;
    case 6:
    case 7:
      ASSERT_EQ(TMXAddBookmarkMetadata(f, i, key, data, n), i < count ? TMX_OK : TMX_ERR_INDEX);
      if (i < count) m.bookmarks[i].items[type] = value;
      return;
    case 8: {
      const bool has = i < count && m.bookmarks[i].items.erase(type);
      ASSERT_EQ(TMXDeleteBookmarkMetadata(f, i, key), i >= count ? TMX_ERR_INDEX
                                                      : has      ? TMX_OK
                                                                 : TMX_ERR_NOT_FOUND);
      return;
    }
    case 9:
      ASSERT_EQ(TMXAddBookmarkListMetadata(f, key, data, n), TMX_OK);
      m.listItems[type] = value;
      return;
    default:
      ASSERT_EQ(TMXDeleteBookmarkListMetadata(f, key),
                m.listItems.erase(type) ? TMX_OK : TMX_ERR_NOT_FOUND);
  }
}

void ExpectMatches(Session& s, const Model& m, bool reopen) {
  ParsedList l = ParseList(s.bytes());
  l.listItems.erase(FourCC("prID"));
  EXPECT_EQ(l.listItems, m.listItems);
  std::stable_sort(l.bookmarks.begin(), l.bookmarks.end(),
                   [](const auto& a, const auto& b) { return a.time < b.time; });
  ASSERT_EQ(l.bookmarks.size(), m.bookmarks.size());
  for (std::size_t i = 0; i < l.bookmarks.size(); ++i) {
    EXPECT_EQ(l.bookmarks[i].time, m.bookmarks[i].time) << i;
    EXPECT_EQ(l.bookmarks[i].items, m.bookmarks[i].items) << i;
  }
  if (!reopen) return;
  TMXFile* f = s.f();
  ASSERT_EQ(TMXOpenBookmarkList(f, s.position().stream()), TMX_OK);
  std::uint32_t count = 0, value = 0;
  ASSERT_EQ(TMXGetBookmarkCount(f, &count), TMX_OK);
  ASSERT_EQ(count, m.bookmarks.size());
  for (std::uint32_t i = 0; i < count; ++i) {
    ASSERT_EQ(TMXGetBookmarkTimeStamp(f, i, &value), TMX_OK);
    EXPECT_EQ(value, m.bookmarks[i].time);
    for (const auto& [key, type] : kKeys) {
      const auto it = m.bookmarks[i].items.find(type);
      const bool has = it != m.bookmarks[i].items.end();
      EXPECT_EQ(TMXGetBookmarkInfo(f, i, key, 0, &value), has ? TMX_OK : TMX_ERR_NOT_FOUND);
      if (key == kKeyNote || !has) continue;
      ByteVec raw(value + 1);
      ASSERT_EQ(TMXGetBookmarkMetadata(f, i, key, raw.data(), value), TMX_OK);
      EXPECT_EQ(ByteVec(raw.begin(), raw.end() - 1), it->second);
    }
  }
}

TEST(RandomEdits, KeepTheListEqualToAModel) {
  for (std::uint32_t bufferSize : {64u, 1024u}) {
    Session s(ProgrammeBytes(kPid, 13000));  // ten minutes: hundreds of bookmarks
    ASSERT_EQ(TMXInitBookmarkList(s.f(), s.position().stream()), TMX_OK);
    ASSERT_EQ(TMXSetBookmarkBufferSize(s.f(), bufferSize), TMX_OK);
    std::mt19937 rng(bufferSize);
    Model m;
    for (int step = 0; step < 3000; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      ASSERT_NO_FATAL_FAILURE(RandomStep(rng, s.f(), m));
      ASSERT_NO_FATAL_FAILURE(ExpectMatches(s, m, step % 40 == 39));
    }
    EXPECT_GT(m.bookmarks.size(), 100u);
    EXPECT_EQ(s.programme().data(), ProgrammeBytes(kPid, 13000));
  }
}

void Prepare(Session& s) {
  TMXFile* f = s.f();
  ASSERT_EQ(TMXInitBookmarkList(f, s.position().stream()), TMX_OK);
  ASSERT_EQ(TMXSetBookmarkBufferSize(f, 64), TMX_OK);
  std::uint32_t index = 0;
  for (std::uint32_t t : {1000u, 5000u, 9000u}) ASSERT_EQ(TMXAddBookmark(f, t, &index), TMX_OK);
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 1, kKeyNote, kBytes, 150), TMX_OK);
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 2, kKeyAlias, kBytes, 90), TMX_OK);
  ASSERT_EQ(TMXAddBookmarkListMetadata(f, kKeyTitle, "title", 5), TMX_OK);
}

TEST(Failures, AFailedTimeArrayClosesTheList) {
  Session s(ProgrammeBytes(kPid));
  ASSERT_NO_FATAL_FAILURE(Prepare(s));
  std::uint32_t n = 0;
  tmx::testing::FailAllocation(1);
  EXPECT_EQ(TMXAddBookmark(s.f(), 20000, &n), TMX_ERR_MEMORY);
  tmx::testing::FailAllocation(0);
  EXPECT_EQ(TMXGetBookmarkCount(s.f(), &n), TMX_ERR_NO_BOOKMARK_LIST);
  ASSERT_EQ(TMXOpenBookmarkList(s.f(), s.position().stream()), TMX_OK);
  EXPECT_EQ(TMXGetBookmarkCount(s.f(), &n), TMX_OK);
  EXPECT_EQ(n, 4u);  // the bookmark was written before the array failed
}

ByteVec SampleList() {
  Session s(ProgrammeBytes(kPid));
  Prepare(s);
  s.Close();
  return s.bytes();
}


TEST(Malformed, SizesOutsideTheirParentsAreRefusedWithoutWriting) {
  const ByteVec good = SampleList();
  const ParsedList l = ParseList(good);
  const std::uint32_t bm = l.bookmarks.at(1).pos, blst = l.bmet + 12;
  const std::uint32_t moovSize = Be32At(good, l.moov);
  const std::tuple<std::uint32_t, std::uint32_t, std::int32_t> cases[] = {
      {bm, 0, -7},
      {bm, 7, -7},
      {bm, 8, -7},  // no room for the time
      {bm, 0x10000, -7},
      {bm, 0xFFFFFFFF, -7},
      {blst, 8, -7},
      {blst + 12, 3, -7},
      {blst + 20, 12, -7},
      {l.bmet, 8, -7},
      {l.udta, moovSize, -7},
      {l.moov, moovSize + 1, -7},
      {l.bmet + 4, FourCC("bmeh"), -25},
  };
  for (const auto& [at, value, expected] : cases) {
    ByteVec bad = good;
    Put32(bad, at, value);
    Session s(ProgrammeBytes(kPid), bad);
    EXPECT_EQ(TMXOpenBookmarkList(s.f(), s.position().stream()), expected) << at << " " << value;
    EXPECT_EQ(s.bytes(), bad);
  }
  // A broken item inside one bookmark spoils that bookmark's edits only.
  ByteVec bad = good;
  Put32(bad, bm + 12, 0x1000);
  Session s(ProgrammeBytes(kPid), bad);
  ASSERT_EQ(TMXOpenBookmarkList(s.f(), s.position().stream()), TMX_OK);
  std::uint32_t size = 0;
  EXPECT_EQ(TMXGetBookmarkInfo(s.f(), 1, kKeyNote, 0, &size), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(TMXAddBookmarkMetadata(s.f(), 1, kKeyTitle, kBytes, 100), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(s.bytes(), bad);
  EXPECT_EQ(TMXAddBookmarkMetadata(s.f(), 0, kKeyTitle, kBytes, 100), TMX_OK);

  // Behind "bmet" inside "udta" an atom forbids growth, not other edits.
  ByteVec skip = good;
  const ByteVec atom = Atom("skip", ByteVec(4));
  skip.insert(skip.end(), atom.begin(), atom.end());
  Put32(skip, l.moov, moovSize + 12);
  Put32(skip, l.udta, Be32At(good, l.udta) + 12);
  Session t(ProgrammeBytes(kPid), skip);
  ASSERT_EQ(TMXOpenBookmarkList(t.f(), t.position().stream()), TMX_OK);
  EXPECT_EQ(TMXAddBookmark(t.f(), 30000, &size), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(TMXAddBookmarkListMetadata(t.f(), kKeyAlias, kBytes, 200), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(t.bytes(), skip);
  EXPECT_EQ(TMXDeleteBookmark(t.f(), 0), TMX_OK);
}

// Whatever opens may be edited, and after any edit the list opens again.
TEST(Malformed, CorruptedListsStayReadableThroughEdits) {
  const ByteVec good = SampleList();
  std::mt19937 rng(99);
  for (int round = 0; round < 1500; ++round) {
    ByteVec bad = good;
    for (int i = 1 + int(rng() % 4); i > 0; --i) {
      const std::size_t at = 16 + rng() % (bad.size() - 16);
      bad[at] = rng() % 2 ? std::uint8_t(rng()) : std::uint8_t(bad[at] ^ (1u << (rng() % 8)));
    }
    Session s(ProgrammeBytes(kPid), bad);
    TMXFile* f = s.f();
    if (TMXOpenBookmarkList(f, s.position().stream()) != TMX_OK) continue;
    std::uint32_t n = 0;
    TMXGetBookmarkCount(f, &n);
    const std::uint32_t i = n ? rng() % n : 0;
    switch (rng() % 5) {
      case 0: TMXAddBookmark(f, rng() % 60000, &n); break;
      case 1: TMXDeleteBookmark(f, i); break;
      case 2: TMXAddBookmarkListMetadata(f, kKeyAlias, kBytes, rng() % 200); break;
      case 3: TMXAddBookmarkMetadata(f, i, kKeyNote, kBytes, 60); break;
      default: TMXDeleteBookmarkMetadata(f, i, kKeyNote);
    }
    EXPECT_EQ(TMXOpenBookmarkList(f, s.position().stream()), TMX_OK) << "round " << round;
  }
}

}  // namespace
}  // namespace tmx::test
