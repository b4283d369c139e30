// Test helpers for the older container: programmes made by the writer, byte
// patches for what it cannot make, and an open programme.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "api/file.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"
#include "util/status.h"
#include "writer/legacy_writer.h"

namespace tmx::legacy::test {

using ::tmx::test::ByteVec, ::tmx::test::Put32, ::tmx::test::V;
using writer::LegacyLayout, writer::LegacyProgramme;

constexpr std::uint32_t kFrame = 19;  // 0xC010: 19 bytes, 144 samples, 18 ms

// Frame `index`: its index in the first two bytes, then a pattern.
inline ByteVec Frame(std::uint32_t index, std::uint32_t size = kFrame) {
  ByteVec frame = {std::uint8_t(index >> 8), std::uint8_t(index)};
  for (std::uint32_t j = 2; j < size; ++j) frame.push_back(std::uint8_t(index * 13 + j * 7 + 1));
  return frame;
}

// `frames` frames, one chapter, the title "Bleak House" and author "Dickens";
// data segments of `segmentSizes`.
inline LegacyProgramme Programme(std::uint32_t frames,
                                 std::uint16_t codecId = writer::kLegacyCodecSpeech8,
                                 std::vector<std::uint32_t> segmentSizes = {}) {
  LegacyProgramme p;
  p.codecId = codecId;
  for (std::uint32_t i = 0; i < frames; ++i)
    p.frames.push_back(Frame(i, writer::LegacyFrameSize(codecId)));
  p.dictionary = {{"title", V("Bleak House")}, {"author", V("Dickens")}};
  p.segmentSizes = std::move(segmentSizes);
  return p;
}

inline ByteVec Write(const LegacyProgramme& programme, LegacyLayout* layout = nullptr) {
  ::tmx::test::MemoryStream out;
  EXPECT_EQ(writer::WriteLegacyProgramme(programme, out.stream(), layout), TMX_OK);
  return out.data();
}

// A programme opened with TMXOpenFile from memory.
class Book {
 public:
  explicit Book(const ByteVec& bytes, bool unknownSize = false) : stream_(bytes) {
    stream_.set_unknown_size(unknownSize);
    rc_ = TMXOpenFile(&file_, stream_.stream(), nullptr);
    if (rc_ != TMX_OK) file_ = nullptr;
  }
  ~Book() {
    if (file_) TMXCloseFile(file_);
  }

  TMXFile* f() const { return file_; }
  std::int32_t rc() const { return rc_; }
  // The next encoded frame; empty, with the code in *rc, on failure.
  ByteVec Read(std::int32_t* rc = nullptr, std::int32_t capacity = 256) {
    ByteVec out(std::size_t(capacity > 0 ? capacity : 1));
    std::uint32_t count = 0;
    const std::int32_t r = TMXGetEncodedAudio(file_, out.data(), capacity, &count);
    if (rc) *rc = r;
    out.resize(r == TMX_OK ? count : 0);
    return out;
  }
  // A metadata value as single-byte text, or "error <code>".
  std::string Text(std::uint32_t key) {
    char buffer[256] = {};
    const std::int32_t rc =
        TMXGetMetadata(file_, key, reinterpret_cast<std::uint8_t*>(buffer), sizeof buffer);
    return rc == TMX_OK ? std::string(buffer) : "error " + std::to_string(rc);
  }

 private:
  ::tmx::test::MemoryStream stream_;
  TMXFile* file_ = nullptr;
  std::int32_t rc_ = 0;
};

}  // namespace tmx::legacy::test
