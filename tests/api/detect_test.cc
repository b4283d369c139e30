// File type detection from the first bytes of a stream.
#include <gtest/gtest.h>

#include "api/file.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx {
namespace {

using test::Be16, test::Be32, test::ByteVec, test::Concat, test::V;
using test::MemoryStream;

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

std::vector<std::uint8_t> Ftyp(const char (&type)[5], const char (&brand)[5]) {
  return Concat({Be32(20), V(type), V(brand), Be32(0), V("isom")});
}

// An older-container header: size word, magic, count, a spare word, then the
// entries; the audio entry's data carries the codec id 24 bytes in.
std::vector<std::uint8_t> Legacy(std::uint16_t codecId, std::uint32_t entryKind = 6,
                                 std::int64_t sizeWord = -1) {
  ByteVec b = Concat({Be32(0), Be32(0x57907536), Be32(2), Be32(0),
                      Be32(2), Be32(0), Be32(0),             // a record of another kind
                      Be32(entryKind), Be32(40), Be32(32),   // audio record at offset 40
                      ByteVec(24, 0), Be16(codecId), ByteVec(6, 0)});
  test::Put32(b, 0, sizeWord < 0 ? std::uint32_t(b.size()) : std::uint32_t(sizeWord));
  return b;
}

TEST(DetectFileType, BrandsAndCapitalsChooseTheMp4Types) {
  const struct {
    const char type[5], brand[5];
    std::uint32_t expected;
  } cases[] = {
      {"ftyp", "tmx ", TMX_FILETYPE_TMX},
      {"ftyp", "m4b ", TMX_FILETYPE_M4B},
      {"ftyp", "M4A ", TMX_FILETYPE_MP4},
      {"FTYP", "tmx ", TMX_FILETYPE_TMX},
      {"fTyP", "M4B ", TMX_FILETYPE_M4B},
      // Only letters are lowered: a brand that differs in another byte is plain MP4.
      {"ftyp", "tmx_", TMX_FILETYPE_MP4},
  };
  for (const auto& c : cases) {
    const Detected d = Detect(Ftyp(c.type, c.brand));
    EXPECT_EQ(d.rc, TMX_OK) << c.type << c.brand;
    EXPECT_EQ(d.type, c.expected) << c.type << c.brand;
  }
}

TEST(DetectFileType, ShortStreamsAreRefusedBeforeReading) {
  auto bytes = Ftyp("ftyp", "tmx ");
  bytes.resize(15);
  EXPECT_EQ(Detect(bytes).rc, TMX_ERR_UNSUPPORTED);
  bytes.resize(16);
  EXPECT_EQ(Detect(bytes).rc, TMX_OK);
  // With the size unknown the check is skipped and the brand is still read.
  auto twelve = Ftyp("ftyp", "m4b ");
  twelve.resize(12);
  EXPECT_EQ(Detect(twelve, true).type, std::uint32_t(TMX_FILETYPE_M4B));
  // ... and a stream that ends inside the header gives the read error.
  twelve.resize(4);
  EXPECT_EQ(Detect(twelve, true).rc, TMX_ERR_READ);
}

TEST(DetectFileType, Id3TagsOfVersion3And4) {
  // Version 2 (and 5) fall through to the older-container test and fail there.
  for (std::uint8_t version : {2, 3, 4, 5}) {
    const Detected d = Detect(Concat({V("ID3"), {version}, ByteVec(20, 0)}));
    const bool id3 = version == 3 || version == 4;
    EXPECT_EQ(d.rc, id3 ? TMX_OK : TMX_ERR_UNSUPPORTED) << int(version);
    EXPECT_EQ(d.type, id3 ? std::uint32_t(TMX_FILETYPE_ID3) : 0u) << int(version);
  }
}

TEST(DetectFileType, OlderContainerCodecIds) {
  EXPECT_EQ(Detect(Legacy(0xC00D)).type, std::uint32_t(TMX_FILETYPE_LEGACY_C00D));
  EXPECT_EQ(Detect(Legacy(0xC00C)).type, std::uint32_t(TMX_FILETYPE_LEGACY_C00C));
  EXPECT_EQ(Detect(Legacy(0xC010)).type, std::uint32_t(TMX_FILETYPE_LEGACY_C010));
  auto other = Detect(Legacy(0x1234));
  EXPECT_EQ(other.rc, TMX_OK);
  EXPECT_EQ(other.type, std::uint32_t(TMX_FILETYPE_LEGACY_OTHER));
}

TEST(DetectFileType, OlderContainerChecks) {
  auto wrongMagic = Legacy(0xC00C);
  wrongMagic[7] ^= 1;
  auto noEntries = Legacy(0xC00C);
  noEntries[8] = noEntries[9] = noEntries[10] = noEntries[11] = 0;
  // A huge count stops at the end of the stream.
  auto hugeCount = Legacy(0xC00C, 5);
  hugeCount[8] = hugeCount[9] = hugeCount[10] = hugeCount[11] = 0xFF;
  const auto pastTheEnd =
      Concat({Be32(32), Be32(0x57907536), Be32(1), Be32(0), Be32(6), Be32(0xFFFFFF00), Be32(4), Be32(0)});
  const struct {
    const char* what;
    std::vector<std::uint8_t> bytes;
    std::int32_t rc;
  } cases[] = {
      {"size word not the stream size", Legacy(0xC00C, 6, 1000), TMX_ERR_UNSUPPORTED},
      {"wrong magic", wrongMagic, TMX_ERR_UNSUPPORTED},
      {"no audio record", Legacy(0xC00C, 5), TMX_ERR_UNSUPPORTED},
      {"count of zero", noEntries, TMX_ERR_UNSUPPORTED},
      {"huge count", hugeCount, TMX_ERR_READ},
      {"audio record past the end", pastTheEnd, TMX_ERR_READ},
      {"unknown bytes", std::vector<std::uint8_t>(64, 0x5A), TMX_ERR_UNSUPPORTED},
  };
  for (const auto& c : cases) EXPECT_EQ(Detect(c.bytes).rc, c.rc) << c.what;
  // The size word is not checked when the size is unknown.
  EXPECT_EQ(Detect(Legacy(0xC00C, 6, 1000), true).type, std::uint32_t(TMX_FILETYPE_LEGACY_C00C));
}

TEST(DetectFileType, ReadErrorsPassThrough) {
  MemoryStream m(Ftyp("ftyp", "tmx "));
  m.fail_read(2);  // the type word of the header
  TMXFile file{};
  EXPECT_EQ(DetectFileType(&file, m.stream()), TMX_ERR_READ);
}

}  // namespace
}  // namespace tmx
