// Metadata through the exports, on programmes with hand-built item lists.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "container/mp4/mp4_fixture.h"
#include "metadata/key_table.h"
#include "metadata/queries.h"
#include "util/alloc.h"
#include "util/status.h"

namespace tmx {
namespace {

using namespace tmx::test;

constexpr std::uint32_t kTitle = 0xA96E616D;  // item type "(c)nam"
constexpr std::uint32_t kEn = 0x656E0000, kDe = 0x64650000, kFr = 0x66720000;
constexpr std::uint8_t kGuard = 0xA5;

// A "data" atom: value type, locale word, value bytes.
ByteVec Data(std::uint32_t valueType, std::uint32_t locale, const ByteVec& value) {
  return Atom("data", Concat({Be32(valueType), Be32(locale), value}));
}
ByteVec Data(std::uint32_t valueType, std::uint32_t locale, const std::string& value) {
  return Data(valueType, locale, V(value));
}

// An item atom of any 32-bit type around its children.
ByteVec Item(std::uint32_t type, const std::vector<ByteVec>& children) {
  ByteVec item = Concat({Be32(0), Be32(type)});
  for (const ByteVec& c : children) item.insert(item.end(), c.begin(), c.end());
  Put32(item, 0, std::uint32_t(item.size()));
  return item;
}

// A short programme whose file-level item list holds `ilst`.
ByteVec Book(const ByteVec& ilst, std::uint32_t chapters = 0) {
  ProgrammeSpec layout;
  layout.ilst = ilst;
  layout.tracks.push_back(AudioTrack(24));
  if (chapters > 0) {
    std::vector<std::uint32_t> starts;
    for (std::uint32_t i = 0; i < chapters; ++i) starts.push_back(i * 4);
    layout.tracks[0].chap = {2};
    layout.tracks.push_back(TitleTrack(2, std::vector<std::string>(chapters, "C"), starts, 24));
  }
  return BuildProgramme(layout).bytes;
}

// TMXGetMetadata into a guarded buffer of `capacity` bytes.
Guarded Get(TMXFile* f, std::uint32_t key, std::uint32_t capacity = 64) {
  return ReadGuarded(
      capacity, [&](std::uint8_t* b, std::uint32_t n) { return TMXGetMetadata(f, key, b, n); });
}

// Single-byte or UTF-8 text up to its terminator (a missing one shows the
// guard bytes); "<rc>" on failure.
std::string Shown(const Guarded& g) {
  return g.rc == TMX_OK ? UpToZero(g.bytes) : '<' + std::to_string(g.rc) + '>';
}
std::string Text(TMXFile* f, std::uint32_t key, std::uint32_t capacity = 64) {
  return Shown(Get(f, key, capacity));
}

std::int64_t Needed(TMXFile* f, std::uint32_t key, std::uint32_t locale = 0) {
  std::uint32_t size = 0xDEAD;
  const std::int32_t rc = TMXGetMetadataInfo(f, key, locale, &size);
  if (rc != TMX_OK) {
    EXPECT_EQ(size, 0u) << "a failed Info call leaves the size set";
    return rc;
  }
  return size;
}

TEST(MetadataQueries, ArgumentChecksAndRefusalsWithoutAHandler) {
  std::uint8_t buf[4];
  std::uint32_t v = 0, locales[2];
  EXPECT_EQ(TMXSetMetadataLocale(nullptr, 1), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetMetadataLocaleList(nullptr, nullptr, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetMetadataInfo(nullptr, 0, 0, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetChapterMetadataInfo(nullptr, 0, 0, 0, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetMetadata(nullptr, 0, nullptr, 0), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetChapterMetadata(nullptr, 0, 0, nullptr, 0), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetUseralias(nullptr, nullptr, nullptr), TMX_ERR_HANDLE);

  OpenProgramme p(Book(Item(kTitle, {Data(1, 0, "T")}), 2));
  ASSERT_EQ(p.rc(), TMX_OK);
  TMXFile* f = p.file();
  EXPECT_EQ(TMXGetMetadataLocaleList(f, nullptr, &v), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetMetadataLocaleList(f, &v, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetMetadataInfo(f, FourCC("@tit"), 0, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetChapterMetadataInfo(f, 5, FourCC("@tit"), 0, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetMetadata(f, FourCC("@tit"), nullptr, 4), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetChapterMetadata(f, 5, FourCC("@tit"), nullptr, 4), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetUseralias(f, nullptr, &v), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetUseralias(f, buf, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetUseralias(f, buf, &(v = 4)), TMX_ERR_NOT_FOUND);  // no "ausr" item

  const FormatHandler* real = f->formatHandler;
  f->formatHandler = &kNullHandler;
  v = 9;
  EXPECT_EQ(TMXGetMetadataInfo(f, FourCC("@tit"), 0, &v), TMX_ERR_UNSUPPORTED);
  EXPECT_EQ(v, 0u);
  EXPECT_EQ(TMXGetChapterMetadata(f, 0, FourCC("@tit"), buf, 4), TMX_ERR_UNSUPPORTED);
  v = 2;
  EXPECT_EQ(TMXGetMetadataLocaleList(f, locales, &v), TMX_ERR_UNSUPPORTED);
  f->formatHandler = real;
}

// The table's keys are all read through the class test; here the lookups around it.
TEST(MetadataQueries, KeysFindItemTypesComparedWithoutFoldingCapitals) {
  OpenProgramme p(Book(Concat(
      {Item(kTitle, {Data(1, kEn, "English only")}), Item(FourCC("trkn"), {Data(0, 0, "seven")}),
       Item(FourCC("COVR"), {Data(13, 0, "jpeg")}), Item(FourCC("@CAT"), {Data(1, 0, "Fiction")}),
       Item(kTitle, {Data(1, 0, "Title")})})));
  ASSERT_EQ(p.rc(), TMX_OK);
  EXPECT_EQ(Text(p.file(), FourCC("@tit")), "Title");
  EXPECT_EQ(Text(p.file(), kTitle), "Title");  // the item type itself, though no key of the table
  EXPECT_EQ(Text(p.file(), FourCC("trkn")), "seven");
  EXPECT_EQ(Text(p.file(), FourCC("@CAT")), "Fiction");  // as a key outside the table
  EXPECT_EQ(Needed(p.file(), FourCC("@car")), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(Needed(p.file(), FourCC("@cat")), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(Text(p.file(), FourCC("@zzz")), "<-25>");
  // The first title item has no default variant: the later one served above.
  TMXSetMetadataLocale(p.file(), kEn);
  EXPECT_EQ(Text(p.file(), FourCC("@tit")), "English only");
  // "data" is an atom type, and those are matched in capitals too.
  OpenProgramme q(Book(Item(kTitle, {Atom("DATA", Concat({Be32(1), Be32(0), V("Caps")}))})));
  EXPECT_EQ(Text(q.file(), FourCC("@tit")), "Caps");
}

TEST(MetadataQueries, NeededSizeByKindAndFormat) {
  const ByteVec value(11, 'x');  // odd, so that the halvings truncate
  OpenProgramme p(Book(Concat(
      {Item(FourCC("k000"), {Data(0, 0, value)}), Item(FourCC("k001"), {Data(1, 0, value)}),
       Item(FourCC("k002"), {Data(2, 0, value)}), Item(FourCC("k013"), {Data(13, 0, value)}),
       Item(FourCC("k021"), {Data(21, 0, value)}), Item(FourCC("kFF1"), {Data(0xFFFF01, 0, value)}),
       Item(FourCC("none"), {Data(1, kEn, "")})})));
  ASSERT_EQ(p.rc(), TMX_OK);
  struct Row {
    char item[5];
    std::int64_t byFormat[5];  // formats 0, 1, 2, 3, 7
  };
  const Row rows[] = {
      {"k000", {13, 19, 30, 30, 13}},  // single-byte text: n + 2, n + 8, 2n + 8
      {"k001", {13, 13, 24, 24, 13}},  // UTF-8: n + 2, 2n + 2
      {"k002", {7, 13, 13, 13, 13}},   // UTF-16 (kind 3): n/2 + 2, (n + 12)/2 + 2, n + 2
      {"k013", {11, 11, 11, 11, 11}},  // JPEG (kind 16): unchanged
      {"k021", {13, 19, 30, 30, 13}},  // other value types are single-byte text
      {"kFF1", {13, 13, 24, 24, 13}},  // the value type is the last byte of the flags
      {"none", {0, 0, 0, 0, 0}},       // an empty value stays 0
  };
  const std::uint32_t formats[] = {0, 1, 2, 3, 7};
  for (const Row& r : rows) {
    for (int i = 0; i < 5; ++i) {
      ASSERT_EQ(TMXSetUnicodeFormat(p.file(), formats[i]), TMX_OK);
      EXPECT_EQ(Needed(p.file(), FourCC(r.item), r.item[0] == 'n' ? kEn : 0), r.byFormat[i])
          << r.item << " in format " << formats[i];
    }
  }
  // Kind 2 does not come from this container's value types; it is sized as 16-bit text.
  const std::uint32_t kind2[] = {7, 13, 13, 13, 13};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(NeededSize(11, 2, formats[i]), kind2[i]) << formats[i];
  EXPECT_EQ(NeededSize(0, 0, 1), 0u);
  EXPECT_EQ(NeededSize(11, 4, 1), 11u);
}

TEST(MetadataQueries, TheLocaleChoosesTheVariant) {
  // Each case: the item's "data" variants, the wanted locale, and what comes back.
  struct Case {
    const char* name;
    std::vector<ByteVec> variants;
    std::uint32_t wanted;
    std::string text;  // "<-25>" when there is none
  };
  const Case cases[] = {
      {"exact", {Data(1, 0, "Def"), Data(1, kEn, "En"), Data(1, kDe, "De")}, kDe, "De"},
      {"fallback", {Data(1, 0, "Default"), Data(1, kEn, "English")}, kFr, "Default"},
      {"last default wins", {Data(1, 0, "a"), Data(1, kEn, "E"), Data(1, 0, "b")}, kFr, "b"},
      {"locale 0 is an exact match", {Data(1, 0, "first"), Data(1, 0, "last")}, 0, "first"},
      // An exact match ends the walk; an empty one gives way only to a default seen before it.
      {"empty exact after default", {Data(1, 0, "Default"), Data(1, kEn, "")}, kEn, "Default"},
      {"empty exact before default", {Data(1, kEn, ""), Data(1, 0, "Default")}, kEn, ""},
      {"empty exact alone", {Data(1, kEn, "")}, kEn, ""},
      {"neither", {Data(1, kEn, "English"), Data(1, kDe, "Deutsch")}, kFr, "<-25>"},
      {"other children skipped", {Atom("name", V("xx")), Data(1, kEn, "E")}, kEn, "E"},
      {"no variants", {Atom("mean", V("yy"))}, 0, "<-25>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    OpenProgramme p(Book(Item(kTitle, c.variants)));
    ASSERT_EQ(p.rc(), TMX_OK);
    // The stored locale serves TMXGetMetadata, the argument TMXGetMetadataInfo.
    ASSERT_EQ(TMXSetMetadataLocale(p.file(), c.wanted), TMX_OK);
    EXPECT_EQ(Text(p.file(), FourCC("@tit")), c.text);
    const std::int64_t needed = Needed(p.file(), FourCC("@tit"), c.wanted);
    const std::int64_t size = c.text.empty() ? 0 : std::int64_t(c.text.size() + 2);
    EXPECT_EQ(needed, c.text == "<-25>" ? TMX_ERR_NOT_FOUND : size);
    // The two settings are independent: Info ignores the stored locale.
    ASSERT_EQ(TMXSetMetadataLocale(p.file(), 0x12345678), TMX_OK);
    EXPECT_EQ(Needed(p.file(), FourCC("@tit"), c.wanted), needed);
  }
}

// Raw keys need the whole value; TMXGetUseralias converts the raw "@ual".
TEST(MetadataQueries, RawKeysAndTheUserAlias) {
  const ByteVec jpeg = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 0x4A, 0x46};
  OpenProgramme p(Book(
      Concat({Item(FourCC("covr"), {Data(13, 0, jpeg)}),
              Item(FourCC("ausr"), {Data(1, 0, "J\xC3\xB6rg"), Data(1, kEn, "Long English")})})));
  ASSERT_EQ(p.rc(), TMX_OK);
  EXPECT_EQ(Needed(p.file(), kCoverKey), 8);
  EXPECT_EQ(Get(p.file(), kCoverKey, 7).rc, TMX_ERR_BUFFER);
  const Guarded larger = Get(p.file(), kCoverKey, 12);  // no terminator follows the value
  ASSERT_EQ(larger.rc, TMX_OK);
  EXPECT_EQ(larger.bytes, Concat({jpeg, ByteVec(4, kGuard)}));
  // "@ual" is raw at file level too.
  EXPECT_EQ(Get(p.file(), kUserAliasKey, 4).rc, TMX_ERR_BUFFER);
  EXPECT_EQ(Get(p.file(), kUserAliasKey, 5).bytes, V("J\xC3\xB6rg"));
  // Raw copies ignore the text format and fill a buffer of the exact size.
  TMXSetUnicodeFormat(p.file(), 3);
  const Guarded exact = Get(p.file(), kCoverKey, 8);
  EXPECT_EQ(exact.rc, TMX_OK);
  EXPECT_EQ(exact.bytes, jpeg);

  auto alias = [&](std::uint32_t capacity) {
    return ReadGuarded(capacity, [&](std::uint8_t* b, std::uint32_t n) {
      std::uint32_t size = n;
      const std::int32_t rc = TMXGetUseralias(p.file(), b, &size);
      EXPECT_EQ(size, n) << "the size is only read";
      return rc;
    });
  };
  const Guarded wide = alias(16);
  ASSERT_EQ(wide.rc, TMX_OK);
  EXPECT_EQ(Utf16At(wide.bytes), u"J\u00F6rg");
  TMXSetUnicodeFormat(p.file(), 1);
  EXPECT_EQ(Shown(alias(32)), "J\xC3\xB6rg");
  TMXSetUnicodeFormat(p.file(), 0);
  EXPECT_EQ(Shown(alias(32)), "J\xF6rg");
  EXPECT_EQ(Shown(alias(3)), "J\xF6");
  // The size comes from the default variant, the value from the stored
  // locale: a longer variant no longer fits the work buffer.
  TMXSetMetadataLocale(p.file(), kEn);
  EXPECT_EQ(alias(32).rc, TMX_ERR_BUFFER);
}

TEST(MetadataQueries, LocaleListsInOrderOfFirstAppearance) {
  OpenProgramme p(Book(Concat(
      {Item(kTitle, {Data(1, kEn, "a"), Atom("name", V("n")), Data(1, 0, "b"), Data(1, kEn, "c")}),
       Item(FourCC("cprt"), {Data(1, kDe, "d"), Data(1, 0, "e")}),
       Item(FourCC("covr"), {Data(13, kFr, "f")})})));
  ASSERT_EQ(p.rc(), TMX_OK);
  std::uint32_t locales[6] = {7, 7, 7, 7, 7, 7};
  std::uint32_t count = 6;
  ASSERT_EQ(TMXGetMetadataLocaleList(p.file(), locales, &count), TMX_OK);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(std::vector<std::uint32_t>(locales, locales + 6),
            (std::vector<std::uint32_t>{kEn, 0, kDe, kFr, 7, 7}));
  // Too small: the count needed and nothing copied.
  std::uint32_t few[3] = {7, 7, 7};
  count = 3;
  EXPECT_EQ(TMXGetMetadataLocaleList(p.file(), few, &count), TMX_ERR_BUFFER);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(std::vector<std::uint32_t>(few, few + 3), (std::vector<std::uint32_t>{7, 7, 7}));
  count = 4;
  EXPECT_EQ(TMXGetMetadataLocaleList(p.file(), locales, &count), TMX_OK);

  // More locales than the first block of 16 holds.
  ByteVec many;
  for (std::uint32_t i = 0; i < 40; ++i) {
    const ByteVec item = Item(FourCC("mny0") + i % 3, {Data(1, 1000 + i, "v"), Data(1, 1000, "w")});
    many.insert(many.end(), item.begin(), item.end());
  }
  OpenProgramme q(Book(many));
  std::vector<std::uint32_t> list(64, 0);
  count = 64;
  ASSERT_EQ(TMXGetMetadataLocaleList(q.file(), list.data(), &count), TMX_OK);
  ASSERT_EQ(count, 40u);
  for (std::uint32_t i = 0; i < 40; ++i) EXPECT_EQ(list[i], 1000 + i);
  testing::FailAllocation(2);  // the growth past the first block of 16
  EXPECT_EQ(TMXGetMetadataLocaleList(q.file(), list.data(), &count), TMX_ERR_MEMORY);
  testing::FailAllocation(0);

  // Without an item list.
  OpenProgramme r(Book({}));
  count = 4;
  EXPECT_EQ(TMXGetMetadataLocaleList(r.file(), locales, &count), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(Needed(r.file(), FourCC("@tit")), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(Text(r.file(), FourCC("@tit")), "<-7>");
  // An empty list holds no items and no locales.
  OpenProgramme e(Book(Atom("free", {})));
  count = 0;
  EXPECT_EQ(TMXGetMetadataLocaleList(e.file(), locales, &count), TMX_OK);
  EXPECT_EQ(count, 0u);
}

TEST(MetadataQueries, ChapterListsFollowOneAnotherFromTheirPosition) {
  // Per-chapter lists behind the media data, at a place the test sets.
  const ByteVec book = Book({}, 3);
  const ByteVec lists = Concat({
      Atom("ilst", Item(kTitle, {Data(1, 0, "First")})),
      Atom("free", V("pad")),
      Atom("ilst", Concat({Item(FourCC("covr"), {Data(13, 0, "JPG")}),
                           Item(FourCC("ausr"), {Data(1, 0, "\xC3\xA9")})})),
      Atom("ilst", Item(kTitle, {Data(1, kEn, "Third")})),
  });
  OpenProgramme p(Concat({book, lists}));
  ASSERT_EQ(p.rc(), TMX_OK);
  std::uint32_t size = 9;
  std::uint8_t buffer[8];
  // Without a known place there is no chapter metadata; the index is checked first.
  EXPECT_EQ(TMXGetChapterMetadataInfo(p.file(), 2, FourCC("@tit"), 0, &size), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(TMXGetChapterMetadata(p.file(), 0, FourCC("@tit"), buffer, 8), TMX_ERR_NOT_FOUND);
  size = 9;
  EXPECT_EQ(TMXGetChapterMetadataInfo(p.file(), 3, FourCC("@tit"), 0, &size), TMX_ERR_INDEX);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(TMXGetChapterMetadata(p.file(), 3, FourCC("@tit"), buffer, 8), TMX_ERR_INDEX);
  p.state().chapterMetadataPos = std::uint32_t(book.size());
  auto chapterText = [&](std::uint32_t chapter, std::uint32_t key, std::uint32_t capacity = 16) {
    return Shown(ReadGuarded(capacity, [&](std::uint8_t* b, std::uint32_t n) {
      return TMXGetChapterMetadata(p.file(), chapter, key, b, n);
    }));
  };
  EXPECT_EQ(chapterText(0, FourCC("@tit")), "First");
  EXPECT_EQ(chapterText(1, FourCC("@tit")), "<-25>");
  EXPECT_EQ(chapterText(1, kCoverKey, 2), "<-19>");  // "@car" stays raw
  ByteVec cover(3);
  ASSERT_EQ(TMXGetChapterMetadata(p.file(), 1, kCoverKey, cover.data(), 3), TMX_OK);
  EXPECT_EQ(cover, V("JPG"));
  EXPECT_EQ(chapterText(1, kUserAliasKey, 2), "\xE9");  // "@ual" is text here, cut to fit
  EXPECT_EQ(chapterText(2, FourCC("@tit")), "<-25>");
  ASSERT_EQ(TMXGetChapterMetadataInfo(p.file(), 2, FourCC("@tit"), kEn, &size), TMX_OK);
  EXPECT_EQ(size, 7u);
  TMXSetMetadataLocale(p.file(), kEn);
  EXPECT_EQ(chapterText(2, FourCC("@tit")), "Third");

  // Fewer lists than chapters: the walk reaches the end of the file.
  OpenProgramme q(Concat({book, Atom("ilst", {})}));
  q.state().chapterMetadataPos = std::uint32_t(book.size());
  EXPECT_EQ(TMXGetChapterMetadataInfo(q.file(), 0, FourCC("@tit"), 0, &size), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(q.state().chapterListPos, nullptr);
}

TEST(MetadataQueries, DamagedListsFailWithoutReadingOutside) {
  const ByteVec good = Item(FourCC("cprt"), {Data(1, 0, "(c)")});
  struct Case {
    const char* name;
    ByteVec ilst;
    std::int32_t title;    // result for "@tit", found after the damage
    std::int32_t locales;  // result of the locale list
  };
  const Case cases[] = {
      {"short data atom", Concat({Item(kTitle, {Atom("data", Be32(1))}), good}),
       TMX_ERR_INCONSISTENT, TMX_ERR_INCONSISTENT},
      {"child of size 0", Concat({Item(kTitle, {Be32(0), V("data"), ByteVec(16, 0)}), good}),
       TMX_ERR_INCONSISTENT, TMX_ERR_INCONSISTENT},
      {"item past the list", Concat({good, Be32(400), Be32(kTitle), Data(1, 0, "T")}),
       TMX_ERR_INCONSISTENT, TMX_ERR_INCONSISTENT},
      {"data past its item",
       Concat({good, Be32(24), Be32(kTitle), Be32(40), V("data"), Be32(1), Be32(0)}),
       TMX_ERR_INCONSISTENT, TMX_ERR_INCONSISTENT},
      // Fewer than 8 bytes left are no atom; what comes before still counts.
      {"trailing bytes", Concat({good, Item(kTitle, {Data(1, 0, "T")}), ByteVec{0, 0, 0, 9}}),
       TMX_OK, TMX_OK},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    OpenProgramme p(Book(c.ilst));
    ASSERT_EQ(p.rc(), TMX_OK);
    EXPECT_EQ(Text(p.file(), FourCC("@tit")),
              c.title == TMX_OK ? "T" : '<' + std::to_string(c.title) + '>');
    std::uint32_t locales[4], count = 4;
    EXPECT_EQ(TMXGetMetadataLocaleList(p.file(), locales, &count), c.locales);
  }
}

}  // namespace
}  // namespace tmx
