#include "bookmarks/editor.h"

#include <algorithm>

#include "io/stream_io.h"

namespace tmx::bookmarks {
namespace {

constexpr std::uint32_t kNever = UINT32_MAX;  // a need no atom meets
constexpr std::uint32_t kNone = UINT32_MAX;   // no atom is kept

}  // namespace

std::int32_t ListEditor::WriteWord(std::uint32_t pos, std::uint32_t value) noexcept {
  std::uint8_t bytes[4];
  StoreBE32(bytes, value);
  return WriteExactAt(s_, pos, bytes);
}

std::int32_t ListEditor::WriteHeader(std::uint32_t pos, std::uint32_t size,
                                     std::uint32_t type) noexcept {
  std::uint8_t bytes[kAtomHeaderSize];
  StoreBE32(bytes, size);
  StoreBE32(bytes + 4, type);
  return WriteExactAt(s_, pos, bytes);
}

std::int32_t ListEditor::WriteZeros(std::uint32_t pos, std::uint32_t count) noexcept {
  static constexpr std::uint8_t kZeros[256] = {};
  while (count > 0) {
    const std::uint32_t n = std::min<std::uint32_t>(count, sizeof kZeros);
    TMX_RETURN_IF_ERROR(WriteExactAt(s_, pos, {kZeros, n}));
    pos += n;
    count -= n;
  }
  return TMX_OK;
}

std::int32_t ListEditor::FindSpace(AtomRange range, std::uint32_t need,
                                   std::optional<std::uint32_t> freed, Space* space) noexcept {
  Space sp{};
  sp.tail = sp.parsed = range.begin;
  std::uint32_t tailFirst = 0;
  bool tailReuses = false;
  TMX_RETURN_IF_ERROR(ForEachAtom(s_, range, [&](const Atom& a) -> std::int32_t {
    sp.parsed = a.end();
    const bool reused = freed && a.type == *freed;
    if (!IsFree(a.type) && !reused) {
      sp.tail = a.end();
      tailFirst = 0;
      tailReuses = false;
      return 0;
    }
    if (tailFirst == 0) tailFirst = a.size;
    tailReuses = tailReuses || reused;
    if (!sp.fits && a.size >= need) {
      sp.fits = true;
      sp.reuses = reused;
      sp.pos = a.pos;
      sp.size = sp.first = a.size;
    }
    return 0;
  }));
  if (!sp.fits) {
    // The free atoms at the end, with any slack behind them, form one room.
    sp.pos = sp.tail;
    sp.size = range.end - sp.tail;
    sp.first = tailFirst;
    sp.reuses = tailReuses;
  }
  *space = sp;
  return TMX_OK;
}

std::int32_t ListEditor::CheckGrowth(std::uint32_t bytes, std::uint32_t tail) const noexcept {
  const ListLayout& l = layout_;
  const std::uint32_t end = l.moov.end();
  if (l.bmet.end() != end || l.udta.end() != end || l.range.end != end) return TMX_ERR_INCONSISTENT;
  // Behind the 16-byte prefix the tree is all the file holds; a file that
  // starts with "ftyp" may have atoms behind "moov" that growth would cover.
  if (!l.prefixed && (l.streamSize == TMX_STREAM_UNKNOWN || l.streamSize != end))
    return TMX_ERR_INCONSISTENT;
  if (std::uint64_t(end) + bytes > UINT32_MAX) return TMX_ERR_INCONSISTENT;
  if (tail > end || end - tail + std::uint64_t(bytes) < kAtomHeaderSize)
    return TMX_ERR_INCONSISTENT;
  return TMX_OK;
}

std::int32_t ListEditor::Grow(std::uint32_t bytes, std::uint32_t tail,
                              std::uint32_t parsed) noexcept {
  TMX_RETURN_IF_ERROR(CheckGrowth(bytes, tail));
  ListLayout& l = layout_;
  const std::uint32_t end = l.moov.end(), grown = end + bytes;
  // The new bytes first, outside the tree (or in the slack at its end): a
  // "free" atom, so that the list reads whole once "bmet" takes them in.
  std::uint32_t zeros = end;
  if (grown - parsed >= kAtomHeaderSize) {
    TMX_RETURN_IF_ERROR(WriteHeader(parsed, grown - parsed, kFree));
    zeros = std::max(end, parsed + kAtomHeaderSize);
  }
  TMX_RETURN_IF_ERROR(WriteZeros(zeros, grown - zeros));
  // Outer sizes first: each atom keeps fitting inside its parent.
  for (Atom* a : {&l.moov, &l.udta, &l.bmet}) {
    TMX_RETURN_IF_ERROR(WriteWord(a->pos, a->size + bytes));
    a->size += bytes;
  }
  l.range.end = grown;
  if (l.streamSize != TMX_STREAM_UNKNOWN) l.streamSize = std::max(l.streamSize, grown);
  // The free atoms at the end become one.
  const bool joined = tail == parsed && grown - parsed >= kAtomHeaderSize;
  return joined ? TMX_OK : WriteHeader(tail, grown - tail, kFree);
}

std::int32_t ListEditor::JoinFree(std::uint32_t pos, std::uint32_t size,
                                  std::uint32_t first) noexcept {
  return first == size ? TMX_OK : WriteHeader(pos, size, kFree);
}

std::int32_t ListEditor::ShiftForward(const Atom& a, std::uint32_t gap) noexcept {
  const std::uint32_t to = a.pos - gap;
  if (IsFree(a.type)) {
    // Two free atoms trade places: joined first, then split anew.
    TMX_RETURN_IF_ERROR(WriteHeader(to, gap + a.size, kFree));
  } else if (a.size + kAtomHeaderSize > gap) {
    // The copy overlaps the atom: hidden in one free atom meanwhile.
    TMX_RETURN_IF_ERROR(WriteHeader(to, gap + a.size, kFree));
    TMX_RETURN_IF_ERROR(
        MoveBytes(a.pos + kAtomHeaderSize, to + kAtomHeaderSize, a.size - kAtomHeaderSize));
  } else {
    // The copy fits in the gap, in front of the gap's new header.
    TMX_RETURN_IF_ERROR(
        MoveBytes(a.pos + kAtomHeaderSize, to + kAtomHeaderSize, a.size - kAtomHeaderSize));
  }
  TMX_RETURN_IF_ERROR(WriteHeader(to + a.size, gap, kFree));
  return WriteHeader(to, a.size, a.type);
}

std::int32_t ListEditor::ShiftBack(const Atom& a, std::uint32_t gap, bool last) noexcept {
  const std::uint32_t to = a.pos + gap;
  // Behind the trailing free atom's new header the rest stays free.
  if (last)
    TMX_RETURN_IF_ERROR(WriteHeader(a.end() + gap, layout_.range.end - a.end() - gap, kFree));
  // An atom whose copy overlaps it is hidden in one free atom meanwhile.
  // Its type turns "free" before its size changes, so that it never claims
  // bytes that are not its own.
  const bool hide = gap < a.size + kAtomHeaderSize;
  if (hide) {
    TMX_RETURN_IF_ERROR(WriteWord(a.pos + 4, kFree));
    TMX_RETURN_IF_ERROR(WriteWord(a.pos, a.size + gap));
  }
  if (!IsFree(a.type))
    TMX_RETURN_IF_ERROR(
        MoveBytes(a.pos + kAtomHeaderSize, to + kAtomHeaderSize, a.size - kAtomHeaderSize));
  TMX_RETURN_IF_ERROR(WriteHeader(to, a.size, a.type));
  if (!hide) TMX_RETURN_IF_ERROR(WriteWord(a.pos + 4, kFree));
  return WriteWord(a.pos, gap);
}

std::int32_t ListEditor::GrowContainer(const Atom& container, std::uint32_t grow,
                                       std::span<const std::uint32_t> behind) noexcept {
  const std::uint32_t end = container.end();
  if (behind.empty()) {
    TMX_RETURN_IF_ERROR(WriteHeader(end + grow, layout_.range.end - end - grow, kFree));
    TMX_RETURN_IF_ERROR(WriteHeader(end, grow, kFree));
  } else {
    // The last atom first, each into the gap the one behind it left.
    for (std::size_t i = behind.size(); i-- > 0;) {
      Atom a{behind[i]};
      TMX_RETURN_IF_ERROR(s_->ops->Seek(s_, a.pos));
      TMX_RETURN_IF_ERROR(mp4::AtomReadHeader(s_, &a.size, &a.type));
      TMX_RETURN_IF_ERROR(ShiftBack(a, grow, i + 1 == behind.size()));
    }
  }
  // The container takes in the "free" atom of `grow` bytes behind it.
  return WriteWord(container.pos, container.size + grow);
}

std::int32_t ListEditor::PrepareMoves(std::uint32_t bytes) noexcept {
  const std::uint32_t want = std::min(bytes, chunkSize_);
  if (want <= chunkBytes_) return TMX_OK;
  chunk_.reset(AllocArray<std::uint8_t>(want));
  chunkBytes_ = chunk_ ? want : 0;
  return chunk_ ? TMX_OK : TMX_ERR_MEMORY;
}

std::int32_t ListEditor::MoveBytes(std::uint32_t from, std::uint32_t to,
                                   std::uint32_t count) noexcept {
  if (count == 0 || from == to) return TMX_OK;
  TMX_RETURN_IF_ERROR(PrepareMoves(count));
  std::uint8_t* buffer = chunk_.get();
  // Moving forward copies from the front, moving back from the end, so that
  // no byte is overwritten before it has been read.
  std::uint32_t done = 0;
  while (done < count) {
    const std::uint32_t n = std::min(count - done, chunkBytes_);
    const std::uint32_t offset = to < from ? done : count - done - n;
    TMX_RETURN_IF_ERROR(ReadExactAt(s_, from + offset, {buffer, n}));
    TMX_RETURN_IF_ERROR(WriteExactAt(s_, to + offset, {buffer, n}));
    done += n;
  }
  return TMX_OK;
}

std::int32_t ListEditor::PutAtom(std::uint32_t pos, std::uint32_t room,
                                 std::span<const std::uint8_t> head,
                                 std::span<const std::uint8_t> body) noexcept {
  const std::uint32_t size = std::uint32_t(head.size() + body.size());
  TMX_RETURN_IF_ERROR(WriteHeader(pos + size, room - size, kFree));
  if (!body.empty()) TMX_RETURN_IF_ERROR(WriteExactAt(s_, pos + std::uint32_t(head.size()), body));
  TMX_RETURN_IF_ERROR(WriteExactAt(s_, pos + kAtomHeaderSize, head.subspan(kAtomHeaderSize)));
  return WriteExactAt(s_, pos, head.first(kAtomHeaderSize));
}

std::int32_t ListEditor::AddBookmark(std::uint32_t time) noexcept {
  constexpr std::uint32_t kNeed = kNewBookmarkSize + kAtomHeaderSize;
  Space sp{};
  TMX_RETURN_IF_ERROR(FindSpace(layout_.range, kNeed, std::nullopt, &sp));
  if (sp.size < kNeed) {
    const std::uint32_t missing = kNeed - sp.size;
    TMX_RETURN_IF_ERROR(Grow(missing, sp.pos, sp.parsed));
    sp.size += missing;
  } else {
    TMX_RETURN_IF_ERROR(JoinFree(sp.pos, sp.size, sp.first));
  }
  std::uint8_t atom[kNewBookmarkSize];
  StoreBE32(atom, kNewBookmarkSize);
  StoreBE32(atom + 4, kBookmark);
  StoreBE32(atom + 8, time);
  StoreBE32(atom + 12, kAtomHeaderSize);
  StoreBE32(atom + 16, kFree);
  return PutAtom(sp.pos, sp.size, atom, {});
}

std::int32_t ListEditor::PrepareRemoval(const Atom& bmrk) noexcept {
  return PrepareMoves(layout_.range.end - bmrk.end());
}

std::int32_t ListEditor::MarkFree(const Atom& atom) noexcept {
  return WriteWord(atom.pos + 4, kFree);
}

std::int32_t ListEditor::Compact() noexcept {
  const AtomRange range = layout_.range;
  Atom first{};
  bool have = false;
  TMX_RETURN_IF_ERROR(ForEachAtom(s_, range, [&](const Atom& a) -> std::int32_t {
    if (!IsFree(a.type)) return 0;
    first = a;
    have = true;
    return 1;
  }));
  if (!have) return TMX_OK;
  // Every atom behind the first "free" one moves forward by its size, one
  // at a time, the gap moving back behind each.
  const std::uint32_t gap = first.size;
  std::uint32_t from = first.end();
  while (range.end - from >= kAtomHeaderSize) {
    Atom a{from};
    TMX_RETURN_IF_ERROR(s_->ops->Seek(s_, from));
    TMX_RETURN_IF_ERROR(mp4::AtomReadHeader(s_, &a.size, &a.type));
    if (!mp4::AtomFits(from, a.size, range)) return TMX_ERR_INCONSISTENT;
    // A trailing "free" atom joins the gap instead.
    if (IsFree(a.type) && range.end - a.end() < kAtomHeaderSize) break;
    TMX_RETURN_IF_ERROR(ShiftForward(a, gap));
    from += a.size;
  }
  // The gap, the slack behind the last atom and a trailing "free" atom
  // become one "free" atom at the end.
  return WriteHeader(from - gap, range.end - from + gap, kFree);
}

std::int32_t ListEditor::MarkItems(AtomRange children, std::uint32_t code, std::uint32_t keep,
                                   bool* found) noexcept {
  *found = false;
  return ForEachAtom(s_, children, [&](const Atom& a) -> std::int32_t {
    if (a.type != code || a.pos == keep) return 0;
    *found = true;
    return WriteWord(a.pos + 4, kFree);
  });
}

std::int32_t ListEditor::DeleteItems(const Atom& container, std::uint32_t code) noexcept {
  bool found = false;
  TMX_RETURN_IF_ERROR(MarkItems(ChildrenOf(container), code, kNone, &found));
  return found ? TMX_OK : TMX_ERR_NOT_FOUND;
}

std::int32_t ListEditor::WriteItem(const Atom& container, std::uint32_t code,
                                   std::uint32_t dataType,
                                   std::span<const std::uint8_t> value) noexcept {
  if (value.size() > kMaxValueSize) return TMX_ERR_ARGUMENT;
  const std::uint32_t n = std::uint32_t(value.size());
  const std::uint32_t itemSize = n + kItemOverhead;
  const std::uint32_t need = itemSize + kAtomHeaderSize;

  // Plan: where the item goes and how far the container must grow. Items
  // about to be replaced count as free space.
  Space room{};
  TMX_RETURN_IF_ERROR(FindSpace(ChildrenOf(container), need, code, &room));
  // A container grows by at least a header's size: the atoms behind it then
  // move one by one, each hidden in a "free" atom or copied into the gap, so
  // that a write cut short leaves a readable list. The few bytes more stay
  // in the container's trailing "free" atom.
  const std::uint32_t grow = room.size < need ? std::max(need - room.size, kAtomHeaderSize) : 0;
  Space tail{};
  std::uint32_t extend = 0, count = 0;
  Owned<std::uint32_t> behind;
  if (grow > 0) {
    // The container takes the bytes from the list's trailing free space,
    // which the tree's growth refills when it runs short.
    TMX_RETURN_IF_ERROR(FindSpace(layout_.range, kNever, std::nullopt, &tail));
    if (tail.pos < container.end()) return TMX_ERR_INCONSISTENT;
    if (tail.size < std::uint64_t(grow) + kAtomHeaderSize) {
      extend = grow + kAtomHeaderSize - tail.size;
      TMX_RETURN_IF_ERROR(CheckGrowth(extend, tail.pos));
    }
    TMX_RETURN_IF_ERROR(PrepareMoves(tail.pos - container.end()));
    // Where the atoms behind the container lie, to move them last first.
    const AtomRange between{container.end(), tail.pos};
    TMX_RETURN_IF_ERROR(ForEachAtom(s_, between, [&](const Atom&) { return ++count, 0; }));
    if (count > 0) {
      behind.reset(AllocArray<std::uint32_t>(count));
      if (!behind) return TMX_ERR_MEMORY;
      std::uint32_t i = 0;
      TMX_RETURN_IF_ERROR(
          ForEachAtom(s_, between, [&](const Atom& a) { return behind.get()[i++] = a.pos, 0; }));
    }
  }

  Atom grown = container;
  if (grow > 0) {
    if (extend > 0) {
      TMX_RETURN_IF_ERROR(Grow(extend, tail.pos, tail.parsed));
    } else {
      TMX_RETURN_IF_ERROR(JoinFree(tail.pos, tail.size, tail.first));
    }
    TMX_RETURN_IF_ERROR(
        GrowContainer(container, grow, {behind.get(), behind ? count : 0}));
    grown.size += grow;
    if (room.size == 0) room.first = grow;
    room.size += grow;
  }
  // The items replaced turn "free" once the new one is in place, unless it
  // takes their room.
  bool replaced = false;
  if (room.reuses) TMX_RETURN_IF_ERROR(MarkItems(ChildrenOf(grown), code, kNone, &replaced));
  TMX_RETURN_IF_ERROR(JoinFree(room.pos, room.size, room.first));
  std::uint8_t head[kItemOverhead];
  StoreBE32(head, itemSize);
  StoreBE32(head + 4, code);
  StoreBE32(head + 8, n + kItemOverhead - kAtomHeaderSize);
  StoreBE32(head + 12, kData);
  StoreBE32(head + 16, dataType);
  StoreBE32(head + 20, 0);
  TMX_RETURN_IF_ERROR(PutAtom(room.pos, room.size, head, value));
  if (room.reuses) return TMX_OK;
  return MarkItems(ChildrenOf(grown), code, room.pos, &replaced);
}

}  // namespace tmx::bookmarks
