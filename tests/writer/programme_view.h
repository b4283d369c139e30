// Test helpers: synthetic AAC frames, and a view of a written programme that
// walks its atoms through the stream helpers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/memory_stream.h"
#include "writer/writer.h"

namespace tmx::writer::test {

// Deterministic frames of varying sizes (the content does not matter to the
// container).
std::vector<std::uint8_t> MakeFrame(std::uint32_t index);
std::vector<std::vector<std::uint8_t>> MakeFrames(std::uint32_t count);

// AudioSpecificConfig of AAC-LC, 22050 Hz, two channels.
inline const std::vector<std::uint8_t> kAsc22050Stereo = {0x13, 0x90};

struct Atom {
  std::uint32_t pos = 0;
  std::uint32_t size = 0;
  std::uint32_t type = 0;
  std::uint32_t payload() const { return pos + 8; }
  std::uint32_t end() const { return pos + size; }
};

class ProgrammeView {
 public:
  explicit ProgrammeView(std::vector<std::uint8_t> bytes);

  const std::vector<std::uint8_t>& bytes() { return stream_.data(); }
  std::uint32_t U32(std::uint32_t pos) const;
  std::uint32_t U16(std::uint32_t pos) const;
  std::uint8_t U8(std::uint32_t pos) const { return bytes_[pos]; }
  std::vector<std::uint8_t> Slice(std::uint32_t pos, std::uint32_t size) const;

  std::vector<Atom> TopLevel();
  // The atoms inside `parent`, skipping what precedes them in full atoms and
  // sample descriptions.
  std::vector<Atom> Children(const Atom& parent);
  // The first atom of each type along `path` ("moov/trak/mdia"), starting
  // inside `from` or at the top level. Fails the test and returns an empty
  // atom when it is missing.
  Atom Find(const std::string& path);
  Atom Find(const Atom& from, const std::string& path);
  std::vector<Atom> Tracks();

  // Table contents of a track.
  std::uint32_t TrackId(const Atom& trak) { return U32(Find(trak, "tkhd").payload() + 12); }
  std::uint32_t SampleEntryType(const Atom& trak);
  std::vector<std::uint32_t> SampleSizes(const Atom& trak);
  std::vector<std::uint32_t> ChunkOffsets(const Atom& trak);
  // (count, delta) and (first chunk, samples, description) triples flattened.
  std::vector<std::uint32_t> Entries(const Atom& trak, const char* table, std::uint32_t width);

 private:
  ::tmx::test::MemoryStream stream_;
  const std::vector<std::uint8_t>& bytes_;
};

// Writes a programme into memory; fails the test on a non-zero result.
std::vector<std::uint8_t> Write(const ProgrammeSpec& plan);
ProgrammeSpec SpecWithFrames(std::uint32_t count);

}  // namespace tmx::writer::test
