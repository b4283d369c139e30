// File type detection from the first bytes of a stream.
#include <gtest/gtest.h>

#include "api/file.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx {
namespace {

using test::Be16, test::Be32, test::ByteVec, test::Concat, test::MemoryStream, test::V;

struct Detected {
  std::int32_t rc;
  std::uint32_t type;
};

Detected Detect(std::vector<std::uint8_t> bytes, bool unknownSize = false) {
  MemoryStream m(std::move(bytes));
  m.set_unknown_size(unknownSize);
  TMXFile file{};
  file.fileType = 99;
  std::int32_t rc = DetectFileType(&file, m.stream());
  EXPECT_EQ(file.stream, m.stream());
  return {rc, file.fileType};
}

ByteVec Ftyp(const char (&type)[5], const char (&brand)[5]) {
  return Concat({Be32(20), V(type), V(brand), Be32(0), V("isom")});
}

// An older-container header: size word, magic, count, a spare word, then the
// entries; the audio entry's data carries the codec id 24 bytes in.
ByteVec Legacy(std::uint16_t codecId, std::uint32_t entryKind = 6, std::int64_t sizeWord = -1) {
  ByteVec b = Concat({Be32(0), Be32(0x57907536), Be32(2), Be32(0), Be32(2), Be32(0),
                      Be32(0),                              // a record of another kind
                      Be32(entryKind), Be32(40), Be32(32),  // audio record at offset 40
                      ByteVec(24, 0), Be16(codecId), ByteVec(6, 0)});
  test::Put32(b, 0, sizeWord < 0 ? std::uint32_t(b.size()) : std::uint32_t(sizeWord));
  return b;
}

ByteVec Id3(std::uint8_t version) { return Concat({V("ID3"), {version}, ByteVec(20, 0)}); }

ByteVec Patched(ByteVec b, std::size_t at, std::uint32_t word) {
  test::Put32(b, at, word);
  return b;
}

ByteVec Cut(ByteVec b, std::size_t size) {
  b.resize(size);
  return b;
}

TEST(DetectFileType, TheFirstBytesChooseTheType) {
  const struct {
    const char* what;
    ByteVec bytes;
    std::int32_t rc;
    std::uint32_t type;
    bool unknownSize = false;
  } cases[] = {
      {"tmx", Ftyp("ftyp", "tmx "), TMX_OK, TMX_FILETYPE_TMX},
      {"m4b", Ftyp("ftyp", "m4b "), TMX_OK, TMX_FILETYPE_M4B},
      {"other brand", Ftyp("ftyp", "M4A "), TMX_OK, TMX_FILETYPE_MP4},
      {"capitals", Ftyp("FTYP", "tmx "), TMX_OK, TMX_FILETYPE_TMX},
      {"mixed capitals", Ftyp("fTyP", "M4B "), TMX_OK, TMX_FILETYPE_M4B},
      // Only letters are lowered: a brand that differs in another byte is plain MP4.
      {"tmx_", Ftyp("ftyp", "tmx_"), TMX_OK, TMX_FILETYPE_MP4},
      {"ID3 3", Id3(3), TMX_OK, TMX_FILETYPE_ID3},
      {"ID3 4", Id3(4), TMX_OK, TMX_FILETYPE_ID3},
      // Other versions fall through to the older-container test and fail there.
      {"ID3 2", Id3(2), TMX_ERR_UNSUPPORTED, 0},
      {"ID3 5", Id3(5), TMX_ERR_UNSUPPORTED, 0},
      {"C00D", Legacy(0xC00D), TMX_OK, TMX_FILETYPE_LEGACY_C00D},
      {"C00C", Legacy(0xC00C), TMX_OK, TMX_FILETYPE_LEGACY_C00C},
      {"C010", Legacy(0xC010), TMX_OK, TMX_FILETYPE_LEGACY_C010},
      {"other codec", Legacy(0x1234), TMX_OK, TMX_FILETYPE_LEGACY_OTHER},
      {"size word not the stream size", Legacy(0xC00C, 6, 1000), TMX_ERR_UNSUPPORTED, 0},
      {"wrong magic", Patched(Legacy(0xC00C), 4, 0x57907537), TMX_ERR_UNSUPPORTED, 0},
      {"no audio record", Legacy(0xC00C, 5), TMX_ERR_UNSUPPORTED, 0},
      {"count of zero", Patched(Legacy(0xC00C), 8, 0), TMX_ERR_UNSUPPORTED, 0},
      // A huge count stops at the end of the stream.
      {"huge count", Patched(Legacy(0xC00C, 5), 8, 0xFFFFFFFF), TMX_ERR_READ, 0},
      {"audio record past the end",
       Concat({Be32(32), Be32(0x57907536), Be32(1), Be32(0), Be32(6), Be32(0xFFFFFF00), Be32(4),
               Be32(0)}),
       TMX_ERR_READ, 0},
      {"unknown bytes", ByteVec(64, 0x5A), TMX_ERR_UNSUPPORTED, 0},
      // Short streams are refused before reading, unless the size is unknown: then the
      // header is read as far as it goes, and the older container's size word is not checked.
      {"15 bytes", Cut(Ftyp("ftyp", "tmx "), 15), TMX_ERR_UNSUPPORTED, 0},
      {"16 bytes", Cut(Ftyp("ftyp", "tmx "), 16), TMX_OK, TMX_FILETYPE_TMX},
      {"12 bytes, size unknown", Cut(Ftyp("ftyp", "m4b "), 12), TMX_OK, TMX_FILETYPE_M4B, true},
      {"4 bytes, size unknown", Cut(Ftyp("ftyp", "m4b "), 4), TMX_ERR_READ, 0, true},
      {"size word, size unknown", Legacy(0xC00C, 6, 1000), TMX_OK, TMX_FILETYPE_LEGACY_C00C, true},
  };
  for (const auto& c : cases) {
    const Detected d = Detect(c.bytes, c.unknownSize);
    EXPECT_EQ(d.rc, c.rc) << c.what;
    EXPECT_EQ(d.type, c.type) << c.what;
  }
}

}  // namespace
}  // namespace tmx
