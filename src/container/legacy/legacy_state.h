// What the reader of the older single-file container keeps about an open
// programme, beside the fields of the container record itself.
#pragma once

#include <cstdint>

#include "container/container.h"

namespace tmx::legacy {

inline constexpr std::uint32_t kMagic = 0x57907536;
// Table-of-contents types the reader keeps; higher types are dropped.
inline constexpr std::uint32_t kRecordTypes = 12;
inline constexpr std::uint32_t kFileLevel = 0xFFFFFFFF;

// Record types.
inline constexpr std::uint32_t kRecordHeader = 1;
inline constexpr std::uint32_t kRecordDictionary = 2;
inline constexpr std::uint32_t kRecordAudio = 3;
inline constexpr std::uint32_t kRecordChapters = 6;
inline constexpr std::uint32_t kRecordFirstSegment = 10;
inline constexpr std::uint32_t kRecordCover = 11;

// Flags of every sample this container describes.
inline constexpr std::uint32_t kSampleFlags = 0x1001;

struct Record {
  std::uint32_t offset;
  std::uint32_t size;
  std::uint32_t present;  // bool
};

// One audio segment: its data's position in the file and its length.
struct Segment {
  std::uint32_t dataPos;
  std::uint32_t size;
};

// Where the reader stands: inside segment `index`, `inner` bytes into its
// data, with `start` audio bytes in the segments before it.
struct ReaderPos {
  std::uint32_t index;
  std::uint32_t inner;
  std::uint64_t start;
};

struct LegacyState {
  // The file's end for every bound: the header's size word, which equals the
  // stream's size whenever the stream knows it; 0xFFFFFFFF for a stream that
  // does not know its size.
  std::uint32_t fileEnd;
  Record records[kRecordTypes];

  std::uint32_t codecId;
  std::uint32_t bytesPerFrame;  // also the decoder's block size
  std::uint32_t audioSize;      // bytes of audio the segments hold

  // Segments loaded so far; the chain is followed lazily until it holds
  // the whole audio.
  Segment* segments;
  std::uint32_t segmentCount;
  std::uint32_t segmentCapacity;
  std::uint64_t loadedBytes;    // data bytes of the segments loaded
  std::uint32_t chainComplete;  // bool: the segments loaded hold all audio

  ReaderPos pos;  // of Container::currentFrame
  // The current segment seen as a chunk of the audio track: its first
  // frame and its frame count.
  std::uint32_t chunkFirstFrame;
  std::uint32_t chunkFrameCount;
};

inline LegacyState& State(Container* file) noexcept {
  return *static_cast<LegacyState*>(file->state);
}

}  // namespace tmx::legacy
