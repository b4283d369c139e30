#include "writer/programme_view.h"

#include <gtest/gtest.h>

#include <sstream>

#include "io/stream_io.h"

namespace tmx::writer::test {

std::vector<std::uint8_t> MakeFrame(std::uint32_t index) {
  std::vector<std::uint8_t> frame(20 + (index * 37) % 200);
  for (std::size_t j = 0; j < frame.size(); ++j) frame[j] = std::uint8_t(index * 7 + j);
  return frame;
}

std::vector<std::vector<std::uint8_t>> MakeFrames(std::uint32_t count) {
  std::vector<std::vector<std::uint8_t>> frames;
  for (std::uint32_t i = 0; i < count; ++i) frames.push_back(MakeFrame(i));
  return frames;
}

ProgrammeSpec SpecWithFrames(std::uint32_t count) {
  ProgrammeSpec plan;
  plan.frames = MakeFrames(count);
  plan.audioSpecificConfig = kAsc22050Stereo;
  return plan;
}

std::vector<std::uint8_t> Write(const ProgrammeSpec& plan) {
  tmx::test::MemoryStream out;
  EXPECT_EQ(WriteProgramme(plan, out.stream()), 0);
  return out.data();
}

ProgrammeView::ProgrammeView(std::vector<std::uint8_t> bytes)
    : stream_(std::move(bytes)), bytes_(stream_.data()) {}

std::uint32_t ProgrammeView::U32(std::uint32_t pos) const {
  return pos + 4 <= bytes_.size() ? LoadBE32(&bytes_[pos]) : 0;
}
std::uint32_t ProgrammeView::U16(std::uint32_t pos) const {
  return pos + 2 <= bytes_.size() ? LoadBE16(&bytes_[pos]) : 0;
}
std::vector<std::uint8_t> ProgrammeView::Slice(std::uint32_t pos, std::uint32_t size) const {
  if (pos + size > bytes_.size()) return {};
  return {bytes_.begin() + pos, bytes_.begin() + pos + size};
}

std::vector<Atom> ProgrammeView::TopLevel() {
  return Children({0xFFFFFFF8u, std::uint32_t(bytes_.size() + 8), 0});
}

std::vector<Atom> ProgrammeView::Children(const Atom& parent) {
  std::uint32_t skip = 0;
  switch (parent.type) {
    case FourCC("meta"): skip = 4; break;
    case FourCC("stsd"): skip = 8; break;
    case FourCC("mp4a"): skip = 28; break;
    case FourCC("dref"): skip = 8; break;
    case FourCC("tx3g"): skip = 38; break;
  }
  std::vector<Atom> atoms;
  TMXStream* s = stream_.stream();
  std::uint32_t pos = parent.payload() + skip;
  while (pos + 8 <= parent.end()) {
    Atom a;
    a.pos = pos;
    EXPECT_EQ(s->ops->Seek(s, pos), 0);
    EXPECT_EQ(ReadAtomHeader(s, &a.size, &a.type), 0);
    if (a.size < 8 || a.end() > parent.end()) {
      ADD_FAILURE() << "atom at " << pos << " leaves its parent";
      break;
    }
    atoms.push_back(a);
    pos = a.end();
  }
  EXPECT_EQ(pos, parent.end()) << "children do not fill their parent";
  return atoms;
}

Atom ProgrammeView::Find(const std::string& path) {
  return Find({0xFFFFFFF8u, std::uint32_t(bytes_.size() + 8), 0}, path);
}

Atom ProgrammeView::Find(const Atom& from, const std::string& path) {
  Atom here = from;
  std::istringstream parts(path);
  std::string part;
  while (std::getline(parts, part, '/')) {
    const std::uint32_t type = LoadBE32(reinterpret_cast<const std::uint8_t*>(part.c_str()));
    bool found = false;
    for (const Atom& a : Children(here)) {
      if (a.type == type) {
        here = a;
        found = true;
        break;
      }
    }
    if (!found) {
      ADD_FAILURE() << "no " << part << " in " << path;
      return {};
    }
  }
  return here;
}

std::vector<Atom> ProgrammeView::Tracks() {
  std::vector<Atom> tracks;
  for (const Atom& a : Children(Find("moov"))) {
    if (a.type == FourCC("trak")) tracks.push_back(a);
  }
  return tracks;
}

std::uint32_t ProgrammeView::SampleEntryType(const Atom& trak) {
  return Children(Find(trak, "mdia/minf/stbl/stsd")).at(0).type;
}

std::vector<std::uint32_t> ProgrammeView::Entries(const Atom& trak, const char* table,
                                                  std::uint32_t width) {
  const Atom t = Find(trak, std::string("mdia/minf/stbl/") + table);
  const std::uint32_t count = U32(t.payload() + 4);
  EXPECT_EQ(t.size, 16 + count * width * 4) << table << " size";
  std::vector<std::uint32_t> values;
  for (std::uint32_t i = 0; i < count * width; ++i) values.push_back(U32(t.payload() + 8 + 4 * i));
  return values;
}

std::vector<std::uint32_t> ProgrammeView::SampleSizes(const Atom& trak) {
  const Atom t = Find(trak, "mdia/minf/stbl/stsz");
  EXPECT_EQ(U32(t.payload() + 4), 0u) << "fixed sample size";
  const std::uint32_t count = U32(t.payload() + 8);
  EXPECT_EQ(t.size, 20 + 4 * count);
  std::vector<std::uint32_t> sizes;
  for (std::uint32_t i = 0; i < count; ++i) sizes.push_back(U32(t.payload() + 12 + 4 * i));
  return sizes;
}

std::vector<std::uint32_t> ProgrammeView::ChunkOffsets(const Atom& trak) {
  return Entries(trak, "stco", 1);
}

}  // namespace tmx::writer::test
