#include "container/legacy/segments.h"

#include <algorithm>

#include "container/legacy/records.h"
#include "io/stream_io.h"
#include "util/alloc.h"
#include "util/frame_time.h"

namespace tmx::legacy {
namespace {

constexpr std::uint32_t kSegmentHeader = 8;
constexpr std::uint32_t kFirstCapacity = 8;

// Bytes of whole frames: the reader never goes past the last whole frame.
std::uint64_t AudioEnd(const Container* f, const LegacyState& st) noexcept {
  return std::uint64_t(f->info.frameCount) * st.bytesPerFrame;
}

// Room for one more segment. The table never holds more entries than
// segment headers fit in the file, and each entry is as large as a header.
std::int32_t MakeRoom(LegacyState& st) noexcept {
  if (st.segmentCount < st.segmentCapacity) return TMX_OK;
  const std::uint32_t most = st.fileEnd / kSegmentHeader + 1;
  const std::uint32_t grown =
      std::min(st.segmentCapacity ? st.segmentCapacity * 2 : kFirstCapacity, most);
  if (grown <= st.segmentCount) return TMX_ERR_INCONSISTENT;
  void* block = st.segments ? Realloc(st.segments, sizeof(Segment) * st.segmentCapacity,
                                      sizeof(Segment) * grown)
                            : AllocArray<Segment>(grown);
  if (!block) return TMX_ERR_MEMORY;
  st.segments = static_cast<Segment*>(block);
  st.segmentCapacity = grown;
  return TMX_OK;
}

// Makes segment `index` available; -24 when the segments loaded already
// hold the whole audio and there is none such.
std::int32_t EnsureSegment(Container* f, std::uint32_t index) noexcept {
  LegacyState& st = State(f);
  while (st.segmentCount <= index) {
    if (st.chainComplete) return TMX_ERR_END;
    TMX_RETURN_IF_ERROR(LoadNextSegment(f));
  }
  return TMX_OK;
}

// Moves a position that stands at the end of its segment's data to the
// start of the next segment, as long as audio follows.
std::int32_t SkipSegmentEnds(Container* f, ReaderPos* p) noexcept {
  LegacyState& st = State(f);
  while (p->inner == st.segments[p->index].size && p->start + p->inner < AudioEnd(f, st)) {
    TMX_RETURN_IF_ERROR(EnsureSegment(f, p->index + 1));
    p->start += st.segments[p->index].size;
    p->index += 1;
    p->inner = 0;
  }
  return TMX_OK;
}

// The position of audio byte `target` (not beyond the audio's end). The
// walk starts at the reader's segment when the target lies ahead of it.
std::int32_t Locate(Container* f, std::uint64_t target, ReaderPos* out) noexcept {
  LegacyState& st = State(f);
  ReaderPos p = target >= st.pos.start ? ReaderPos{st.pos.index, 0, st.pos.start} : ReaderPos{};
  while (target - p.start > st.segments[p.index].size) {
    TMX_RETURN_IF_ERROR(EnsureSegment(f, p.index + 1));
    p.start += st.segments[p.index].size;
    p.index += 1;
  }
  p.inner = std::uint32_t(target - p.start);
  TMX_RETURN_IF_ERROR(SkipSegmentEnds(f, &p));
  *out = p;
  return TMX_OK;
}

// Describes the frame at the reader's position.
void DescribeCurrent(Container* f) noexcept {
  LegacyState& st = State(f);
  const Segment& seg = st.segments[st.pos.index];
  f->currentFrameInfo = {f->info.audioTrackType,
                         FramesToMs(f->currentFrame, f->info.sampleRate, f->info.samplesPerFrame),
                         f->currentFrame,
                         st.bytesPerFrame,
                         seg.dataPos + st.pos.inner,
                         kSampleFlags};
  // Each segment counts as one chunk of the audio track.
  st.chunkFirstFrame = f->currentFrame - st.pos.inner / st.bytesPerFrame;
  st.chunkFrameCount = seg.size / st.bytesPerFrame;
}

}  // namespace

std::int32_t LoadNextSegment(Container* f) noexcept {
  LegacyState& st = State(f);
  std::uint64_t headerPos = 0;
  if (st.segmentCount == 0) {
    Record r{};
    TMX_RETURN_IF_ERROR(LookUpRecord(f, kRecordFirstSegment, &r));
    headerPos = r.offset;
  } else {
    const Segment& last = st.segments[st.segmentCount - 1];
    headerPos = std::uint64_t(last.dataPos) + last.size;
  }
  // Every header lies behind the data before it, so the chain only moves
  // forward and cannot loop; each header must lie inside the file. A size
  // running past the file's end is taken as stated: the frames that are
  // in the file are delivered, and reads beyond it fail.
  if (headerPos + kSegmentHeader > st.fileEnd) return TMX_ERR_INCONSISTENT;
  std::uint8_t b[kSegmentHeader];
  TMX_RETURN_IF_ERROR(ReadExactAt(f->stream, std::uint32_t(headerPos), b));
  const Segment seg = {LoadBE32(b + 4), LoadBE32(b)};
  if (seg.dataPos != headerPos + kSegmentHeader) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(MakeRoom(st));
  st.segments[st.segmentCount++] = seg;
  st.loadedBytes += seg.size;
  if (st.loadedBytes >= st.audioSize) st.chainComplete = 1;
  return TMX_OK;
}

std::int32_t SeekToFrame(Container* f, std::uint32_t frame) noexcept {
  LegacyState& st = State(f);
  if (f->info.sampleRate == 0) return TMX_ERR_INCONSISTENT;
  if (st.segmentCount == 0) return TMX_ERR_SEEK_RANGE;
  // The frame's byte offset in the audio picks the segment; inside it the
  // reader stands on a whole frame counted from the segment's start, so
  // where a segment is not a whole number of frames a seek lands on the
  // frame boundary at or before that byte. A frame past the end stands at
  // the audio's end.
  const std::uint32_t target = std::min(frame, f->info.frameCount);
  ReaderPos p{};
  TMX_RETURN_IF_ERROR(Locate(f, std::uint64_t(target) * st.bytesPerFrame, &p));
  p.inner -= p.inner % st.bytesPerFrame;
  st.pos = p;
  f->currentFrame = target;
  f->decoderResetPending = 1;
  DescribeCurrent(f);
  return f->stream->ops->Seek(f->stream, f->currentFrameInfo.offset);
}

std::int32_t AdvanceFrame(Container* f) noexcept {
  if (std::uint64_t(f->currentFrame) + 1 >= f->info.frameCount) return TMX_ERR_END;
  return SeekToFrame(f, f->currentFrame + 1);
}

std::int32_t ReadEncodedFrame(Container* f, std::uint8_t* buffer, std::uint32_t size,
                              std::uint32_t* length) noexcept {
  LegacyState& st = State(f);
  const std::uint32_t frameSize = st.bytesPerFrame;
  *length = 0;
  if (size < frameSize) return TMX_ERR_BUFFER;
  if (f->currentFrame >= f->info.frameCount) return TMX_ERR_END;
  // The reader moves only once the whole frame has been read.
  ReaderPos p = st.pos;
  std::uint32_t done = 0;
  while (done < frameSize) {
    const Segment seg = st.segments[p.index];
    if (p.inner == seg.size) {
      // The frame continues in the next segment's data.
      TMX_RETURN_IF_ERROR(EnsureSegment(f, p.index + 1));
      p = {p.index + 1, 0, p.start + seg.size};
      continue;
    }
    const std::uint32_t n = std::min(frameSize - done, seg.size - p.inner);
    TMX_RETURN_IF_ERROR(ReadExactAt(f->stream, seg.dataPos + p.inner, {buffer + done, n}));
    done += n;
    p.inner += n;
  }
  // A next segment that cannot be loaded is reported by the next read.
  ReaderPos next = p;
  st.pos = SkipSegmentEnds(f, &next) == 0 ? next : p;
  f->currentFrame += 1;
  DescribeCurrent(f);
  *length = frameSize;
  return TMX_OK;
}

}  // namespace tmx::legacy
