#include "bookmarks/bookmark_support.h"

#include "writer/programme_view.h"

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
    bytes = writer::test::Write(plan);
  }
  return bytes;
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

using Node = writer::test::Atom;

// The live items of a "blst" or "bmrk": type to the value of its "data".
std::map<std::uint32_t, ByteVec> Items(const writer::test::ProgrammeView& view,
                                       const Node& parent) {
  std::map<std::uint32_t, ByteVec> items;
  for (const Node& a : view.Children(parent)) {
    if (a.type == FourCC("free")) continue;
    EXPECT_EQ(view.U32(a.payload() + 4), FourCC("data"));
    EXPECT_EQ(view.U32(a.payload()), a.size - 8);
    EXPECT_FALSE(items.count(a.type)) << "two items of one type";
    items[a.type] = view.Slice(a.pos + 24, a.size - 24);
  }
  return items;
}

}  // namespace

ParsedList ParseList(const ByteVec& b) {
  const writer::test::ProgrammeView view(b);
  // Behind a 16-byte position record unless the stream starts with "ftyp".
  const std::uint32_t start = Be32At(b, 4) == FourCC("ftyp") ? 0 : 16;
  const Node moov = view.Find({start - 8, std::uint32_t(b.size()) - start + 8, 0}, "moov");
  const Node udta = view.Find(moov, "udta"), bmet = view.Find(udta, "bmet");
  ParsedList l;
  l.moov = moov.pos;
  l.udta = udta.pos;
  l.bmet = bmet.pos;
  EXPECT_EQ(udta.end(), moov.end());
  EXPECT_EQ(bmet.end(), moov.end());
  const std::vector<Node> atoms = view.Children(bmet);
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    const Node& a = atoms[i];
    if (i == 0) {
      EXPECT_EQ(a.type, FourCC("blst"));
      Items(view, a);
    } else if (i + 1 < atoms.size()) {
      EXPECT_EQ(a.type, FourCC("bmrk")) << "at " << a.pos;
      l.bookmarks.push_back({a.pos, view.U32(a.payload()), Items(view, a)});
    } else {
      EXPECT_EQ(a.type, FourCC("free")) << "at " << a.pos;
      l.freePos = a.pos;
      l.freeSize = a.size;
    }
  }
  EXPECT_NE(l.freePos, 0u) << "no trailing free atom";
  return l;
}

}  // namespace tmx::test
