// Builds small MP4-based programmes byte by byte, so that tests can shape
// every atom: versions, capitals, flags, missing or corrupt pieces.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace tmx::test {

using ByteVec = std::vector<std::uint8_t>;

// An atom of `type` (exactly four characters) around a payload.
ByteVec Atom(const std::string& type, const ByteVec& payload);
// An atom whose payload is its children, concatenated.
ByteVec Box(const std::string& type, std::initializer_list<ByteVec> children);
// A full atom: version, 24-bit flags, then the payload.
ByteVec FullAtom(const std::string& type, std::uint8_t version, std::uint32_t flags,
                 const ByteVec& payload);
ByteVec Concat(std::initializer_list<ByteVec> parts);
ByteVec Be16(std::uint16_t v);
ByteVec Be32(std::uint32_t v);
inline ByteVec V(const std::string& s) { return ByteVec(s.begin(), s.end()); }
// Reads (0 past the end) or overwrites the big-endian word at `at`.
std::uint32_t Be32At(const ByteVec& b, std::size_t at);
void Put32(ByteVec& b, std::size_t at, std::uint32_t v);

using Runs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

struct TrackSpec {
  std::uint32_t id = 1;
  std::string entry = "mp4a";  // sample entry type
  std::uint32_t tkhdFlags = 0x1007;
  std::uint16_t alternateGroup = 0;
  std::uint16_t qualityField = 0;  // the 16-bit field after the language code in "mdhd"
  std::uint32_t timescale = 22050;
  std::uint8_t version = 0;  // of "tkhd" and "mdhd"
  bool pngFirst = false;     // a "png " sample entry before the recognised one
  std::vector<ByteVec> samples;
  Runs stts;  // (count, delta); empty means one entry of 1024 per sample
  Runs stsc;  // (first chunk, samples per chunk); empty means samplesPerChunk
  std::uint32_t samplesPerChunk = 1;
  std::vector<std::uint32_t> chap;  // track IDs named by "tref"/"chap"
};

struct ProgrammeSpec {
  std::string brand = "tmx ";
  std::string ftypType = "ftyp";
  std::uint8_t mvhdVersion = 0;
  std::uint16_t audioSpecificConfig = 0x1390;  // AAC LC, 22050 Hz, stereo
  std::uint32_t maxBitrate = 64000;
  std::uint32_t avgBitrate = 48000;
  ByteVec ilst;                   // payload of a file-level "ilst"; no "udta" when empty
  std::vector<TrackSpec> tracks;  // tracks[0] is the audio track
};

// One chunk as stored in the media data: its track (an index into
// ProgrammeSpec::tracks) and the position of its chunk header.
struct ChunkInfo {
  std::uint32_t track, headerPos;
};

struct Programme {
  ByteVec bytes;
  std::vector<ChunkInfo> chunks;
};

// Lays out ftyp, moov and mdat; chunks of all tracks are interleaved by
// start time, each behind its chunk header.
Programme BuildProgramme(const ProgrammeSpec& plan);

// Frames of `n` samples whose sizes and bytes vary with the index.
std::vector<ByteVec> MakeFrames(std::uint32_t n, std::uint32_t baseSize = 100);

// A chapter-title sample: 16-bit length and the text.
ByteVec TextSample(const std::string& text);

}  // namespace tmx::test
