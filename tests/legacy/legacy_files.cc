#include "legacy/legacy_files.h"

#include <gtest/gtest.h>

#include "codec/codec.h"
#include "container/legacy/handler.h"

namespace tmx::legacy::test {

ByteVec Frame(std::uint32_t index, std::uint32_t size) {
  ByteVec frame(size);
  for (std::uint32_t j = 0; j < size; ++j) frame[j] = std::uint8_t(index * 13 + j * 7 + 1);
  frame[0] = std::uint8_t(index >> 8);
  frame[1] = std::uint8_t(index);
  return frame;
}

LegacyProgramme Programme(std::uint32_t frames, std::uint16_t codecId) {
  LegacyProgramme p;
  p.codecId = codecId;
  for (std::uint32_t i = 0; i < frames; ++i)
    p.frames.push_back(Frame(i, writer::LegacyFrameSize(codecId)));
  const std::string title = "Bleak House", author = "Dickens";
  p.dictionary = {{"title", ByteVec(title.begin(), title.end())},
                  {"author", ByteVec(author.begin(), author.end())}};
  return p;
}

ByteVec Write(const LegacyProgramme& programme, LegacyLayout* layout) {
  ::tmx::test::MemoryStream out;
  EXPECT_EQ(writer::WriteLegacyProgramme(programme, out.stream(), layout), TMX_OK);
  return out.data();
}


std::int32_t OpenDirectly(const ByteVec& bytes, std::uint32_t fileType) {
  ::tmx::test::MemoryStream stream(bytes);
  Container file{};
  file.stream = stream.stream();
  file.fileType = fileType;
  const std::int32_t rc = kHandler.OpenContainer(&file, stream.stream());
  if (rc == TMX_OK) kHandler.CloseContainer(&file);
  EXPECT_EQ(file.state, nullptr);
  EXPECT_EQ(file.info.chapterStartFrames, nullptr);
  return rc;
}

Book::Book(const ByteVec& bytes, bool unknownSize)
    : stream_(std::make_unique<::tmx::test::MemoryStream>(bytes)) {
  stream_->set_unknown_size(unknownSize);
  rc_ = TMXOpenFile(&file_, stream_->stream(), nullptr);
  if (rc_ != TMX_OK) file_ = nullptr;
}

Book::~Book() {
  if (file_) TMXCloseFile(file_);
}

ByteVec Book::Read(std::int32_t* rc, std::int32_t capacity) {
  ByteVec out(std::size_t(capacity > 0 ? capacity : 1));
  std::uint32_t count = 0;
  const std::int32_t r = TMXGetEncodedAudio(file_, out.data(), capacity, &count);
  if (rc) *rc = r;
  out.resize(r == TMX_OK ? count : 0);
  return out;
}

std::string Book::Text(std::uint32_t key) {
  char buffer[256] = {};
  const std::int32_t rc =
      TMXGetMetadata(file_, key, reinterpret_cast<std::uint8_t*>(buffer), sizeof buffer);
  return rc == TMX_OK ? std::string(buffer) : "error " + std::to_string(rc);
}

}  // namespace tmx::legacy::test
