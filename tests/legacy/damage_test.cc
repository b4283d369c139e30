// Damaged programmes: whatever bytes are changed, opening, reading,
// seeking and metadata lookups stay within the file and free what they take.
#include <gtest/gtest.h>

#include <random>

#include "legacy/legacy_files.h"
#include "util/alloc.h"

namespace tmx::legacy::test {
namespace {

void Exercise(TMXFile* f) {
  std::uint8_t buffer[512];
  std::uint32_t count = 0, value = 0;
  for (std::uint32_t i = 0; i < f->frameCount + 2; ++i) {
    if (TMXGetEncodedAudio(f, buffer, sizeof buffer, &count) != TMX_OK) break;
    ASSERT_LE(count, sizeof buffer);
  }
  for (std::uint32_t key : {FourCC("@tit"), FourCC("@aut"), FourCC("@car"), FourCC("zzzz")}) {
    TMXGetMetadataInfo(f, key, 0, &value);
    TMXGetMetadata(f, key, buffer, sizeof buffer);
  }
  std::uint32_t chapters = 0;
  TMXGetChapterCount(f, &chapters);
  for (std::uint32_t c = 0; c < chapters; ++c) {
    TMXSeekToChapter(f, c);
    TMXGetEncodedAudio(f, buffer, sizeof buffer, &count);
  }
  TMXSeek(f, 100);
  TMXFrameInfo info;
  TMXGetNextFrameInfo(f, &info);
  TMXSkipNextFrame(f);
}

TEST(LegacyDamage, ChangedBytesAreSurvived) {
  LegacyProgramme p = Programme(30);
  p.chapters = {{10, 2}, {15, 0}, {5, 1}};
  p.segmentSizes = {50, 7, 0, 100};
  p.cover = {0xFF, 0xD8, 1, 2, 3, 0xFF, 0xD9};
  LegacyLayout layout;
  const ByteVec good = Write(p, &layout);
  // Everything but the frames' own bytes: header, table and records.
  const std::uint32_t structure = layout.records[10].offset + 8;
  const std::int64_t live = tmx::testing::LiveAllocations();
  std::mt19937 random(20240601);
  int opened = 0;
  for (int round = 0; round < 3000; ++round) {
    ByteVec bytes = good;
    const int changes = 1 + int(random() % 4);
    for (int i = 0; i < changes; ++i) {
      const std::uint32_t at = random() % (i == 0 ? structure : std::uint32_t(bytes.size()));
      bytes[at] = std::uint8_t(random() % 3 == 0 ? 0xFF : random());
    }
    Book b(bytes, round % 2 == 0);
    if (b.rc() != TMX_OK) continue;
    ++opened;
    Exercise(b.f());
  }
  EXPECT_GT(opened, 1000);
  EXPECT_EQ(tmx::testing::LiveAllocations(), live);
}

}  // namespace
}  // namespace tmx::legacy::test
