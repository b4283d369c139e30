// Opens a programme built in memory and closes it again, and builds the
// tracks and guarded buffers the tests share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "api/file.h"
#include "container/format_handler.h"
#include "container/mp4/mp4_state.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"

namespace tmx::test {

class OpenProgramme {
 public:
  explicit OpenProgramme(const ByteVec& bytes, MemoryStream* position = nullptr)
      : stream_(std::make_unique<MemoryStream>(bytes)) {
    rc_ = TMXOpenFile(&file_, stream_->stream(), position ? position->stream() : nullptr);
    if (rc_ != TMX_OK) file_ = nullptr;
  }
  ~OpenProgramme() {
    if (file_) TMXCloseFile(file_);
  }
  std::int32_t rc() const { return rc_; }
  TMXFile* file() const { return file_; }
  mp4::Mp4State& state() const { return mp4::State(&file_->reader); }
  MemoryStream& stream() { return *stream_; }
  const FormatHandler& handler() const { return *file_->formatHandler; }

  // Reads the next audio frame through the handler.
  std::int32_t Read(ByteVec& out, std::uint32_t capacity = 4096) {
    out.assign(capacity, 0);
    std::uint32_t length = 0;
    std::int32_t rc = handler().ReadEncodedFrame(&file_->reader, out.data(), capacity, &length);
    out.resize(length);
    return rc;
  }
  // Reads the next audio frame through TMXGetEncodedAudio; empty on failure.
  std::int32_t ReadAudio(ByteVec& out, std::int32_t capacity = 4096) {
    out.assign(std::size_t(capacity > 0 ? capacity : 1), 0);
    std::uint32_t count = 0;
    std::int32_t rc = TMXGetEncodedAudio(file_, out.data(), capacity, &count);
    out.resize(rc == TMX_OK ? count : 0);
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

// A side track of `entry` samples ("text", "tx3g", "jpeg"), one sample per
// stts entry of `frames` audio frames each.
inline TrackSpec SideTrack(std::uint32_t id, const std::string& entry, std::vector<ByteVec> samples,
                           std::uint32_t tkhdFlags = 0, std::uint32_t frames = 4) {
  TrackSpec t;
  t.id = id;
  t.entry = entry;
  t.tkhdFlags = tkhdFlags;
  t.samples = std::move(samples);
  for (std::size_t i = 0; i < t.samples.size(); ++i) t.stts.push_back({1, frames * 1024});
  return t;
}

// A picture rendition of one sample in alternate group `group`.
inline TrackSpec ImageTrack(std::uint32_t id, std::uint32_t tkhdFlags, std::uint16_t group,
                            std::uint16_t quality, std::size_t size) {
  TrackSpec t = SideTrack(id, "jpeg", {ByteVec(size, std::uint8_t(id))}, tkhdFlags);
  t.alternateGroup = group;
  t.qualityField = quality;
  return t;
}

// A chapter-title track whose samples start at the given audio frames
// (1024 samples a frame).
inline TrackSpec TitleTrack(std::uint32_t id, const std::vector<std::string>& titles,
                            const std::vector<std::uint32_t>& startFrames,
                            std::uint32_t totalFrames) {
  TrackSpec t = SideTrack(id, "text", {}, 0x0002);
  for (const auto& title : titles) t.samples.push_back(TextSample(title));
  for (std::size_t i = 0; i < startFrames.size(); ++i) {
    const std::uint32_t end = i + 1 < startFrames.size() ? startFrames[i + 1] : totalFrames;
    t.stts.push_back({1, (end - startFrames[i]) * 1024});
  }
  return t;
}

struct Guarded {
  std::int32_t rc;
  ByteVec bytes;  // the whole buffer
};

// Calls `read` on a buffer of `capacity` bytes with guard bytes behind it,
// and fails the test when one of them changed.
inline Guarded ReadGuarded(std::uint32_t capacity,
                           const std::function<std::int32_t(std::uint8_t*, std::uint32_t)>& read) {
  constexpr std::uint8_t kGuard = 0xA5;
  ByteVec buffer(capacity + 8, kGuard);
  const std::int32_t rc = read(buffer.data(), capacity);
  for (std::size_t i = capacity; i < buffer.size(); ++i)
    EXPECT_EQ(buffer[i], kGuard) << "written past the buffer at " << i;
  buffer.resize(capacity);
  return {rc, buffer};
}

// Byte text from `from` up to the first zero byte.
inline std::string UpToZero(const ByteVec& b, std::size_t from = 0) {
  const auto begin = b.begin() + std::ptrdiff_t(from);
  return std::string(begin, std::find(begin, b.end(), 0));
}

// UTF-16 text from `from` up to the first zero unit.
inline std::u16string Utf16At(const ByteVec& b, std::size_t from = 0) {
  std::u16string s((b.size() - from) / 2, u'\0');
  std::memcpy(s.data(), b.data() + from, s.size() * 2);
  return s.substr(0, s.find(u'\0'));
}

}  // namespace tmx::test
