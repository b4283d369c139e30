#include "container/mp4/sample_table.h"

#include <algorithm>

#include "container/mp4/atom.h"
#include "container/mp4/mp4_state.h"
#include "container/mp4/sample_description.h"
#include "io/stream_io.h"
#include "util/alloc.h"
#include "util/frame_time.h"

namespace tmx::mp4 {
namespace {

constexpr std::uint32_t kChunkHeaderFixedBytes = 28;  // seven words before the sizes
constexpr std::uint32_t kNoOffset = 0xFFFFFFFF;

std::uint32_t Ms(const Container* f, std::uint32_t frames) noexcept {
  return FramesToMs(frames, f->info.sampleRate, f->info.samplesPerFrame);
}

// Restores the stream position when a lookup leaves its scope.
class PositionGuard {
 public:
  explicit PositionGuard(TMXStream* s) noexcept : s_(s), saved_(s->ops->Tell(s)) {}
  ~PositionGuard() { s_->ops->Seek(s_, saved_); }
  PositionGuard(const PositionGuard&) = delete;
  PositionGuard& operator=(const PositionGuard&) = delete;

 private:
  TMXStream* s_;
  std::uint32_t saved_;
};

// Puts the stream at `position` for the reader, seeking only when it is
// not known to be there already.
std::int32_t MoveTo(Container* f, std::uint32_t position) noexcept {
  Mp4State& st = State(f);
  if (st.readerPosKnown && st.readerPos == position) return TMX_OK;
  st.readerPosKnown = 0;
  TMX_RETURN_IF_ERROR(f->stream->ops->Seek(f->stream, position));
  st.readerPos = position;
  st.readerPosKnown = 1;
  return TMX_OK;
}

// Records a read of `bytes` by the reader, or forgets the position when the
// read failed.
std::int32_t Moved(Container* f, std::int32_t rc, std::uint32_t bytes) noexcept {
  Mp4State& st = State(f);
  if (rc == 0) {
    st.readerPos += bytes;
  } else {
    st.readerPosKnown = 0;
  }
  return rc;
}

// Reads `count` big-endian 32-bit words into `out`.
std::int32_t ReadWords(TMXStream* s, std::uint32_t* out, std::uint32_t count) noexcept {
  auto* bytes = reinterpret_cast<std::uint8_t*>(out);
  TMX_RETURN_IF_ERROR(AtomReadBytes(s, {bytes, std::size_t(count) * 4}));
  for (std::uint32_t i = 0; i < count; ++i) out[i] = LoadBE32(bytes + 4 * i);
  return TMX_OK;
}

void ClearChunk(Mp4State& st) noexcept {
  Free(st.chunk.sizes);
  st.chunk.sizes = nullptr;
  st.chunk.sampleCount = 0;
  st.chunk.entryType = 0;
}

// Sizes of audio samples [first, first + n) from the table; indices the
// table does not reach take the fixed sample size.
std::int32_t ReadAudioSizes(Container* f, std::uint32_t first, std::uint32_t n,
                            std::uint32_t* sizes, std::uint32_t* total) noexcept {
  TMXStream* s = f->stream;
  const Mp4State& st = State(f);
  PositionGuard guard(s);
  const std::uint64_t start = std::uint64_t(st.stszEntriesPos) + 4ull * first;
  const std::uint32_t inTable =
      first < st.stszTableCount ? std::min(n, st.stszTableCount - first) : 0;
  if (inTable > 0) {
    if (start > UINT32_MAX) return TMX_ERR_INCONSISTENT;
    TMX_RETURN_IF_ERROR(s->ops->Seek(s, std::uint32_t(start)));
    TMX_RETURN_IF_ERROR(ReadWords(s, sizes, inTable));
  }
  std::fill(sizes + inTable, sizes + n, st.fixedSampleSize);
  std::uint32_t sum = 0;
  for (std::uint32_t i = 0; i < n; ++i) sum += sizes[i];
  *total = sum;
  return TMX_OK;
}

// Builds the current chunk from the tables after a seek; `offset` is the
// chunk's first sample position.
std::int32_t PrepareChunkFromTables(Container* f, std::uint32_t offset) noexcept {
  Mp4State& st = State(f);
  ChunkHeader& c = st.chunk;
  TMXFrameInfo& info = f->currentFrameInfo;
  ClearChunk(st);
  info.type = 0;
  if (f->info.sampleRate == 0) return TMX_ERR_INCONSISTENT;
  c.trackId = st.audioTrack.trackId;
  c.entryType = c.trackId != 0 ? st.audioTrack.entryType : 0;
  c.firstSample = f->currentFrame - st.sampleInChunk;
  c.startMs = Ms(f, c.firstSample);
  c.dataPos = offset;
  c.totalSize = 0;
  const std::uint32_t count = st.samplesInChunk;
  c.headerSize = (count + 7) * 4;
  if (count == 0) return TMX_OK;
  // Every sample takes at least a byte of the file.
  if (!BytesExist(f->stream, count)) return TMX_ERR_INCONSISTENT;
  auto* sizes = AllocArray<std::uint32_t>(count);
  if (!sizes) return TMX_ERR_MEMORY;
  std::uint32_t total = 0;
  if (std::int32_t rc = ReadAudioSizes(f, c.firstSample, count, sizes, &total); rc != 0) {
    Free(sizes);
    c.entryType = 0;
    c.dataPos = 0;
    return rc;
  }
  c.sizes = sizes;
  c.sampleCount = count;
  c.totalSize = total;
  std::uint32_t before = 0;
  for (std::uint32_t i = 0; i < st.sampleInChunk && i < count; ++i) before += sizes[i];
  info.type = c.entryType;
  info.index = f->currentFrame;
  info.startTime = Ms(f, f->currentFrame);
  // A chunk whose offset could not be read keeps the unreadable offset for
  // every sample, rather than one that wraps round to the file's start.
  info.offset = offset == kNoOffset ? kNoOffset : offset + before;
  info.size = st.sampleInChunk < count ? sizes[st.sampleInChunk] : 0;
  info.flags = st.audioTrack.flags;
  return TMX_OK;
}

// Titles and links are described as their lookups describe them: a title
// by its text length plus one (doubled for 16-bit output) behind its length
// prefix, a link by its sample size plus the caption length for 16-bit
// output. The stream is left behind the length prefix.
std::int32_t DescribeTextSample(Container* f, TMXFrameInfo* info) noexcept {
  if (State(f).chunk.sampleCount == 0) return TMX_OK;
  std::uint16_t length = 0;
  TMX_RETURN_IF_ERROR(Moved(f, AtomReadU16(f->stream, &length), 2));
  const bool wide = (f->unicodeFormat & 2) != 0;
  if (info->type == FourCC("text")) {
    info->size = (std::uint32_t(length) + 1) * (wide ? 2 : 1);
    info->offset += 2;
  } else if (wide) {
    info->size += length;
  }
  return TMX_OK;
}

// Reads the header stored in front of the next chunk of any track.
std::int32_t ReadNextChunkHeader(Container* f) noexcept {
  TMXStream* s = f->stream;
  Mp4State& st = State(f);
  ChunkHeader& c = st.chunk;
  TMXFrameInfo& info = f->currentFrameInfo;
  info.type = 0;
  const std::uint64_t next = std::uint64_t(c.dataPos) + c.totalSize;
  ClearChunk(st);
  if (next > UINT32_MAX) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(MoveTo(f, std::uint32_t(next)));
  std::uint32_t w[7];
  TMX_RETURN_IF_ERROR(Moved(f, ReadWords(s, w, 7), kChunkHeaderFixedBytes));
  const std::uint32_t n = w[6];
  if (w[0] != (std::uint64_t(n) + 7) * 4) return TMX_ERR_INCONSISTENT;
  // The sizes must be in the file before they are read into memory (the size
  // taken at open spares the stream a question per chunk).
  const std::uint64_t sizesEnd = next + kChunkHeaderFixedBytes + 4ull * n;
  if (st.streamSize != TMX_STREAM_UNKNOWN ? sizesEnd > st.streamSize : !BytesExist(s, sizesEnd))
    return TMX_ERR_INCONSISTENT;
  std::uint32_t* sizes = nullptr;
  if (n != 0) {
    sizes = AllocArray<std::uint32_t>(n);
    if (!sizes) return TMX_ERR_MEMORY;
    std::uint64_t sum = 0;
    std::int32_t rc = Moved(f, ReadWords(s, sizes, n), 4 * n);
    for (std::uint32_t i = 0; rc == 0 && i < n; ++i) sum += sizes[i];
    if (rc == 0 && sum != w[5]) rc = TMX_ERR_INCONSISTENT;
    if (rc != 0) {
      Free(sizes);
      return rc;
    }
  }
  c = {w[0], w[1],  w[2],
       w[3], w[4],  w[5],
       n,    sizes, std::uint32_t(next + kChunkHeaderFixedBytes + 4ull * n)};
  st.sampleInChunk = 0;
  st.samplesInChunk = n;

  info.offset = n ? c.dataPos : 0;
  info.size = n ? sizes[0] : w[5];
  info.type = w[1];
  info.index = w[3];
  info.startTime = w[2];
  info.flags = 0;
  const std::uint32_t id = w[4];
  if (id == st.audioTrack.trackId) {
    info.flags = st.audioTrack.flags;
    info.startTime = Ms(f, w[3]);
  } else if (st.imageTrackCount > 0 && id == st.imageTracks[0].trackId) {
    info.flags = st.imageTracks[0].flags;
    if (info.flags & kLeadingExtraSample) --info.index;
  } else if (st.hasChapterTextTrack && id == st.chapterTextTrack.trackId) {
    info.flags = st.chapterTextTrack.flags;
    TMX_RETURN_IF_ERROR(DescribeTextSample(f, &info));
  } else if (st.hasLinkTrack && id == st.linkTrack.trackId) {
    info.flags = st.linkTrack.flags;
    TMX_RETURN_IF_ERROR(DescribeTextSample(f, &info));
  } else {
    // A chunk of a track the reader does not know is stepped over.
    info.type = 0;
    c.entryType = 0;
  }
  return TMX_OK;
}

// Moves the frame description to the next sample of the current chunk.
void AdvanceWithinChunk(Container* f) noexcept {
  const Mp4State& st = State(f);
  TMXFrameInfo& info = f->currentFrameInfo;
  info.offset += info.size;
  info.index += 1;
  info.size = st.sampleInChunk < st.chunk.sampleCount ? st.chunk.sizes[st.sampleInChunk] : 0;
  info.startTime = Ms(f, info.index);
}

// After the last sample of a chunk: the next chunk, from its header or,
// when that cannot be read, from the tables.
void EnterNextChunk(Container* f) noexcept {
  Mp4State& st = State(f);
  st.sampleInChunk = 0;
  st.chunkIndex += 1;
  if (st.chunkIndex < st.chunkCount && ReadNextChunkHeader(f) != 0) SeekToFrame(f, f->currentFrame);
}

// Steps past the audio sample just delivered or skipped.
void StepAudio(Container* f) noexcept {
  Mp4State& st = State(f);
  f->currentFrame += 1;
  st.sampleInChunk += 1;
  if (st.sampleInChunk < st.samplesInChunk) {
    AdvanceWithinChunk(f);
  } else {
    EnterNextChunk(f);
  }
}

// Finds the chunk holding sample `j` in a sample-to-chunk walk. `runEnd(i)`
// gives the exclusive chunk bound of run i. Counts are 64-bit so that a
// corrupt table cannot wrap around.
struct ChunkSearch {
  std::uint64_t chunk = 0;
  std::uint64_t samplesBefore = 0;
  bool found = false;
  // Consumes one run of `perChunk` samples a chunk ending before `limit`.
  void Run(std::int64_t limit, std::uint32_t perChunk, std::uint64_t j) noexcept {
    if (found || std::int64_t(chunk) >= limit) return;
    const std::uint64_t chunksLeft = std::uint64_t(limit) - chunk;
    if (perChunk == 0) {
      chunk += chunksLeft;
      return;
    }
    const std::uint64_t need = (j - samplesBefore) / perChunk;
    if (need < chunksLeft) {
      chunk += need;
      samplesBefore += need * perChunk;
      found = true;
    } else {
      chunk += chunksLeft;
      samplesBefore += chunksLeft * perChunk;
    }
  }
};

// The image track to describe, chosen by the file's image quality: the
// first of the highest level not above the quality, except that a passed
// over last track is returned itself.
const TrackRecord* ChooseImageTrack(const Container* f, const Mp4State& st) noexcept {
  const std::uint32_t q = f->imageQuality;
  if (q > 3 || st.imageTrackCount == 0) return nullptr;
  if (q == 0) return &st.imageTracks[0];
  const std::uint32_t highest = q * 0x40;
  const TrackRecord* kept = nullptr;
  bool lastPassed = false;
  for (std::uint32_t i = 0; i < st.imageTrackCount; ++i) {
    const TrackRecord& t = st.imageTracks[i];
    const std::uint32_t level = t.flags & kQualityMask;
    const bool passed = level > highest;
    if (i + 1 == st.imageTrackCount) lastPassed = passed;
    if (!passed && (!kept || level > (kept->flags & kQualityMask))) kept = &t;
  }
  return lastPassed ? &st.imageTracks[st.imageTrackCount - 1] : kept;
}

std::int32_t FindPayloadOrMissing(TMXStream* s, AtomRange range, std::uint32_t type,
                                  AtomRange* payload) noexcept {
  Box box{};
  TMX_RETURN_IF_ERROR(FindBoxOr(s, range, type, &box, TMX_ERR_NOT_FOUND));
  *payload = box.payload();
  return TMX_OK;
}

// Frames before sample j of a side track: per "stts" entry one division of
// its delta by the audio frame length, added once per sample.
std::int32_t FramesBefore(Container* f, AtomRange stts, std::uint32_t j,
                          std::uint32_t* frames) noexcept {
  TMXStream* s = f->stream;
  std::uint32_t head[2];
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, stts.begin));
  TMX_RETURN_IF_ERROR(ReadWords(s, head, 2));
  std::uint32_t sum = 0, left = j;
  for (std::uint32_t e = 0; e < head[1] && left > 0; ++e) {
    std::uint32_t entry[2];
    TMX_RETURN_IF_ERROR(ReadWords(s, entry, 2));
    const std::uint32_t perSample =
        f->info.samplesPerFrame ? entry[1] / f->info.samplesPerFrame : 0;
    const std::uint32_t n = std::min(entry[0], left);
    sum += n * perSample;
    left -= n;
  }
  *frames = sum;
  return TMX_OK;
}

// Locates sample j of a side track through its tables.
std::int32_t LookUpSideSample(Container* f, const TrackRecord& track, std::uint32_t j,
                              TMXFrameInfo* out) noexcept {
  TMXStream* s = f->stream;
  if (track.stblPos == 0) return TMX_ERR_NOT_FOUND;
  Box box{};
  TMX_RETURN_IF_ERROR(ReadBoxAt(s, track.stblPos, State(f).movie, &box));
  const AtomRange stbl = box.payload();
  AtomRange stts{}, stsc{}, stco{}, stsz{};
  TMX_RETURN_IF_ERROR(FindPayloadOrMissing(s, stbl, FourCC("stts"), &stts));
  std::uint32_t frames = 0;
  TMX_RETURN_IF_ERROR(FramesBefore(f, stts, j, &frames));

  TMX_RETURN_IF_ERROR(FindPayloadOrMissing(s, stbl, FourCC("stco"), &stco));
  std::uint32_t stcoHead[2];
  TMX_RETURN_IF_ERROR(ReadWords(s, stcoHead, 2));
  const std::uint32_t chunkCount = stcoHead[1];

  TMX_RETURN_IF_ERROR(FindPayloadOrMissing(s, stbl, FourCC("stsc"), &stsc));
  std::uint32_t stscHead[2];
  TMX_RETURN_IF_ERROR(ReadWords(s, stscHead, 2));
  ChunkSearch search;
  std::uint32_t entry[3];
  if (stscHead[1] > 0) TMX_RETURN_IF_ERROR(ReadWords(s, entry, 3));
  for (std::uint32_t i = 0; i < stscHead[1] && !search.found; ++i) {
    std::int64_t limit = chunkCount;
    std::uint32_t next[3] = {};
    const bool last = i + 1 == stscHead[1];
    if (!last) {
      TMX_RETURN_IF_ERROR(ReadWords(s, next, 3));
      limit = std::int64_t(next[0]) - 1;
    }
    search.Run(limit, entry[1], j);
    std::copy(next, next + 3, entry);
  }
  if (!search.found || search.chunk >= chunkCount) return TMX_ERR_NOT_FOUND;
  const auto inChunk = std::uint32_t(j - search.samplesBefore);
  const auto firstOfChunk = std::uint32_t(search.samplesBefore);

  std::uint32_t offset = 0;
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, stco.begin + 8 + 4 * std::uint32_t(search.chunk)));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &offset));

  TMX_RETURN_IF_ERROR(FindPayloadOrMissing(s, stbl, FourCC("stsz"), &stsz));
  std::uint32_t stszHead[3];
  TMX_RETURN_IF_ERROR(ReadWords(s, stszHead, 3));
  const std::uint32_t fixed = stszHead[1], count = stszHead[2];
  if (j >= count) return TMX_ERR_NOT_FOUND;
  auto sizeAt = [&](std::uint32_t index, std::uint32_t* size) -> std::int32_t {
    if (fixed != 0) {
      *size = fixed;
      return TMX_OK;
    }
    TMX_RETURN_IF_ERROR(s->ops->Seek(s, stsz.begin + 12 + 4 * index));
    return AtomReadU32(s, size);
  };
  // The sizes summed run from the chunk's first sample index up to the
  // sample's place within its chunk; single-sample chunks add nothing.
  std::uint32_t position = offset;
  for (std::uint32_t k = firstOfChunk; k < inChunk; ++k) {
    std::uint32_t size = 0;
    TMX_RETURN_IF_ERROR(sizeAt(k, &size));
    position += size;
  }
  std::uint32_t size = 0;
  TMX_RETURN_IF_ERROR(sizeAt(j, &size));

  out->offset = position;
  out->size = size;
  out->startTime = Ms(f, frames);
  out->flags = track.flags;
  if (out->type == FourCC("text")) {
    std::uint16_t length = 0;
    TMX_RETURN_IF_ERROR(s->ops->Seek(s, position));
    TMX_RETURN_IF_ERROR(AtomReadU16(s, &length));
    out->size = std::uint32_t(length) + 1;
    if (f->unicodeFormat & 2) out->size *= 2;
    out->offset += 2;
  } else if (out->type == FourCC("tx3g") && (f->unicodeFormat & 2)) {
    std::uint16_t length = 0;
    TMX_RETURN_IF_ERROR(s->ops->Seek(s, position));
    TMX_RETURN_IF_ERROR(AtomReadU16(s, &length));
    out->size += length;
  }
  return TMX_OK;
}

}  // namespace

std::int32_t SetUpAudioTables(Container* f) noexcept {
  TMXStream* s = f->stream;
  Mp4State& st = State(f);
  f->info.audioTrackType = st.audioTrack.entryType;
  Box box{};
  TMX_RETURN_IF_ERROR(ReadBoxAt(s, st.audioTrack.stblPos, st.movie, &box));
  const std::uint32_t stblSize = box.size;
  const AtomRange stbl = box.payload();
  std::uint32_t pos = 0, size = 0;
  auto find = [&](std::uint32_t t) {
    TMX_RETURN_IF_ERROR(FindBoxOr(s, stbl, t, &box, TMX_ERR_INCONSISTENT));
    pos = box.pos;
    size = box.size;
    return TMX_OK;
  };

  TMX_RETURN_IF_ERROR(find(FourCC("stsd")));
  TMX_RETURN_IF_ERROR(ReadSampleDescription(f, PayloadOf(pos, size)));

  std::uint32_t w[3];
  TMX_RETURN_IF_ERROR(find(FourCC("stts")));
  TMX_RETURN_IF_ERROR(AtomSkip(s, 12));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &f->info.samplesPerFrame));

  // Entry counts are kept within their atoms, so a corrupt count cannot send
  // the reader through the rest of the file.
  TMX_RETURN_IF_ERROR(find(FourCC("stsc")));
  TMX_RETURN_IF_ERROR(ReadWords(s, w, 2));
  st.stscEntriesPos = pos + 16;
  st.stscCount = std::min(w[1], (pos + size - std::min(pos + size, st.stscEntriesPos)) / 12);

  TMX_RETURN_IF_ERROR(find(FourCC("stsz")));
  TMX_RETURN_IF_ERROR(ReadWords(s, w, 3));
  st.fixedSampleSize = w[1];
  f->info.frameCount = w[2];
  // Taken from the size of "stbl" rather than "stsz": it exceeds the real
  // count, so every audio sample size is read from the table.
  st.stszTableCount = stblSize >= 20 ? (stblSize - 20) / 4 : 0;
  f->info.duration = Ms(f, f->info.frameCount);
  st.stszEntriesPos = pos + 20;

  TMX_RETURN_IF_ERROR(find(FourCC("stco")));
  TMX_RETURN_IF_ERROR(ReadWords(s, w, 2));
  st.stcoEntriesPos = pos + 16;
  st.chunkCount = std::min(w[1], (pos + size - std::min(pos + size, st.stcoEntriesPos)) / 4);
  return TMX_OK;
}

std::int32_t SeekToFrame(Container* f, std::uint32_t frame) noexcept {
  TMXStream* s = f->stream;
  Mp4State& st = State(f);
  std::uint32_t firstChunk = 0;
  st.readerPosKnown = 0;
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, st.stscEntriesPos));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &firstChunk));
  if (st.stscCount == 0) return TMX_ERR_SEEK_RANGE;

  // Runs of chunks with the same sample count. The last run ends one chunk
  // before the chunk count, so samples of the very last chunk are never
  // found here: sequential reading reaches them through chunk headers.
  ChunkSearch search;
  std::uint32_t perChunk = 0;
  for (std::uint32_t i = 0; i < st.stscCount && !search.found; ++i) {
    std::uint32_t descriptionIndex = 0, end = st.chunkCount;
    TMX_RETURN_IF_ERROR(AtomReadU32(s, &perChunk));
    TMX_RETURN_IF_ERROR(AtomReadU32(s, &descriptionIndex));
    if (i + 1 < st.stscCount) TMX_RETURN_IF_ERROR(AtomReadU32(s, &end));
    search.Run(std::int64_t(end) - 1, perChunk, frame);
  }
  if (!search.found) return TMX_ERR_SEEK_RANGE;

  st.sampleInChunk = std::uint32_t(frame - search.samplesBefore);
  st.chunkIndex = std::uint32_t(search.chunk);
  st.samplesInChunk = perChunk;
  f->currentFrame = frame;

  std::uint32_t offset = kNoOffset;
  {
    PositionGuard guard(s);
    if (s->ops->Seek(s, st.stcoEntriesPos + 4 * st.chunkIndex) != 0 || AtomReadU32(s, &offset) != 0)
      offset = kNoOffset;
  }
  TMX_RETURN_IF_ERROR(PrepareChunkFromTables(f, offset));
  if (f->currentFrameInfo.type != 0) MoveTo(f, f->currentFrameInfo.offset);
  return TMX_OK;
}

std::int32_t ReadEncodedFrame(Container* f, std::uint8_t* buffer, std::uint32_t bufferSize,
                              std::uint32_t* length) noexcept {
  TMXStream* s = f->stream;
  Mp4State& st = State(f);
  *length = 0;
  if (st.chunkIndex >= st.chunkCount || f->currentFrame >= f->info.frameCount) return TMX_ERR_END;
  // Chunks of other tracks are stepped over; where no header can be read
  // the tables place the reader. Each header read moves forward, so the
  // loop ends at the latest at the end of the stream.
  while (st.chunk.entryType != f->info.audioTrackType) {
    if (ReadNextChunkHeader(f) == 0) continue;
    TMX_RETURN_IF_ERROR(SeekToFrame(f, f->currentFrame));
    if (st.chunk.entryType != f->info.audioTrackType) return TMX_ERR_INCONSISTENT;
  }
  const TMXFrameInfo& info = f->currentFrameInfo;
  const std::uint32_t header = f->adtsHeadersEnabled ? 7 : 0;
  if (std::uint64_t(info.size) + header > bufferSize) return TMX_ERR_BUFFER;
  if (header) WriteAdtsHeader(st.adtsTemplate, info.size + header, buffer);
  TMX_RETURN_IF_ERROR(MoveTo(f, info.offset));
  TMX_RETURN_IF_ERROR(Moved(f, AtomReadBytes(s, {buffer + header, info.size}), info.size));
  *length = info.size + header;
  StepAudio(f);
  return TMX_OK;
}

std::int32_t AdvanceFrame(Container* f) noexcept {
  Mp4State& st = State(f);
  if (f->currentFrameInfo.type != 0 && f->currentFrameInfo.type == f->info.audioTrackType) {
    StepAudio(f);
    return TMX_OK;
  }
  if (st.chunkIndex >= st.chunkCount) return TMX_ERR_END;
  if (ReadNextChunkHeader(f) == 0) return TMX_OK;
  f->currentFrame += 1;
  return SeekToFrame(f, f->currentFrame);
}

std::int32_t GetSampleInfo(Container* f, std::uint32_t trackType, std::uint32_t index,
                           TMXFrameInfo* info) noexcept {
  const Mp4State& st = State(f);
  const TrackRecord* track = nullptr;
  if (trackType == FourCC("text")) {
    if (st.hasChapterTextTrack) track = &st.chapterTextTrack;
  } else if (trackType == FourCC("tx3g")) {
    if (st.hasLinkTrack) track = &st.linkTrack;
  } else if (trackType == FourCC("jpeg")) {
    track = ChooseImageTrack(f, st);
  }
  if (!track) return TMX_ERR_NOT_FOUND;
  const TMXFrameInfo& current = f->currentFrameInfo;
  if (st.imageTrackCount > 0 && track == &st.imageTracks[0] && current.type == track->entryType &&
      current.index == index && current.size != 0) {
    *info = current;
    return TMX_OK;
  }
  TMXFrameInfo result{};
  result.type = trackType;
  result.index = index;
  const std::uint32_t j = index + ((track->flags & kLeadingExtraSample) ? 1 : 0);
  PositionGuard guard(f->stream);
  TMX_RETURN_IF_ERROR(LookUpSideSample(f, *track, j, &result));
  *info = result;
  return TMX_OK;
}

void ReleaseChunk(Container* file) noexcept { ClearChunk(State(file)); }

}  // namespace tmx::mp4
