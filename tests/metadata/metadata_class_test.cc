// CTesmoraMetadata: a programme's tags and properties in one call.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "support/mp4_builder.h"
#include "support/temp_dir.h"
#include "tmx_metadata.h"
#include "util/alloc.h"
#include "util/frame_time.h"
#include "util/status.h"

namespace tmx {
namespace {

using namespace tmx::test;

ByteVec Item(std::uint32_t type, std::uint32_t valueType, const ByteVec& value) {
  const ByteVec data = Atom("data", Concat({Be32(valueType), Be32(0), value}));
  return Concat({Be32(std::uint32_t(data.size() + 8)), Be32(type), data});
}
ByteVec Text(std::uint32_t type, const std::string& value) { return Item(type, 1, V(value)); }

const ByteVec kCover = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0x00, 0xFF, 0xD9};

// Every tag the class reads, in the encodings a programme may use; a bare one
// lacks "@sti", "@tnu" and the cover and has another title.
ByteVec Programme(bool full = true) {
  const std::u16string narrator = u"Na\u00EFve Narrator";
  ByteVec utf16(narrator.size() * 2);
  std::memcpy(utf16.data(), narrator.data(), utf16.size());
  ByteVec ilst = Concat({
      Text(0xA96E616D,
           full ? "Der Titel \xE2\x80\x94 Gr\u00FC\u00DFe" : "Bare"),  // em dash dropped
      Text(0xA9415254, "Author"),
      Text(FourCC("@cat"), "Category"),
      Text(FourCC("cprt"), "(c) 2024"),
      Text(0xA9646573, "Long description"),
      Item(0xA96E7274, 2, utf16),
      Text(FourCC("@pti"), "Parent"),
      Text(FourCC("prID"), "ID-\xC3\xA9"),
      Text(0xA9707562, "Provider"),
      Item(0xA9646179, 0, V("2024&#45;01")),
      Text(0xA9636D74, "Short description"),
      Text(FourCC("ausr"), "J\xC3\xB6rg"),
  });
  auto add = [&](const ByteVec& item) { ilst.insert(ilst.end(), item.begin(), item.end()); };
  if (full) {
    add(Text(FourCC("@sti"), "Short"));
    // Delivered as single-byte text into four bytes: "123" and a terminator.
    add(Item(FourCC("@tnu"), 0, V("1234")));
    add(Item(FourCC("covr"), 13, kCover));
  }
  ProgrammeSpec layout;
  layout.ilst = ilst;
  TrackSpec audio;
  audio.samples = MakeFrames(43);
  audio.samplesPerChunk = 8;
  layout.tracks.push_back(audio);
  return BuildProgramme(layout).bytes;
}

class MetadataClass : public ::testing::Test {
 protected:
  std::wstring Write(const std::string& name, const ByteVec& bytes) {
    return dir_.Write(name, std::string(bytes.begin(), bytes.end())).wstring();
  }
  TempDir dir_;
};

TEST_F(MetadataClass, CollectsTagsAndProperties) {
  const std::wstring path = Write("book.tmx", Programme());
  CTesmoraMetadata m;
  ASSERT_EQ(m.OpenTMXFile(path.c_str()), 1);
  EXPECT_EQ(m.title, L"Der Titel  Gr\u00FC\u00DFe");
  EXPECT_EQ(m.shortTitle, L"Short");
  EXPECT_EQ(m.author, L"Author");
  EXPECT_EQ(m.category, L"Category");
  EXPECT_EQ(m.copyright, L"(c) 2024");
  EXPECT_EQ(m.longDescription, L"Long description");
  EXPECT_EQ(m.narrator, L"Na\u00EFve Narrator");
  EXPECT_EQ(m.parentTitle, L"Parent");
  EXPECT_EQ(m.productId, "ID-\xE9");  // the single-byte text as it arrived
  EXPECT_EQ(m.provider, L"Provider");
  EXPECT_EQ(m.publicationDate, L"2024-;01");
  EXPECT_EQ(m.shortDescription, L"Short description");
  EXPECT_EQ(m.userAlias, L"J\u00F6rg");
  ASSERT_NE(m.cover, nullptr);
  EXPECT_EQ(ByteVec(m.cover, m.cover + m.coverSize), kCover);
  EXPECT_EQ(m.secondBuffer, nullptr);
  // "1234" arrives as "123" and a terminator, read as a little-endian word;
  // the properties are those of 43 frames of AAC at 22050 Hz, stereo.
  EXPECT_EQ(std::tuple(m.trackNumberLow, m.trackNumberHigh, m.secondBufferSize, m.duration,
                       m.sampleRate, m.avgBitrate, m.channelCount, m.fileType, m.originalTitle[0]),
            std::tuple(0x3231u, 0x0033u, 0u, FramesToMs(43, 22050, 1024), 22050u, 48000u, 2u,
                       std::uint32_t(TMX_FILETYPE_TMX), 0u));

  // Closing frees the buffers and keeps the values.
  EXPECT_EQ(m.CloseTMXFile(), 1);
  EXPECT_EQ(m.cover, nullptr);
  EXPECT_EQ(m.coverSize, 0u);
  EXPECT_EQ(m.title, L"Der Titel  Gr\u00FC\u00DFe");
  EXPECT_EQ(m.trackNumberLow, 0x3231u);
}

TEST_F(MetadataClass, MissingItemsAndUnopenableProgrammesLeaveTheMembers) {
  const std::wstring full = Write("full.tmx", Programme());
  const std::wstring bare = Write("bare.tmx", Programme(false));
  CTesmoraMetadata fresh;
  ASSERT_EQ(fresh.OpenTMXFile(bare.c_str()), 1);
  EXPECT_EQ(fresh.title, L"Bare");
  EXPECT_EQ(fresh.shortTitle, L"Bare");  // no "@sti": a copy of the title
  // Without "@tnu" the alias is never kept, although the programme has one.
  EXPECT_EQ(fresh.trackNumberLow, 0u);
  EXPECT_EQ(fresh.trackNumberHigh, 0u);
  EXPECT_TRUE(fresh.userAlias.empty());
  EXPECT_EQ(fresh.cover, nullptr);
  EXPECT_EQ(fresh.coverSize, 0u);

  // A second open overwrites only what it reads.
  CTesmoraMetadata m;
  ASSERT_EQ(m.OpenTMXFile(full.c_str()), 1);
  ASSERT_EQ(m.OpenTMXFile(bare.c_str()), 1);
  EXPECT_EQ(m.title, L"Bare");
  EXPECT_EQ(m.shortTitle, L"Short");  // not empty, so no copy of the new title
  EXPECT_EQ(m.userAlias, L"J\u00F6rg");
  EXPECT_EQ(m.trackNumberLow, 0x3231u);
  EXPECT_EQ(m.cover, nullptr);  // the second programme has none
  EXPECT_EQ(m.coverSize, 0u);

  // One that cannot be opened touches nothing.
  const std::wstring noise = Write("noise.tmx", ByteVec(200, 'x'));
  for (const std::wstring& path : {(dir_.path() / "missing.tmx").wstring(), noise}) {
    EXPECT_EQ(m.OpenTMXFile(path.c_str()), 0);
    EXPECT_EQ(m.title, L"Bare");
    EXPECT_EQ(m.productId, "ID-\xE9");
    EXPECT_EQ(m.duration, FramesToMs(43, 22050, 1024));
    EXPECT_EQ(m.trackNumberHigh, 0x0033u);
    EXPECT_EQ(m.cover, nullptr);
  }
}

TEST_F(MetadataClass, AllocationFailuresLeakNothing) {
  const std::wstring path = Write("book.tmx", Programme());
  for (std::uint64_t k = 1; k < 400; ++k) {
    const std::int64_t live = testing::LiveAllocations();
    const std::uint64_t made = testing::AllocationCount();
    std::int32_t rc = 0;
    {
      CTesmoraMetadata m;
      testing::FailAllocation(k);
      rc = m.OpenTMXFile(path.c_str());
      testing::FailAllocation(0);
      if (rc == 1 && m.cover == nullptr) {
        EXPECT_EQ(m.coverSize, kCover.size()) << k;
      }
    }
    EXPECT_EQ(testing::LiveAllocations(), live) << "allocation " << k;
    if (testing::AllocationCount() - made < k) {
      EXPECT_EQ(rc, 1);
      break;
    }
  }
}

}  // namespace
}  // namespace tmx
