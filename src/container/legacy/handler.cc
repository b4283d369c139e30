#include "container/legacy/handler.h"

#include <algorithm>

#include "codec/codec.h"
#include "container/legacy/legacy_state.h"
#include "container/legacy/records.h"
#include "container/legacy/segments.h"
#include "metadata/key_table.h"
#include "util/alloc.h"
#include "util/frame_time.h"
#include "util/status.h"

namespace tmx::legacy {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;
constexpr std::uint32_t kPictureKind = 16;
constexpr std::uint32_t kSaveSeconds = 30;

struct CodecParameters {
  std::uint32_t codecId;
  std::uint32_t sampleType;  // audioTrackType, 0 for none
  std::uint32_t bitrate;     // bit/s
  std::uint32_t bytesPerFrame;
  std::uint32_t samplesPerFrame;
  std::uint32_t sampleRate;
};

constexpr CodecParameters kCodecs[] = {
    {0xC00C, FourCC("ace3"), 16000, 20, 160, 16000},
    {0xC00D, FourCC("mp3 "), 31850, 104, 576, 22050},
    {0xC010, FourCC("ace2"), 8444, 19, 144, 8000},
    {0xC013, 0, 16000, kNone, 1024, 16000},
    {1, 0, 0, kNone, 240, 8000},
};
constexpr CodecParameters kUnknownCodec = {0, 0, 0, kNone, kNone, kNone};

const CodecParameters& ParametersFor(std::uint32_t codecId) noexcept {
  for (const CodecParameters& c : kCodecs)
    if (c.codecId == codecId) return c;
  return kUnknownCodec;
}

// The codec id that detection found for the file type; 0 for other types.
std::uint32_t CodecIdForFileType(std::uint32_t fileType) noexcept {
  switch (fileType) {
    case TMX_FILETYPE_LEGACY_C00D: return 0xC00D;
    case TMX_FILETYPE_LEGACY_C00C: return 0xC00C;
    case TMX_FILETYPE_LEGACY_C010: return 0xC010;
    default: return 0;
  }
}

void Release(Container* f) noexcept {
  Free(f->info.chapterStartFrames);
  f->info.chapterStartFrames = nullptr;
  f->info.chapterCount = 0;
  if (f->state) {
    Free(State(f).segments);
    Free(f->state);
    f->state = nullptr;
  }
}

// Fills the file's audio properties from the codec's parameters and the
// audio size.
std::int32_t ApplyCodec(Container* f) noexcept {
  LegacyState& st = State(f);
  const CodecParameters& c = ParametersFor(st.codecId);
  if (c.samplesPerFrame == 0) return TMX_ERR_INCONSISTENT;
  st.bytesPerFrame = c.bytesPerFrame;
  f->info.audioTrackType = c.sampleType;
  f->info.avgBitrate = c.bitrate;
  f->info.maxBitrate = c.bitrate;
  f->info.sampleRate = c.sampleRate;
  f->info.samplesPerFrame = c.samplesPerFrame;
  f->info.channelCount = 1;
  f->info.frameCount = st.audioSize / c.bytesPerFrame;
  // Whole tenths of a second, rounded down on purpose.
  const std::uint32_t tenthRate = c.sampleRate / 10;
  f->info.duration =
      tenthRate == 0
          ? 0
          : std::uint32_t(std::uint64_t(f->info.frameCount) * c.samplesPerFrame / tenthRate * 100);
  // About thirty seconds of frames between two saves of the position.
  f->info.positionSaveInterval =
      std::int32_t(std::uint64_t(c.bitrate) * kSaveSeconds / (std::uint64_t(c.bytesPerFrame) * 8));
  for (std::uint32_t i = 0; i < f->info.chapterCount; ++i)
    f->info.chapterStartFrames[i] /= c.bytesPerFrame;
  return TMX_OK;
}

std::int32_t Parse(Container* f, TMXStream* s) noexcept {
  LegacyState& st = State(f);
  TMX_RETURN_IF_ERROR(ReadTableOfContents(f, s));
  TMX_RETURN_IF_ERROR(ReadHeaderRecord(f));
  TMX_RETURN_IF_ERROR(ReadAudioRecord(f));
  // Detection took the codec id from the same place as the first chapter's;
  // with no chapters that id stands. A table whose later chapter list
  // names another codec would pair the decoder with the wrong frames.
  const std::uint32_t detected = CodecIdForFileType(f->fileType);
  st.codecId = detected;
  TMX_RETURN_IF_ERROR(ReadChapterList(f));
  if (detected != 0 && st.codecId != detected) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(ApplyCodec(f));
  TMX_RETURN_IF_ERROR(LoadNextSegment(f));
  return SeekToFrame(f, 0);
}

std::int32_t OpenContainer(Container* f, TMXStream* s) noexcept {
  auto* state = AllocObject<LegacyState>();
  if (!state) return TMX_ERR_MEMORY;
  f->state = state;
  f->stream = s;
  const std::int32_t rc = Parse(f, s);
  if (rc != 0) Release(f);
  return rc;
}

std::int32_t CloseContainer(Container* f) noexcept {
  Release(f);
  return TMX_OK;
}

// The container has a single locale, 0.
std::int32_t GetMetadataLocaleList(Container* f, std::uint32_t* locales,
                                   std::uint32_t* count) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!locales || !count) return TMX_ERR_ARGUMENT;
  // An array without room is not written to.
  const std::uint32_t capacity = *count;
  *count = 1;
  if (capacity == 0) return TMX_ERR_BUFFER;
  locales[0] = 0;
  return TMX_OK;
}

// Only file-level metadata exists: the dictionary, and the cover picture
// in a record of its own.
std::int32_t GetMetadataItem(Container* f, std::uint32_t chapter, std::uint32_t key,
                             std::uint32_t* locale, std::uint32_t* kind, std::uint32_t* offset,
                             std::uint32_t* size) noexcept {
  *size = 0;
  *kind = 0;
  if (chapter != kFileLevel) return TMX_ERR_INDEX;
  if (key == kCoverKey) {
    TMX_RETURN_IF_ERROR(FindCover(f, offset, size));
    *kind = kPictureKind;
  } else {
    TMX_RETURN_IF_ERROR(FindDictionaryValue(f, DictionaryNameForKey(key), offset, size));
  }
  *locale = 0;
  return TMX_OK;
}

// Decodes the input block by block, each block one frame of the container.
// A block is decoded only where the room left takes its whole PCM output,
// so the decoder never writes past the caller's buffer.
std::int32_t DecodeFrame(Container* f, const Codec* codec, void* instance, const std::uint8_t* data,
                         std::uint32_t length, std::int16_t* pcm, std::uint32_t capacity,
                         std::uint32_t* pcmLength) noexcept {
  *pcmLength = capacity;
  const std::uint32_t block = State(f).bytesPerFrame;
  const std::uint64_t blockPcm = std::uint64_t(f->info.samplesPerFrame) * 2;  // mono, 16-bit
  if (length >= block && capacity < blockPcm) {
    *pcmLength = 0;
    return TMX_ERR_BUFFER;
  }
  std::uint32_t produced = 0, previous = 0;
  std::int32_t rc = TMX_OK;
  for (std::uint32_t used = 0; rc == 0 && length - used >= block; used += block) {
    const std::uint32_t room = capacity - produced;
    if (room < previous || room < blockPcm) break;
    std::uint32_t got = 0;
    rc = codec->DecodeFrame(instance, data + used, block, pcm + produced / 2, room, &got);
    // Whole samples, never more than the room offered.
    got = std::min(got, room) & ~1u;
    produced += got;
    previous = got;
  }
  *pcmLength = produced;
  return rc;
}

// There are no side tracks: a chapter is described by its index and start
// time alone (the index converted as if it were a frame index), every other
// track type by an empty record.
std::int32_t GetSampleInfo(Container* f, std::uint32_t trackType, std::uint32_t index,
                           TMXFrameInfo* info) noexcept {
  *info = {};
  if (trackType == FourCC("text")) {
    *info = {trackType, FramesToMs(index, f->info.sampleRate, f->info.samplesPerFrame),
             index,     0,
             0,         kSampleFlags};
  }
  return TMX_OK;
}

}  // namespace

const FormatHandler kHandler = {OpenContainer,    CloseContainer, GetMetadataLocaleList,
                                GetMetadataItem,  SeekToFrame,    AdvanceFrame,
                                ReadEncodedFrame, DecodeFrame,    GetSampleInfo};

}  // namespace tmx::legacy
