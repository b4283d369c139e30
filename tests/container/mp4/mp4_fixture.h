// Opens a programme built in memory and closes it again.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "api/file.h"
#include "container/format_handler.h"
#include "container/mp4/mp4_state.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx::test {

class OpenProgramme {
 public:
  explicit OpenProgramme(const ByteVec& bytes) : stream_(std::make_unique<MemoryStream>(bytes)) {
    rc_ = TMXOpenFile(&file_, stream_->stream(), nullptr);
    if (rc_ != TMX_OK) file_ = nullptr;
  }
  ~OpenProgramme() {
    if (file_) TMXCloseFile(file_);
  }
  std::int32_t rc() const { return rc_; }
  TMXFile* file() const { return file_; }
  mp4::Mp4State& state() const { return mp4::State(file_); }
  MemoryStream& stream() { return *stream_; }
  const FormatHandler& handler() const { return *file_->formatHandler; }

  // Reads the next audio frame through the handler.
  std::int32_t Read(ByteVec& out, std::uint32_t capacity = 4096) {
    out.assign(capacity, 0);
    std::uint32_t length = 0;
    std::int32_t rc = handler().ReadEncodedFrame(file_, out.data(), capacity, &length);
    out.resize(length);
    return rc;
  }

 private:
  std::unique_ptr<MemoryStream> stream_;
  TMXFile* file_ = nullptr;
  std::int32_t rc_ = 0;
};

// An audio track of `frames` frames, `perChunk` to a chunk.
inline TrackSpec AudioTrack(std::uint32_t frames, std::uint32_t perChunk = 4) {
  TrackSpec t;
  t.samples = MakeFrames(frames);
  t.samplesPerChunk = perChunk;
  return t;
}

// A chapter-title track whose samples start at the given audio frames
// (1024 samples a frame).
inline TrackSpec TitleTrack(std::uint32_t id, const std::vector<std::string>& titles,
                            const std::vector<std::uint32_t>& startFrames,
                            std::uint32_t totalFrames) {
  TrackSpec t;
  t.id = id;
  t.entry = "text";
  t.tkhdFlags = 0x0002;
  for (const auto& title : titles) t.samples.push_back(TextSample(title));
  for (std::size_t i = 0; i < startFrames.size(); ++i) {
    const std::uint32_t end = i + 1 < startFrames.size() ? startFrames[i + 1] : totalFrames;
    t.stts.push_back({1, (end - startFrames[i]) * 1024});
  }
  return t;
}

}  // namespace tmx::test
