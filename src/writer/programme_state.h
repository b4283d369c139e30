// What the parts of the programme writer share: its constants, the side
// tracks being written, and the writer's state. The state's work is spread
// over programme_writer.cc (checks, start and finish, the public interface),
// programme_audio.cc (audio chunks and the audio track), programme_side.cc
// (chapter-title, link and picture samples and tracks) and programme_movie.cc
// ("moov", the boxes every track has, and the metadata list).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "writer/block.h"
#include "writer/output.h"
#include "writer/writer.h"

namespace tmx::writer {

inline constexpr std::uint32_t kSamplesPerFrame = 1024;
inline constexpr std::uint32_t kMaxFramesPerChunk = 4096;
inline constexpr std::uint32_t kMaxFrameSize = 1u << 20;
inline constexpr std::uint32_t kAudioTrackId = 1;
inline constexpr std::uint32_t kMovieTimescale = 1000;
inline constexpr std::uint32_t kLanguageUnd = 0x55C4;  // "und", packed 5 bits a letter

// "tkhd" flags: enabled, in the movie, and the main track of its kind.
inline constexpr std::uint32_t kTrackEnabled = 0x1;
inline constexpr std::uint32_t kTrackInMovie = 0x2;
inline constexpr std::uint32_t kMainTrack = 0x1000;

// The "encd" box closing a chapter title: text encoding UTF-8. Its first
// byte is zero, which also ends a title read one byte too far.
inline constexpr std::uint32_t kEncdBoxSize = 12;
// An "href" box without the address: size, type, start and end character,
// address length, and after the address the length of an empty alternate
// text.
inline constexpr std::uint32_t kHrefBoxFixedSize = 14;
inline constexpr std::uint32_t kSideChunkHeaderSize = 32;

// Milliseconds of a frame count, truncating the rate to a multiple of 25 as
// the reader does, so that chunk headers agree with what it reports.
inline std::uint32_t FramesToMs(std::uint64_t frames, std::uint32_t sampleRate) {
  const std::uint64_t d = sampleRate / 25;
  return d == 0 ? 0 : std::uint32_t(frames * kSamplesPerFrame * 40 / d);
}

enum class SideKind { kText, kLink, kPicture };

// A chapter-title, link or picture track being written: which list entries
// it takes, how far it got, and where its samples went.
struct SideTrack {
  SideKind kind = SideKind::kText;
  std::uint32_t entryType = 0;
  std::uint32_t trackId = 0;
  std::uint32_t quality = 0;  // pictures: 0..3
  bool main = false;
  std::uint32_t count = 0;    // samples
  std::uint32_t written = 0;  // samples written so far
  std::size_t cursor = 0;     // list index of the next sample
  Block<std::uint32_t> offsets;
};

struct ProgrammeWriter::State {
  Output out;
  Spool spool;  // per audio chunk: its offset, then the sizes of its frames
  AudioConfig audio;
  const SideTracks* side = nullptr;
  WriterOptions options;

  std::array<SideTrack, 6> tracks;  // chapter titles, links, four picture levels
  std::uint32_t trackCount = 0;

  // The audio chunk being gathered.
  Block<std::uint8_t> chunk;
  std::size_t chunkUsed = 0;
  Block<std::uint32_t> chunkSizes;
  std::uint32_t chunkFrames = 0;

  std::uint64_t frames = 0;
  std::uint32_t chunks = 0;
  std::uint32_t lastChunkFrames = 0;
  std::uint32_t penultimateChunkFrames = 0;  // 0 when it holds framesPerChunk
  std::uint64_t audioBytes = 0;
  std::uint32_t largestFrame = 0;

  // Frame sizes of the last second, for the peak bit rate.
  std::array<std::uint32_t, 128> window{};
  std::uint32_t windowLength = 1;
  std::uint64_t windowBytes = 0;
  std::uint64_t peakWindowBytes = 0;

  std::uint32_t mdatStart = 0;
  // The first failure to read the spool back while "moov" is written.
  std::int32_t spoolStatus = 0;

  // Start and finish (programme_writer.cc).
  std::int32_t Begin(TMXStream* stream);
  std::int32_t Finish();
  void WriteFileType();

  // Audio (programme_audio.cc).
  std::int32_t Add(std::span<const std::uint8_t> frame);
  std::int32_t WriteChunk(bool last);
  std::int32_t SplitOffLastFrame();
  std::uint32_t FramesInChunk(std::uint32_t c) const;
  void WriteAudioTrack();
  void WriteAudioSampleEntry();
  void WriteEsds();
  void WriteAudioTables();

  // Chapter titles, links and pictures (programme_side.cc).
  void AddSideTrack(SideKind kind, std::uint32_t entryType, std::uint32_t quality,
                    std::uint32_t count, bool main);
  std::uint64_t SampleFrame(const SideTrack& t, std::size_t listIndex) const;
  std::uint32_t SampleSize(const SideTrack& t, std::size_t listIndex) const;
  std::size_t NextIndex(const SideTrack& t, std::size_t from) const;
  std::size_t ListSize(const SideTrack& t) const;
  std::int32_t WriteSideSamples(std::uint64_t upToFrame, bool all);
  void WriteSideSample(SideTrack& t);
  void WriteSideTrack(const SideTrack& t);
  void WriteSideSampleEntry(const SideTrack& t);
  void WriteSideTables(const SideTrack& t);

  // "moov" and the boxes of every track (programme_movie.cc).
  void WriteMovie();
  void WriteMovieHeader();
  void WriteTrackHeader(std::uint32_t id, std::uint32_t flags, std::uint32_t alternateGroup,
                        std::uint32_t volume, std::uint32_t width, std::uint32_t height);
  void WriteMediaHeader(std::uint64_t duration, std::uint32_t quality);
  void WriteHandler(std::uint32_t type, const char* name);
  void WriteDataInformation();
  void WriteMetadata();

  std::uint64_t AudioDuration() const { return frames * kSamplesPerFrame; }
  std::uint32_t DurationMs() const {
    return std::uint32_t(AudioDuration() * kMovieTimescale / audio.sampleRate);
  }
};

}  // namespace tmx::writer
