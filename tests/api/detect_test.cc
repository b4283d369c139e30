// File type detection from the first bytes of a stream.
#include <gtest/gtest.h>

#include "api/file.h"
#include "support/memory_stream.h"

namespace tmx {
namespace {

using test::Bytes;
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
  return Bytes().u32(20).fourcc(type).fourcc(brand).u32(0).fourcc("isom").take();
}

// An older-container header: size word, magic, count, a spare word, then the
// entries; the audio entry's data carries the codec id 24 bytes in.
std::vector<std::uint8_t> Legacy(std::uint16_t codecId, std::uint32_t entryKind = 6,
                                 std::int64_t sizeWord = -1) {
  Bytes b;
  b.u32(0).u32(0x57907536).u32(2).u32(0);
  b.u32(2).u32(0).u32(0);            // a record of another kind
  b.u32(entryKind).u32(40).u32(32);  // audio record at offset 40
  b.zeros(40 - b.size());
  b.zeros(24).u16(codecId).zeros(6);
  b.patch32(0, sizeWord < 0 ? std::uint32_t(b.size()) : std::uint32_t(sizeWord));
  return b.take();
}

TEST(DetectFileType, BrandsChooseTheMp4Types) {
  EXPECT_EQ(Detect(Ftyp("ftyp", "tmx ")).type, std::uint32_t(TMX_FILETYPE_TMX));
  EXPECT_EQ(Detect(Ftyp("ftyp", "m4b ")).type, std::uint32_t(TMX_FILETYPE_M4B));
  EXPECT_EQ(Detect(Ftyp("ftyp", "M4A ")).type, std::uint32_t(TMX_FILETYPE_MP4));
  EXPECT_EQ(Detect(Ftyp("ftyp", "isom")).type, std::uint32_t(TMX_FILETYPE_MP4));
  EXPECT_EQ(Detect(Ftyp("ftyp", "tmx ")).rc, TMX_OK);
}

TEST(DetectFileType, CapitalsInTheFileAreLowered) {
  EXPECT_EQ(Detect(Ftyp("FTYP", "tmx ")).type, std::uint32_t(TMX_FILETYPE_TMX));
  EXPECT_EQ(Detect(Ftyp("fTyP", "M4B ")).type, std::uint32_t(TMX_FILETYPE_M4B));
  EXPECT_EQ(Detect(Ftyp("ftyp", "TMX ")).type, std::uint32_t(TMX_FILETYPE_TMX));
  // Only letters are lowered: a brand that differs in another byte is plain MP4.
  EXPECT_EQ(Detect(Ftyp("ftyp", "tmx_")).type, std::uint32_t(TMX_FILETYPE_MP4));
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
  for (std::uint8_t version : {3, 4}) {
    Bytes b;
    b.u8('I').u8('D').u8('3').u8(version).zeros(20);
    auto d = Detect(b.take());
    EXPECT_EQ(d.rc, TMX_OK);
    EXPECT_EQ(d.type, std::uint32_t(TMX_FILETYPE_ID3));
  }
  // Version 2 falls through to the older-container test and fails there.
  Bytes b;
  b.u8('I').u8('D').u8('3').u8(2).zeros(20);
  EXPECT_EQ(Detect(b.take()).rc, TMX_ERR_UNSUPPORTED);
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
  // The size word must match a known stream size ...
  EXPECT_EQ(Detect(Legacy(0xC00C, 6, 1000)).rc, TMX_ERR_UNSUPPORTED);
  // ... but is not checked when the size is unknown.
  EXPECT_EQ(Detect(Legacy(0xC00C, 6, 1000), true).type, std::uint32_t(TMX_FILETYPE_LEGACY_C00C));
  // Wrong magic.
  auto bytes = Legacy(0xC00C);
  bytes[7] ^= 1;
  EXPECT_EQ(Detect(bytes).rc, TMX_ERR_UNSUPPORTED);
  // No audio record among the entries.
  EXPECT_EQ(Detect(Legacy(0xC00C, 5)).rc, TMX_ERR_UNSUPPORTED);
  // A count of zero.
  bytes = Legacy(0xC00C);
  bytes[8] = bytes[9] = bytes[10] = bytes[11] = 0;
  EXPECT_EQ(Detect(bytes).rc, TMX_ERR_UNSUPPORTED);
}

TEST(DetectFileType, HugeEntryCountStopsAtTheEnd) {
  auto bytes = Legacy(0xC00C, 5);
  bytes[8] = bytes[9] = bytes[10] = bytes[11] = 0xFF;
  EXPECT_EQ(Detect(bytes).rc, TMX_ERR_READ);
}

TEST(DetectFileType, AudioRecordPastTheEndIsAReadError) {
  Bytes b;
  b.u32(0).u32(0x57907536).u32(1).u32(0).u32(6).u32(0xFFFFFF00).u32(4).zeros(4);
  b.patch32(0, std::uint32_t(b.size()));
  EXPECT_EQ(Detect(b.take()).rc, TMX_ERR_READ);
}

TEST(DetectFileType, ReadErrorsPassThrough) {
  MemoryStream m(Ftyp("ftyp", "tmx "));
  m.fail_read(2);  // the type word of the header
  TMXFile file{};
  EXPECT_EQ(DetectFileType(&file, m.stream()), TMX_ERR_READ);
}

TEST(DetectFileType, UnknownBytesAreRefused) {
  EXPECT_EQ(Detect(std::vector<std::uint8_t>(64, 0x5A)).rc, TMX_ERR_UNSUPPORTED);
}

}  // namespace
}  // namespace tmx
