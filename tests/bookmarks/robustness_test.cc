// The bookmark list against a model: each edit cut short at every write,
// allocation and word written (a power cut), after which the list holds its
// old or new content, or, where an atom moves over less than its size or an
// item takes the room of the one it replaces, one of them less that atom;
// malformed and corrupted lists.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>

#include "bookmarks/bookmark_support.h"
#include "util/alloc.h"

namespace tmx::test {
namespace {

const std::string kPid = "robust-pid";
const std::uint8_t kBytes[200] = {};
constexpr std::uint32_t kKeys[] = {kKeyTitle, kKeyCover, kKeyAlias, kKeyNote};
constexpr std::uint32_t kList = UINT32_MAX;  // the list's own items in a Content

// What the list holds and where playback resumes: (bookmark index or kList,
// key) to value; text comes back as the letters it was stored as.
struct Content {
  std::vector<std::uint32_t> times;
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::string> items;
  std::uint32_t seconds = 0;
  bool operator==(const Content&) const = default;
};
// Renumbers the items of the bookmarks from `from` on by `by`.
void Renumber(Content& c, std::uint32_t from, int by) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::string> items;
  for (const auto& [k, v] : c.items)
    items[{k.first != kList && k.first >= from ? k.first + by : k.first, k.second}] = v;
  c.items = std::move(items);
}
void DropBookmark(Content& c, std::uint32_t i) {
  c.times.erase(c.times.begin() + i);
  std::erase_if(c.items, [&](const auto& item) { return item.first.first == i; });
  Renumber(c, i + 1, -1);
}

// `c` is `ref` less one bookmark or one item.
bool OneShort(const Content& c, const Content& ref) {
  for (std::size_t i = 0; i < ref.times.size() + ref.items.size(); ++i) {
    Content r = ref;
    if (i < ref.times.size()) DropBookmark(r, std::uint32_t(i));
    if (i >= ref.times.size()) r.items.erase(std::next(r.items.begin(), i - ref.times.size()));
    if (c == r) return true;
  }
  return false;
}

std::string Letters(std::size_t n, char first) {
  std::string s(n, first);
  for (std::size_t i = 0; i < n; ++i) s[i] = char(first + i % 7);
  return s;
}

std::int32_t Put(TMXFile* f, std::uint32_t index, std::uint32_t key, const std::string& v) {
  const auto n = std::uint32_t(v.size());
  return index == kList ? TMXAddBookmarkListMetadata(f, key, v.data(), n)
                        : TMXAddBookmarkMetadata(f, index, key, v.data(), n);
}

// Everything read back through the library from a position file's bytes.
Content Read(const ByteVec& bytes) {
  Session s(ProgrammeBytes(kPid), bytes);
  TMXFile* f = s.f();
  Content c;
  std::uint32_t ms = 0, count = 0, size = 0;
  EXPECT_EQ(TMXGetPlaybackPosition(f, &ms), TMX_OK);
  c.seconds = (ms + 500) / 1000;
  EXPECT_EQ(TMXOpenBookmarkList(f, s.position().stream()), TMX_OK);
  EXPECT_EQ(TMXGetBookmarkCount(f, &count), TMX_OK);
  c.times.resize(count);
  for (std::uint32_t i = 0; i <= count; ++i) {
    const std::uint32_t at = i < count ? i : kList;
    EXPECT_EQ(at == kList ? TMX_OK : TMXGetBookmarkTimeStamp(f, i, &c.times[i]), TMX_OK);
    for (std::uint32_t key : kKeys) {
      const std::int32_t found = at == kList ? TMXGetBookmarkListInfo(f, key, 0, &size)
                                             : TMXGetBookmarkInfo(f, at, key, 0, &size);
      if (found == TMX_ERR_NOT_FOUND) continue;
      EXPECT_EQ(found, TMX_OK);
      std::vector<char> out(size + 1);
      const auto bytes = reinterpret_cast<std::uint8_t*>(out.data());
      EXPECT_EQ(at == kList ? TMXGetBookmarkListMetadata(f, key, bytes, size + 1)
                            : TMXGetBookmarkMetadata(f, at, key, bytes, size + 1),
                TMX_OK);
      // Pictures and aliases come back as stored, text up to its zero.
      const bool raw = key == kKeyCover || key == kKeyAlias;
      c.items[{at, key}] = raw ? std::string(out.begin(), out.end() - 1) : std::string(out.data());
    }
  }
  return c;
}

// Four bookmarks with items and a list title, playback saved at 20 s; the
// roomy list has lost its last bookmark, leaving free space behind the others.
struct Prepared { ByteVec bytes; Content model; };
Prepared Prepare(bool roomy) {
  Session s(ProgrammeBytes(kPid));
  TMXFile* f = s.f();
  Prepared p;
  p.model.seconds = 20;
  EXPECT_EQ(TMXSeek(f, 20000), TMX_OK);
  EXPECT_EQ(TMXInitBookmarkList(f, s.position().stream()), TMX_OK);
  std::uint32_t index = 0;
  for (std::uint32_t t : {1000u, 5000u, 9000u, 13000u}) {
    EXPECT_EQ(TMXAddBookmark(f, t, &index), TMX_OK);
    p.model.times.push_back(t);
  }
  for (auto [at, key] : {std::pair{1u, kKeyNote}, {2u, kKeyAlias}, {kList, kKeyTitle},
                         {3u, kKeyCover}}) {
    const std::string v = Letters(at == kList ? 12 : 60 + 30 * at, char('a' + at % 5));
    EXPECT_EQ(Put(f, at, key, v), TMX_OK);
    p.model.items[{at, key}] = v;
  }
  if (roomy) {
    EXPECT_EQ(TMXDeleteBookmark(f, 3), TMX_OK);
    DropBookmark(p.model, 3);
  }
  s.Close();
  p.bytes = s.bytes();
  return p;
}

// What a cut-short edit may leave besides the old or new content.
enum Guarantee { kExact, kOneShort };
struct Edit {
  std::string name;
  bool roomy;
  Guarantee guarantee;
  std::function<std::int32_t(TMXFile*)> run;
  std::function<void(Content&)> apply;  // the same edit on the model
};

Edit Set(std::uint32_t index, std::uint32_t key, std::size_t size, bool roomy, Guarantee g) {
  const std::string v = Letters(size, 'n');
  return {"set " + std::to_string(index) + "/" + std::to_string(key) + "/" + std::to_string(size),
          roomy, g, [=](TMXFile* f) { return Put(f, index, key, v); },
          [=](Content& c) { c.items[{index, key}] = v; }};
}

std::vector<Edit> Edits() {
  const auto add = [](TMXFile* f) {
    std::uint32_t index = 0;
    return TMXAddBookmark(f, 7000, &index);
  };
  const auto added = [](Content& c) {
    c.times.insert(c.times.begin() + 2, 7000);
    Renumber(c, 2, 1);
  };
  std::vector<Edit> edits = {
      {"add, growing the tree", false, kExact, add, added},
      {"add into free space", true, kExact, add, added},
      {"remove list title", false, kExact,
       [](TMXFile* f) { return TMXDeleteBookmarkListMetadata(f, kKeyTitle); },
       [](Content& c) { c.items.erase({kList, kKeyTitle}); }},
      {"remove note", false, kExact,
       [](TMXFile* f) { return TMXDeleteBookmarkMetadata(f, 1, kKeyNote); },
       [](Content& c) { c.items.erase({1, kKeyNote}); }},
      // A save of the position that moved to 40 s while saves were failing.
      {"position save", false, kExact, [](TMXFile* f) { return TMXSavePlaybackPosition(f, 1); },
       [](Content& c) { c.seconds = 40; }},
      Set(1, kKeyNote, 200, false, kOneShort),  // bigger than the old one
      Set(1, kKeyNote, 20, false, kOneShort),   // smaller: takes the old room
      Set(1, kKeyNote, 93, false, kOneShort),   // a little bigger: the atoms behind move a little
      Set(2, kKeyCover, 4, true, kExact),       // fits in the free space
      Set(2, kKeyAlias, 100, true, kOneShort),  // the last bookmark grows in place
      Set(kList, kKeyAlias, 40, true, kOneShort)};
  for (std::uint32_t index : {0u, 1u, 3u}) {
    edits.push_back({"delete " + std::to_string(index), false, index == 3 ? kExact : kOneShort,
                     [=](TMXFile* f) { return TMXDeleteBookmark(f, index); },
                     [=](Content& c) { DropBookmark(c, index); }});
  }
  // Each key where the container must grow and move the atoms behind it.
  for (std::uint32_t key : kKeys) {
    edits.push_back(Set(kList, key, 30, false, kOneShort));
    edits.push_back(Set(0, key, 50, false, kOneShort));
  }
  return edits;
}

enum class Fault { kWrite, kAllocation, kPower };
struct Outcome {
  std::int32_t rc = 0;
  bool reached = false;  // the fault was met
  ByteVec bytes;         // what storage holds afterwards
  std::vector<int> writes;  // their sizes
  std::int64_t count = -1;  // bookmarks of the list left open; -1: closed
};

Outcome RunEdit(const Prepared& p, const Edit& e, Fault fault, long k) {
  Outcome o;
  const std::int64_t live = tmx::testing::LiveAllocations();
  {
    Session s(ProgrammeBytes(kPid), p.bytes);
    TMXFile* f = s.f();
    MemoryStream& m = s.position();
    EXPECT_EQ(TMXOpenBookmarkList(f, m.stream()), TMX_OK);
    EXPECT_EQ(TMXSetBookmarkBufferSize(f, 64), TMX_OK);
    m.fail_write(1);
    EXPECT_EQ(e.name == "position save" ? TMXSeek(f, 40000) : TMX_OK, TMX_OK);
    const int writes = m.writes();
    const std::uint64_t made = tmx::testing::AllocationCount();
    m.fail_write(fault == Fault::kWrite ? int(k) : 0);
    tmx::testing::FailAllocation(fault == Fault::kAllocation ? std::uint64_t(k) : 0);
    m.cut_power_after(fault == Fault::kPower ? k : -1);
    o.rc = e.run(f);
    tmx::testing::FailAllocation(0);
    m.fail_write(0);
    const std::uint64_t allocations = tmx::testing::AllocationCount() - made;
    o.reached = fault == Fault::kPower || (fault == Fault::kWrite ? m.writes() - writes >= k
                                                                  : allocations >= std::uint64_t(k));
    o.bytes = fault == Fault::kPower ? m.persisted() : m.data();
    o.writes = m.write_sizes();
    std::uint32_t n = 0;
    if (TMXGetBookmarkCount(f, &n) == TMX_OK) o.count = n;
    m.cut_power_after(-1);
    EXPECT_EQ(s.programme().data(), ProgrammeBytes(kPid));
  }
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
  return o;
}

TEST(CrashSafety, EveryEditReadsBackOldOrNewAfterEachFault) {
  const Prepared prepared[] = {Prepare(false), Prepare(true)};
  for (const Edit& e : Edits()) {
    SCOPED_TRACE(e.name);
    const Prepared& p = prepared[e.roomy];
    Content after = p.model;
    e.apply(after);
    const auto check = [&](const Outcome& o, Fault fault) {
      const Content c = Read(o.bytes);
      EXPECT_TRUE(c == p.model || c == after ||
                  (e.guarantee == kOneShort && (OneShort(c, p.model) || OneShort(c, after))))
          << ::testing::PrintToString(c);
      // After a failed allocation the list stays open only as it is stored.
      if (fault == Fault::kAllocation && o.count >= 0) {
        EXPECT_EQ(o.count, c.times.size());
      }
    };
    const Outcome clean = RunEdit(p, e, Fault::kPower, LONG_MAX);
    ASSERT_EQ(clean.rc, TMX_OK);
    ASSERT_EQ(Read(clean.bytes), after);
    // Power cuts after every word of every write; the 16-byte position
    // record reads back only whole.
    long at = 0;
    for (int n : clean.writes) {
      for (int cut = 0; cut < n; cut += e.name == "position save" ? n : 4) {
        SCOPED_TRACE("power cut at " + std::to_string(at + cut));
        const Outcome o = RunEdit(p, e, Fault::kPower, at + cut);
        EXPECT_EQ(o.rc, TMX_OK);
        check(o, Fault::kPower);
      }
      at += n;
    }
    for (Fault fault : {Fault::kWrite, Fault::kAllocation}) {
      for (long k = 1;; ++k) {
        SCOPED_TRACE((fault == Fault::kWrite ? "write " : "allocation ") + std::to_string(k));
        ASSERT_LT(k, 100);
        const Outcome o = RunEdit(p, e, fault, k);
        // A failed shrink of the time array after a deletion is harmless.
        const bool shrink = fault == Fault::kAllocation && e.name.rfind("delete", 0) == 0;
        if (!o.reached || (shrink && o.rc == TMX_OK)) {
          EXPECT_EQ(o.rc, TMX_OK);
        } else {
          EXPECT_EQ(o.rc, fault == Fault::kWrite ? TMX_ERR_WRITE : TMX_ERR_MEMORY);
        }
        check(o, fault);
        if (!o.reached) break;
      }
    }
  }
}

TEST(Malformed, SizesOutsideTheirParentsAreRefusedWithoutWriting) {
  const ByteVec good = Prepare(false).bytes;
  const ParsedList l = ParseList(good);
  const std::uint32_t bm = l.bookmarks.at(1).pos, blst = l.bmet + 12;
  const std::uint32_t moovSize = Be32At(good, l.moov);
  const std::tuple<std::uint32_t, std::uint32_t, std::int32_t> cases[] = {
      {bm, 0, -7}, {bm, 7, -7}, {bm, 8, -7} /* no room for the time */, {bm, 0x10000, -7},
      {bm, 0xFFFFFFFF, -7}, {blst, 8, -7}, {blst + 12, 3, -7}, {blst + 20, 12, -7},
      {l.bmet, 8, -7}, {l.udta, moovSize, -7}, {l.moov, moovSize + 1, -7},
      {l.bmet + 4, FourCC("bmeh"), -25}};
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
}

// Whatever opens may be edited, and after any edit the list opens again.
TEST(Malformed, CorruptedListsStayReadableThroughEdits) {
  const ByteVec good = Prepare(false).bytes;
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
