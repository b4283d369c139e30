// Test helpers: programmes of synthetic AAC frames written into memory, and a
// view of a written programme that walks its atoms.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "support/memory_stream.h"
#include "support/mp4_builder.h"
#include "writer/writer.h"

namespace tmx::writer::test {

using ::tmx::test::ByteVec;

// AudioSpecificConfig of AAC-LC, 22050 Hz, two channels.
inline const ByteVec kAsc22050Stereo = {0x13, 0x90};

// `count` frames of varying sizes (the content does not matter to the
// container).
inline ProgrammeSpec SpecWithFrames(std::uint32_t count) {
  ProgrammeSpec plan;
  plan.frames = ::tmx::test::MakeFrames(count);
  plan.audioSpecificConfig = kAsc22050Stereo;
  return plan;
}

// Writes a programme into memory; fails the test on a non-zero result.
inline ByteVec Write(const ProgrammeSpec& plan) {
  ::tmx::test::MemoryStream out;
  EXPECT_EQ(WriteProgramme(plan, out.stream()), 0);
  return out.data();
}

struct Atom {
  std::uint32_t pos, size, type;
  std::uint32_t payload() const { return pos + 8; }
  std::uint32_t end() const { return pos + size; }
};

class ProgrammeView {
 public:
  explicit ProgrammeView(ByteVec bytes) : bytes_(std::move(bytes)) {}

  std::uint32_t U32(std::uint32_t pos) const { return ::tmx::test::Be32At(bytes_, pos); }
  ByteVec Slice(std::uint32_t pos, std::uint32_t size) const {
    if (pos + size > bytes_.size()) return {};
    return {bytes_.begin() + pos, bytes_.begin() + pos + size};
  }
  Atom Top() const { return {0xFFFFFFF8u, std::uint32_t(bytes_.size() + 8), 0}; }

  // The atoms inside `parent`, skipping what precedes them in full atoms,
  // sample descriptions and bookmark lists; they must fill it.
  std::vector<Atom> Children(const Atom& parent) const {
    std::uint32_t pos = parent.payload();
    for (std::uint32_t type : {FourCC("meta"), FourCC("bmet"), FourCC("blst"), FourCC("bmrk")})
      if (parent.type == type) pos += 4;
    if (parent.type == FourCC("stsd") || parent.type == FourCC("dref")) pos += 8;
    std::vector<Atom> atoms;
    while (pos + 8 <= parent.end()) {
      const Atom a{pos, U32(pos), U32(pos + 4)};
      if (a.size < 8 || a.end() > parent.end()) break;
      atoms.push_back(a);
      pos = a.end();
    }
    EXPECT_EQ(pos, parent.end()) << "children do not fill their parent";
    return atoms;
  }
  // The first atom of each type along `path` ("moov/trak/mdia"), starting
  // inside `from`. Fails the test and returns an empty atom when it is missing.
  Atom Find(const std::string& path) const { return Find(Top(), path); }
  Atom Find(const Atom& from, const std::string& path) const {
    Atom here = from;
    std::istringstream parts(path);
    for (std::string part; std::getline(parts, part, '/');) {
      const std::uint32_t type = ::tmx::test::Be32At(::tmx::test::V(part), 0);
      const std::vector<Atom> children = Children(here);
      const auto it = std::find_if(children.begin(), children.end(),
                                   [&](const Atom& a) { return a.type == type; });
      if (it == children.end()) {
        ADD_FAILURE() << "no " << part << " in " << path;
        return {0, 0, 0};
      }
      here = *it;
    }
    return here;
  }
  std::vector<Atom> Tracks() const {
    std::vector<Atom> tracks = Children(Find("moov"));
    std::erase_if(tracks, [](const Atom& a) { return a.type != FourCC("trak"); });
    return tracks;
  }

  // Table contents of a track.
  std::uint32_t SampleEntryType(const Atom& trak) const {
    return Children(Find(trak, "mdia/minf/stbl/stsd")).at(0).type;
  }
  // (count, delta) and (first chunk, samples, description) triples flattened;
  // sizes ("stsz", no fixed size) and chunk offsets ("stco").
  std::vector<std::uint32_t> Entries(const Atom& trak, const char* table,
                                     std::uint32_t width = 1) const {
    const Atom t = Find(trak, std::string("mdia/minf/stbl/") + table);
    const std::uint32_t skip = table == std::string("stsz") ? 4 : 0;
    EXPECT_EQ(skip ? U32(t.payload() + 4) : 0, 0u) << "fixed sample size";
    const std::uint32_t count = U32(t.payload() + 4 + skip);
    EXPECT_EQ(t.size, 16 + skip + count * width * 4) << table << " size";
    std::vector<std::uint32_t> values;
    for (std::uint32_t i = 0; i < count * width; ++i)
      values.push_back(U32(t.payload() + 8 + skip + 4 * i));
    return values;
  }

 private:
  ByteVec bytes_;
};

}  // namespace tmx::writer::test
