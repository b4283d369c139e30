// Metadata of the older container: the dictionary, the cover record, the
// single locale and the original-title words.
#include <gtest/gtest.h>

#include "legacy/legacy_files.h"

namespace tmx::legacy::test {
namespace {

// The code and the size TMXGetMetadataInfo reports.
std::pair<std::int32_t, std::uint32_t> Info(TMXFile* f, std::uint32_t key) {
  std::uint32_t size = 77;
  const std::int32_t rc = TMXGetMetadataInfo(f, key, 0, &size);
  return {rc, size};
}

TEST(LegacyMetadata, DictionaryValuesAreSingleByteText) {
  Book b(Write(Programme(4)));
  EXPECT_EQ(b.Read(), Frame(0));
  EXPECT_EQ(b.Text(FourCC("@tit")), "Bleak House");
  EXPECT_EQ(b.Text(FourCC("@aut")), "Dickens");
  EXPECT_EQ(b.Read(), Frame(1));  // lookups leave the reader where it was

  for (auto [format, size] : {std::pair{0u, 13u}, std::pair{1u, 19u}, std::pair{3u, 30u}}) {
    TMXSetUnicodeFormat(b.f(), format);
    EXPECT_EQ(Info(b.f(), FourCC("@tit")), std::pair(TMX_OK, size)) << format;
  }
  // A name the dictionary lacks, and a key outside the table (the empty
  // name), are found empty.
  EXPECT_EQ(Info(b.f(), FourCC("@nar")), std::pair(TMX_OK, 0u));
  EXPECT_EQ(Info(b.f(), FourCC("zzzz")), std::pair(TMX_OK, 0u));

  std::uint32_t size = 5;
  EXPECT_EQ(TMXGetChapterMetadataInfo(b.f(), 0, FourCC("@tit"), 0, &size), TMX_ERR_INDEX);
  EXPECT_EQ(size, 0u);

  // The only locale is 0; an array without room is left alone.
  std::uint32_t locales[4] = {5, 5, 5, 5}, count = 4;
  EXPECT_EQ(TMXGetMetadataLocaleList(b.f(), locales, &count), TMX_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(locales[0], 0u);
  locales[0] = 5;
  count = 0;
  EXPECT_EQ(TMXGetMetadataLocaleList(b.f(), locales, &count), TMX_ERR_BUFFER);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(locales[0], 5u);
}

TEST(LegacyMetadata, NamesCompareByTheirFirst31Characters) {
  LegacyProgramme p = Programme(2);
  p.dictionary = {
      {"title" + std::string(30, 'x'), V("Longer name")},
      {std::string("title\0\0\0", 8), V("Padded")},
      // What follows the first 31 characters is not read.
      {"author" + std::string(25, '\0') + "zzzz", V("Cut")},
      // The walk steps over the whole of a long name.
      {std::string(200, 'n'), V("Skipped")},
      {"narrator", V("Reader")},
      {std::string("\0abc", 4), V("Unnamed")},
  };
  Book b(Write(p));
  EXPECT_EQ(b.Text(FourCC("@tit")), "Padded");
  EXPECT_EQ(b.Text(FourCC("@aut")), "Cut");
  EXPECT_EQ(b.Text(FourCC("@nar")), "Reader");
  EXPECT_EQ(b.Text(FourCC("zzzz")), "Unnamed");
}

TEST(LegacyMetadata, CoverPictureAndBrokenRecords) {
  LegacyProgramme p = Programme(2);
  for (int i = 0; i < 300; ++i) p.cover.push_back(std::uint8_t(i * 7));
  LegacyLayout l;
  const ByteVec good = Write(p, &l);
  {
    Book b(good);
    ByteVec buffer(300);
    EXPECT_EQ(TMXGetMetadata(b.f(), FourCC("@car"), buffer.data(), 299), TMX_ERR_BUFFER);
    EXPECT_EQ(TMXGetMetadata(b.f(), FourCC("@car"), buffer.data(), 300), TMX_OK);
    EXPECT_EQ(buffer, p.cover);
  }
  // Count, then "title" (9 + 5 + 11 bytes), then "author" (9 + 6 + 7).
  const std::uint32_t dictionary = l.records[2].offset, author = dictionary + 4 + 25;
  const std::uint32_t cover = l.records[11].offset, entry = l.records[11].entryPos;
  const std::int32_t kOk = TMX_OK, kEnd = TMX_ERR_END, kBad = TMX_ERR_INCONSISTENT,
                     kNone = TMX_ERR_NOT_FOUND;
  const struct {
    const char* what;
    std::uint32_t at, value;
    std::int32_t author, missing, cover;  // for "@aut" (second), "@nar" (absent), "@car"
  } cases[] = {
      // The leading byte shares its word with the name length's top bytes.
      {"nonzero leading byte", author, 0x01000000, kNone, kNone, kOk},
      {"value past the record", author + 5, 8, kNone, kNone, kOk},
      {"more entries than the record holds", dictionary, 3, kOk, kNone, kOk},
      {"no dictionary", l.records[2].entryPos, 9, kEnd, kEnd, kOk},
      {"dictionary past the file", l.records[2].entryPos + 8, l.fileSize, kBad, kBad, kOk},
      {"picture not behind the fields", cover + 4, cover + 9, kOk, kOk, kBad},
      {"picture one byte short of the record", cover, 299, kOk, kOk, kBad},
      {"record one byte short of the picture", entry + 8, 307, kOk, kOk, kBad},
      {"no cover", entry, 9, kOk, kOk, kEnd},
  };
  for (const auto& c : cases) {
    ByteVec bytes = good;
    Put32(bytes, c.at, c.value);
    Book b(bytes);
    EXPECT_EQ(Info(b.f(), FourCC("@aut")).first, c.author) << c.what;
    EXPECT_EQ(Info(b.f(), FourCC("@nar")), std::pair(c.missing, 0u)) << c.what;
    EXPECT_EQ(Info(b.f(), FourCC("@car")), std::pair(c.cover, c.cover ? 0u : 300u)) << c.what;
  }
}

TEST(LegacyMetadata, OriginalTitleComesFromTheHeaderRecord) {
  LegacyProgramme p = Programme(2);
  p.headerWords = {11, 22, 33, 44};
  for (std::uint16_t version : {1, 0}) {
    p.version = version;
    Book b(Write(p));
    std::vector<std::uint32_t> w(7, 9);
    EXPECT_EQ(TMXGetOriginalTitle(b.f(), &w[0], &w[1], &w[2], &w[3], &w[4], &w[5], &w[6]), TMX_OK);
    // Version 0 leaves the other six words untouched.
    const std::vector<std::uint32_t> expected =
        version ? std::vector<std::uint32_t>{1, 0, 0x57907536, 11, 22, 33, 44}
                : std::vector<std::uint32_t>{0, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(w, expected);
  }
}

}  // namespace
}  // namespace tmx::legacy::test
