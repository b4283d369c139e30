#include "bookmarks/bookmark_support.h"

#include "writer/writer.h"

namespace tmx::test {

const ByteVec& ProgrammeBytes(const std::string& pid, std::uint32_t frames) {
  static std::map<std::pair<std::string, std::uint32_t>, ByteVec> cache;
  ByteVec& bytes = cache[{pid, frames}];
  if (bytes.empty()) {
    writer::ProgrammeSpec plan;
    plan.frames = MakeFrames(frames, 6);
    plan.audioSpecificConfig = {0x13, 0x90};
    plan.options.framesPerChunk = 50;
    plan.side.metadata = {writer::TextItem(writer::kItemTitle, "A Title")};
    if (!pid.empty()) plan.side.metadata.push_back(writer::TextItem(writer::kItemProductId, pid));
    MemoryStream out;
    EXPECT_EQ(writer::WriteProgramme(plan, out.stream()), TMX_OK);
    bytes = out.data();
  }
  return bytes;
}


std::string TypeAt(const ByteVec& b, std::size_t at) {
  return at + 8 > b.size() ? "????" : std::string(b.begin() + at + 4, b.begin() + at + 8);
}

Session::Session(const ByteVec& programme, ByteVec position)
    : programme_(std::make_unique<MemoryStream>(programme)),
      position_(std::make_unique<MemoryStream>(std::move(position))) {
  EXPECT_EQ(TMXOpenFile(&file_, programme_->stream(), position_->stream()), TMX_OK);
}

void Session::Close() {
  if (file_) TMXCloseFile(file_);
  file_ = nullptr;
}

namespace {

// Calls visit(pos, size, type) for the atoms of [begin, end), which must
// fill it exactly.
template <class Visit>
void Walk(const ByteVec& b, std::uint32_t begin, std::uint32_t end, Visit&& visit) {
  for (std::uint32_t pos = begin; pos < end;) {
    const std::uint32_t size = Be32At(b, pos);
    ASSERT_TRUE(size >= 8 && size <= end - pos) << "atom at " << pos << " of size " << size;
    visit(pos, size, TypeAt(b, pos));
    pos += size;
  }
}

// The live items of a "blst" or "bmrk": type to the value of its "data".
std::map<std::uint32_t, ByteVec> Items(const ByteVec& b, std::uint32_t begin, std::uint32_t end) {
  std::map<std::uint32_t, ByteVec> items;
  Walk(b, begin, end, [&](std::uint32_t pos, std::uint32_t size, const std::string& type) {
    if (type == "free") return;
    EXPECT_EQ(TypeAt(b, pos + 8), "data");
    EXPECT_EQ(Be32At(b, pos + 8), size - 8);
    EXPECT_FALSE(items.count(Be32At(b, pos + 4))) << "two items of one type";
    items[Be32At(b, pos + 4)] = ByteVec(b.begin() + pos + 24, b.begin() + pos + size);
  });
  return items;
}

std::uint32_t Find(const ByteVec& b, std::uint32_t begin, std::uint32_t end, const char* type) {
  std::uint32_t found = 0;
  Walk(b, begin, end, [&](std::uint32_t pos, std::uint32_t, const std::string& t) {
    if (t == type && !found) found = pos;
  });
  EXPECT_NE(found, 0u) << "no " << type;
  return found;
}

}  // namespace

ParsedList ParseList(const ByteVec& b) {
  ParsedList l;
  const std::uint32_t start = TypeAt(b, 0) == "ftyp" ? 0 : 16;
  if (!(l.moov = Find(b, start, std::uint32_t(b.size()), "moov"))) return l;
  const std::uint32_t end = l.moov + Be32At(b, l.moov);
  if (!(l.udta = Find(b, l.moov + 8, end, "udta"))) return l;
  if (!(l.bmet = Find(b, l.udta + 8, end, "bmet"))) return l;
  EXPECT_EQ(l.udta + Be32At(b, l.udta), end);
  EXPECT_EQ(l.bmet + Be32At(b, l.bmet), end);
  Walk(b, l.bmet + 12, end, [&](std::uint32_t pos, std::uint32_t size, const std::string& type) {
    EXPECT_EQ(l.freePos, 0u) << "an atom behind the trailing free atom at " << pos;
    if (pos == l.bmet + 12) {
      EXPECT_EQ(type, "blst");
      Items(b, pos + 12, pos + size);
    } else if (type == "bmrk") {
      l.bookmarks.push_back({pos, Be32At(b, pos + 8), Items(b, pos + 12, pos + size)});
    } else {
      EXPECT_EQ(type, "free");
      l.freePos = pos;
      l.freeSize = size;
    }
  });
  EXPECT_NE(l.freePos, 0u) << "no trailing free atom";
  return l;
}

}  // namespace tmx::test
