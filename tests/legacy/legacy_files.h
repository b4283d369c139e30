// Test helpers for the older container: programmes made by the writer, byte
// patches for what it cannot make, and an open programme.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "api/file.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"
#include "util/status.h"
#include "writer/legacy_writer.h"

namespace tmx::legacy::test {

using ::tmx::test::Be32At;
using ::tmx::test::ByteVec;
using ::tmx::test::Put32;
using writer::LegacyLayout;
using writer::LegacyProgramme;

constexpr std::uint32_t kFrame = 19;  // 0xC010: 19 bytes, 144 samples, 18 ms

// Frame `index`: its index in the first two bytes, then a pattern.
ByteVec Frame(std::uint32_t index, std::uint32_t size = kFrame);
// `frames` frames, one chapter, the title "Bleak House" and author "Dickens".
LegacyProgramme Programme(std::uint32_t frames,
                          std::uint16_t codecId = writer::kLegacyCodecSpeech8);
ByteVec Write(const LegacyProgramme& programme, LegacyLayout* layout = nullptr);


// The handler's own open for a file of `fileType`, closed again on success:
// for the checks that type detection would make first.
std::int32_t OpenDirectly(const ByteVec& bytes, std::uint32_t fileType = TMX_FILETYPE_LEGACY_C010);

// A programme opened with TMXOpenFile from memory.
class Book {
 public:
  explicit Book(const ByteVec& bytes, bool unknownSize = false);
  ~Book();
  Book(const Book&) = delete;
  Book& operator=(const Book&) = delete;

  TMXFile* f() const { return file_; }
  std::int32_t rc() const { return rc_; }
  // The next encoded frame; empty, with the code in *rc, on failure.
  ByteVec Read(std::int32_t* rc = nullptr, std::int32_t capacity = 256);
  // A metadata value as single-byte text, or "error <code>".
  std::string Text(std::uint32_t key);

 private:
  std::unique_ptr<::tmx::test::MemoryStream> stream_;
  TMXFile* file_ = nullptr;
  std::int32_t rc_ = 0;
};

}  // namespace tmx::legacy::test
