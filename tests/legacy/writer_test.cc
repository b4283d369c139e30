// The older container's writer: refused input and the layout it writes.
#include <gtest/gtest.h>

#include "legacy/legacy_files.h"

namespace tmx::legacy::test {
namespace {

TEST(LegacyWriter, RefusesInvalidInput) {
  LegacyProgramme codec = Programme(4), frame = Programme(4), segments = Programme(4);
  codec.codecId = 0xC013;
  frame.frames[2].push_back(0);
  segments.segmentSizes = {19, 0};
  for (const LegacyProgramme* p : {&codec, &frame, &segments}) {
    ::tmx::test::MemoryStream out;
    EXPECT_EQ(writer::WriteLegacyProgramme(*p, out.stream()), TMX_ERR_ARGUMENT);
  }
  EXPECT_EQ(writer::WriteLegacyProgramme(Programme(4), nullptr), TMX_ERR_ARGUMENT);
  ::tmx::test::MemoryStream readOnly, failing;
  readOnly.ops().Write = nullptr;
  EXPECT_EQ(writer::WriteLegacyProgramme(Programme(4), readOnly.stream()), TMX_ERR_STREAM_OPS);
  failing.fail_write(1);
  EXPECT_EQ(writer::WriteLegacyProgramme(Programme(4), failing.stream()), TMX_ERR_WRITE);
}

TEST(LegacyWriter, CutsTheAudioIntoTheSegmentsAsked) {
  LegacyProgramme p = Programme(3);
  p.segmentSizes = {5, 0, 7};
  p.cover = {0xFF, 0xD8, 0xFF, 0xD9};
  LegacyLayout layout;
  const ByteVec bytes = Write(p, &layout);
  EXPECT_EQ(Be32At(bytes, 0), bytes.size());
  EXPECT_EQ(Be32At(bytes, 8), 6u);
  for (std::uint32_t type : {1u, 2u, 3u, 6u, 10u, 11u}) {
    const auto& r = layout.records[type];
    EXPECT_EQ(Be32At(bytes, r.entryPos), type);
    EXPECT_EQ(Be32At(bytes, r.entryPos + 4), r.offset);
    EXPECT_EQ(Be32At(bytes, r.entryPos + 8), r.size);
  }
  // 5, 0, then 7 until the last 3 of the 57 bytes.
  const std::vector<std::uint32_t> expected = {5, 0, 7, 7, 7, 7, 7, 7, 7, 3};
  EXPECT_EQ(layout.segmentCount, expected.size());
  ByteVec audio, frames;
  std::uint32_t header = layout.records[10].offset;
  for (std::uint32_t size : expected) {
    EXPECT_EQ(Be32At(bytes, header), size);
    EXPECT_EQ(Be32At(bytes, header + 4), header + 8);
    audio.insert(audio.end(), bytes.begin() + header + 8, bytes.begin() + header + 8 + size);
    header += 8 + size;
  }
  EXPECT_EQ(header, bytes.size());
  for (const ByteVec& f : p.frames) frames.insert(frames.end(), f.begin(), f.end());
  EXPECT_EQ(audio, frames);
}

}  // namespace
}  // namespace tmx::legacy::test
