// What the MP4 reader keeps about an open programme, beside the fields of
// the container record itself.
#pragma once

#include <cstdint>

#include "container/container.h"
#include "container/mp4/atom.h"

namespace tmx::mp4 {

// Track flag bits.
inline constexpr std::uint32_t kMainTrackFlag = 0x1000;     // main track of its kind
inline constexpr std::uint32_t kQualityMask = 0xC0;         // image quality level
inline constexpr std::uint32_t kLeadingExtraSample = 0x10;  // first sample is no image

struct TrackRecord {
  std::uint32_t trackId;
  std::uint32_t entryType;  // first recognised sample entry, 0 when none
  std::uint32_t flags;
  std::uint32_t alternateGroup;
  std::uint32_t trakPos;  // position of the "trak" header
  std::uint32_t stblPos;  // position of the "stbl" header
};

// The chunk the reader stands in: the header stored before the chunk's
// samples (or built from the tables after a seek) and its sample sizes.
struct ChunkHeader {
  std::uint32_t headerSize;
  std::uint32_t entryType;
  std::uint32_t startMs;
  std::uint32_t firstSample;
  std::uint32_t trackId;
  std::uint32_t totalSize;
  std::uint32_t sampleCount;
  std::uint32_t* sizes;   // sampleCount entries, owned
  std::uint32_t dataPos;  // position of the chunk's first sample
};

struct Mp4State {
  std::uint32_t streamSize;  // as the stream reported it at open
  AtomRange movie;           // payload of "moov", inside the file
  TrackRecord audioTrack;
  std::uint32_t hasChapterTextTrack;  // bool
  TrackRecord chapterTextTrack;
  std::uint32_t hasLinkTrack;  // bool
  TrackRecord linkTrack;
  TrackRecord* imageTracks;  // imageTrackCount records, owned
  std::uint32_t imageTrackCount;
  std::uint32_t metadataListPos;  // file-level "ilst" header, 0 when none
  // Per-chapter item lists would follow one another from here; the reader
  // never finds such a place, so chapter metadata stays unavailable.
  std::uint32_t chapterMetadataPos;
  std::uint32_t* chapterListPos;  // chapterCount entries, built on first use
  std::uint32_t brandMinorVersion;

  // Audio sample tables: positions of their entries, never loaded whole.
  std::uint32_t stscCount;
  std::uint32_t stscEntriesPos;
  std::uint32_t stszEntriesPos;
  std::uint32_t stszTableCount;
  std::uint32_t fixedSampleSize;
  std::uint32_t stcoEntriesPos;
  std::uint32_t chunkCount;

  // Where the reader left the stream. Sequential reading then needs no Tell
  // or Seek between frames; every lookup elsewhere restores the position it
  // found, which keeps this right.
  std::uint32_t readerPos;
  std::uint32_t readerPosKnown;  // bool

  // Reader position (the next audio sample is Container::currentFrame).
  ChunkHeader chunk;
  std::uint32_t sampleInChunk;
  std::uint32_t chunkIndex;
  std::uint32_t samplesInChunk;

  // Audio sample description.
  std::uint16_t audioSpecificConfig;
  std::uint8_t adtsTemplate[7];
};

inline Mp4State& State(Container* file) noexcept { return *static_cast<Mp4State*>(file->state); }
inline const Mp4State& State(const Container* file) noexcept {
  return *static_cast<const Mp4State*>(file->state);
}

}  // namespace tmx::mp4
