// Every kind of bookmark edit and the position save, cut short at each write
// (the write fails), at each allocation, and by a power cut inside each
// write: afterwards the programme and the list open, and they hold exactly
// the old or exactly the new content. Edits that move an atom over less
// than its own size, or write an item over the one it replaces, may instead
// lack that one bookmark or item for a while; nothing reads damaged.
#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "bookmarks/bookmark_support.h"
#include "util/alloc.h"

namespace tmx::test {
namespace {

const std::string kPid = "crash-pid";
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
void PrintTo(const Content& c, std::ostream* os) {
  *os << c.seconds << " s, times";
  for (std::uint32_t t : c.times) *os << " " << t;
  for (const auto& [k, v] : c.items) *os << ", " << int(k.first) << "/" << k.second << ": " << v;
}

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
  for (std::uint32_t i = 0; i < ref.times.size(); ++i) {
    Content r = ref;
    DropBookmark(r, i);
    if (c == r) return true;
  }
  for (const auto& [key, value] : ref.items) {
    Content r = ref;
    r.items.erase(key);
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

// Reads everything back through the library from the bytes of a position
// file; the list must open.
Content Read(const ByteVec& bytes) {
  Session s(ProgrammeBytes(kPid), bytes);
  TMXFile* f = s.f();
  Content c;
  std::uint32_t ms = 0, count = 0, size = 0;
  EXPECT_EQ(TMXGetPlaybackPosition(f, &ms), TMX_OK);
  c.seconds = (ms + 500) / 1000;
  const std::int32_t rc = TMXOpenBookmarkList(f, s.position().stream());
  EXPECT_EQ(rc, TMX_OK);
  if (rc != TMX_OK) return c;
  EXPECT_EQ(TMXGetBookmarkCount(f, &count), TMX_OK);
  c.times.resize(count);
  for (std::uint32_t i = 0; i < count; ++i)
    EXPECT_EQ(TMXGetBookmarkTimeStamp(f, i, &c.times[i]), TMX_OK);
  for (std::uint32_t i = 0; i <= count; ++i) {
    const std::uint32_t at = i < count ? i : kList;
    for (std::uint32_t key : kKeys) {
      const std::int32_t found = at == kList ? TMXGetBookmarkListInfo(f, key, 0, &size)
                                             : TMXGetBookmarkInfo(f, at, key, 0, &size);
      if (found == TMX_ERR_NOT_FOUND) continue;
      EXPECT_EQ(found, TMX_OK);
      std::vector<std::uint8_t> out(size + 1);
      EXPECT_EQ(at == kList ? TMXGetBookmarkListMetadata(f, key, out.data(), size + 1)
                            : TMXGetBookmarkMetadata(f, at, key, out.data(), size + 1),
                TMX_OK);
      const bool raw = key == kKeyCover || key == kKeyAlias;
      c.items[{at, key}] = raw ? std::string(out.begin(), out.end() - 1)
                               : std::string(reinterpret_cast<const char*>(out.data()));
    }
  }
  return c;
}

// Four bookmarks with items and a list title, playback saved at 20 s. The
// roomy list has lost its last bookmark and has free space behind the
// others; the tight one has none to spare.
struct Prepared {
  ByteVec bytes;
  Content model;
};
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
  const std::pair<std::uint32_t, std::uint32_t> items[] = {
      {1, kKeyNote}, {2, kKeyAlias}, {kList, kKeyTitle}, {3, kKeyCover}};
  for (const auto& [at, key] : items) {
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

struct Edit {
  std::string name;
  bool roomy;
  bool exact;  // never lacks a bookmark or item on the way
  std::function<std::int32_t(TMXFile*)> run;
  std::function<void(Content&)> apply;  // the same edit on the model
};

std::string KeyName(std::uint32_t index, std::uint32_t key) {
  const char code[] = {char(key >> 24), char(key >> 16), char(key >> 8), char(key), 0};
  return (index == kList ? std::string("list") : "bookmark " + std::to_string(index)) + " " +
         code;
}

Edit Set(std::uint32_t index, std::uint32_t key, std::size_t size, bool roomy, bool exact) {
  const std::string v = Letters(size, 'n');
  return {"set " + KeyName(index, key) + " to " + std::to_string(size) +
              (roomy ? " bytes, roomy" : " bytes"),
          roomy, exact, [=](TMXFile* f) { return Put(f, index, key, v); },
          [=](Content& c) { c.items[{index, key}] = v; }};
}

Edit Remove(std::uint32_t index, std::uint32_t key) {
  return {"remove " + KeyName(index, key), false, true,
          [=](TMXFile* f) {
            return index == kList ? TMXDeleteBookmarkListMetadata(f, key)
                                  : TMXDeleteBookmarkMetadata(f, index, key);
          },
          [=](Content& c) { c.items.erase({index, key}); }};
}

std::vector<Edit> Edits() {
  std::vector<Edit> edits;
  for (bool roomy : {false, true}) {
    edits.push_back({roomy ? "add into free space" : "add, growing the tree", roomy, true,
                     [](TMXFile* f) {
                       std::uint32_t index = 0;
                       return TMXAddBookmark(f, 7000, &index);
                     },
                     [](Content& c) {
                       c.times.insert(c.times.begin() + 2, 7000);
                       Renumber(c, 2, 1);
                     }});
  }
  for (std::uint32_t index : {0u, 1u, 3u}) {
    edits.push_back({"delete bookmark " + std::to_string(index), false, index == 3,
                     [=](TMXFile* f) { return TMXDeleteBookmark(f, index); },
                     [=](Content& c) { DropBookmark(c, index); }});
  }
  // Each key, set where the container must grow and move the atoms behind.
  for (std::uint32_t key : kKeys) {
    edits.push_back(Set(kList, key, 30, false, false));
    edits.push_back(Set(0, key, 50, false, false));
  }
  edits.push_back(Set(1, kKeyNote, 200, false, false));  // bigger than the old one
  edits.push_back(Set(1, kKeyNote, 20, false, false));   // smaller: takes the old room
  edits.push_back(Set(2, kKeyCover, 4, true, true));     // fits in the free space
  edits.push_back(Set(2, kKeyAlias, 100, true, false));  // the last one grows in place
  edits.push_back(Set(kList, kKeyAlias, 40, true, false));
  edits.push_back(Remove(kList, kKeyTitle));
  edits.push_back(Remove(1, kKeyNote));
  // A save of the position that moved to 40 s while saves were failing.
  edits.push_back({"position save", false, true,
                   [](TMXFile* f) { return TMXSavePlaybackPosition(f, 1); },
                   [](Content& c) { c.seconds = 40; }});
  return edits;
}

enum class Fault { kWrite, kAllocation, kPower };

struct Outcome {
  std::int32_t rc = 0;
  bool reached = false;  // the fault was met
  ByteVec bytes;         // what storage holds afterwards
  std::vector<int> writes;
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
    if (e.name == "position save") {
      m.fail_write(1);
      EXPECT_EQ(TMXSeek(f, 40000), TMX_OK);
    }
    const int writes = m.writes();
    const std::uint64_t made = tmx::testing::AllocationCount();
    m.fail_write(fault == Fault::kWrite ? int(k) : 0);
    tmx::testing::FailAllocation(fault == Fault::kAllocation ? std::uint64_t(k) : 0);
    m.cut_power_after(fault == Fault::kPower ? k : -1);
    o.rc = e.run(f);
    tmx::testing::FailAllocation(0);
    m.fail_write(0);
    o.reached = fault == Fault::kWrite        ? m.writes() - writes >= k
                : fault == Fault::kAllocation ? tmx::testing::AllocationCount() - made >= std::uint64_t(k)
                                              : true;
    o.bytes = fault == Fault::kPower ? m.persisted() : m.data();
    o.writes = m.write_sizes();
    m.cut_power_after(-1);
    EXPECT_EQ(s.programme().data(), ProgrammeBytes(kPid));
  }
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
  return o;
}

TEST(CrashSafety, EveryEditReadsBackOldOrNewAfterEachFault) {
  const Prepared prepared[] = {Prepare(false), Prepare(true)};
  for (const Edit& e : Edits()) {
    const Prepared& p = prepared[e.roomy];
    Content after = p.model;
    e.apply(after);
    const auto check = [&](const Outcome& o) {
      const Content c = Read(o.bytes);
      EXPECT_TRUE(c == p.model || c == after ||
                  (!e.exact && (OneShort(c, p.model) || OneShort(c, after))))
          << ::testing::PrintToString(c);
    };
    SCOPED_TRACE(e.name);
    const Outcome clean = RunEdit(p, e, Fault::kPower, LONG_MAX);
    ASSERT_EQ(clean.rc, TMX_OK);
    ASSERT_EQ(Read(clean.bytes), after);
    // Power cuts at every word of every write; the 16-byte position record
    // only reads back whole.
    long at = 0;
    for (int n : clean.writes) {
      for (int cut = 0; cut < n; cut += e.name == "position save" ? n : 4) {
        SCOPED_TRACE("power cut at " + std::to_string(at + cut));
        const Outcome o = RunEdit(p, e, Fault::kPower, at + cut);
        EXPECT_EQ(o.rc, TMX_OK);
        check(o);
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
        check(o);
        if (!o.reached) break;
      }
    }
  }
}

// Opening a list, making one and reading its text allocate: each failed
// allocation gives -10 and nothing leaks.
TEST(CrashSafety, FailedAllocationsOfOpenInitAndText) {
  const Prepared p = Prepare(false);
  using Call = std::function<std::int32_t(Session&)>;
  const std::pair<Call, std::uint64_t> calls[] = {
      {[](Session& s) { return TMXOpenBookmarkList(s.f(), s.position().stream()); }, 4},
      {[](Session& s) { return TMXInitBookmarkList(s.f(), s.position().stream()); }, 5},
      {[](Session& s) {  // opening the list, then converting a text
         std::uint8_t out[256];
         const std::int32_t rc = TMXOpenBookmarkList(s.f(), s.position().stream());
         return rc ? rc : TMXGetBookmarkMetadata(s.f(), 1, kKeyNote, out, sizeof out);
       },
       5}};
  for (const auto& [call, allocations] : calls) {
    for (std::uint64_t k = 1;; ++k) {
      const std::int64_t live = tmx::testing::LiveAllocations();
      std::int32_t rc = 0;
      std::uint64_t made = 0;
      {
        Session s(ProgrammeBytes(kPid), p.bytes);
        made = tmx::testing::AllocationCount();
        tmx::testing::FailAllocation(k);
        rc = call(s);
        tmx::testing::FailAllocation(0);
        made = tmx::testing::AllocationCount() - made;
      }
      EXPECT_EQ(tmx::testing::LiveAllocations(), live);
      if (made < k) {
        EXPECT_EQ(rc, TMX_OK);
        EXPECT_EQ(k - 1, allocations);
        break;
      }
      EXPECT_EQ(rc, TMX_ERR_MEMORY) << k;
    }
  }
}

}  // namespace
}  // namespace tmx::test
