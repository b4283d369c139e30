#include "bookmarks/editor.h"

#include <algorithm>

#include "io/stream_io.h"

namespace tmx::bookmarks {
namespace {

constexpr std::uint32_t kNever = UINT32_MAX;  // a need no atom meets

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
  sp.tail = range.begin;
  TMX_RETURN_IF_ERROR(ForEachAtom(s_, range, [&](const Atom& a) -> std::int32_t {
    const bool free = IsFree(a.type) || (freed && a.type == *freed);
    if (!free) {
      sp.tail = a.end();
    } else if (!sp.fits && a.size >= need) {
      sp.fits = true;
      sp.pos = a.pos;
      sp.size = a.size;
    }
    return 0;
  }));
  if (!sp.fits) {
    // The free atoms at the end, with any slack behind them, form one room.
    sp.pos = sp.tail;
    sp.size = range.end - sp.tail;
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

std::int32_t ListEditor::Grow(std::uint32_t bytes, std::uint32_t tail) noexcept {
  TMX_RETURN_IF_ERROR(CheckGrowth(bytes, tail));
  ListLayout& l = layout_;
  const std::uint32_t end = l.moov.end();
  // The new bytes first: until the sizes change they lie outside the tree.
  TMX_RETURN_IF_ERROR(WriteZeros(end, bytes));
  for (Atom* a : {&l.moov, &l.udta, &l.bmet}) {
    TMX_RETURN_IF_ERROR(WriteWord(a->pos, a->size + bytes));
    a->size += bytes;
  }
  TMX_RETURN_IF_ERROR(WriteHeader(tail, end + bytes - tail, kFree));
  l.range.end = end + bytes;
  if (l.streamSize != TMX_STREAM_UNKNOWN) l.streamSize = std::max(l.streamSize, end + bytes);
  return TMX_OK;
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
  TMX_RETURN_IF_ERROR(WriteExactAt(s_, pos + std::uint32_t(head.size()), body));
  return WriteExactAt(s_, pos, head);
}

std::int32_t ListEditor::AddBookmark(std::uint32_t time) noexcept {
  constexpr std::uint32_t kNeed = kNewBookmarkSize + kAtomHeaderSize;
  Space sp{};
  TMX_RETURN_IF_ERROR(FindSpace(layout_.range, kNeed, std::nullopt, &sp));
  if (sp.size < kNeed) {
    const std::uint32_t missing = kNeed - sp.size;
    TMX_RETURN_IF_ERROR(Grow(missing, sp.pos));
    sp.size += missing;
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
  // Every atom behind the first "free" one moves forward by its size.
  const std::uint32_t gap = first.size;
  std::uint32_t from = first.end(), to = first.pos;
  bool lastFree = false;
  std::uint32_t lastSize = 0;
  while (range.end - from >= kAtomHeaderSize) {
    std::uint32_t size = 0, type = 0;
    TMX_RETURN_IF_ERROR(s_->ops->Seek(s_, from));
    TMX_RETURN_IF_ERROR(mp4::AtomReadHeader(s_, &size, &type));
    if (!mp4::AtomFits(from, size, range)) return TMX_ERR_INCONSISTENT;
    TMX_RETURN_IF_ERROR(WriteHeader(to, size, type));
    lastFree = IsFree(type);
    if (size > kAtomHeaderSize && !lastFree)
      TMX_RETURN_IF_ERROR(
          MoveBytes(from + kAtomHeaderSize, to + kAtomHeaderSize, size - kAtomHeaderSize));
    lastSize = size;
    from += size;
    to += size;
  }
  // The gap, the slack behind the last atom and a trailing "free" atom
  // become one "free" atom at the end.
  std::uint32_t total = gap + (range.end - from);
  if (lastFree) {
    to -= lastSize;
    total += lastSize;
  }
  return WriteHeader(to, total, kFree);
}

std::int32_t ListEditor::MarkItems(AtomRange children, std::uint32_t code, bool* found) noexcept {
  *found = false;
  return ForEachAtom(s_, children, [&](const Atom& a) -> std::int32_t {
    if (a.type != code) return 0;
    *found = true;
    return WriteWord(a.pos + 4, kFree);
  });
}

std::int32_t ListEditor::DeleteItems(const Atom& container, std::uint32_t code) noexcept {
  bool found = false;
  TMX_RETURN_IF_ERROR(MarkItems(ChildrenOf(container), code, &found));
  return found ? TMX_OK : TMX_ERR_NOT_FOUND;
}

std::int32_t ListEditor::WriteItem(const Atom& container, std::uint32_t code,
                                   std::uint32_t dataType,
                                   std::span<const std::uint8_t> value) noexcept {
  if (value.size() > kMaxValueSize) return TMX_ERR_ARGUMENT;
  const std::uint32_t n = std::uint32_t(value.size());
  const std::uint32_t itemSize = n + kItemOverhead;
  const std::uint32_t need = itemSize + kAtomHeaderSize;
  const AtomRange children = ChildrenOf(container);

  // Plan: where the item goes and how far the container must grow. Items
  // about to be replaced count as free space.
  Space room{};
  TMX_RETURN_IF_ERROR(FindSpace(children, need, code, &room));
  const std::uint32_t grow = room.size < need ? need - room.size : 0;
  Space tail{};
  std::uint32_t extend = 0;
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
  }

  bool replaced = false;
  TMX_RETURN_IF_ERROR(MarkItems(children, code, &replaced));
  if (grow > 0) {
    if (extend > 0) {
      TMX_RETURN_IF_ERROR(Grow(extend, tail.pos));
      tail.size += extend;
    }
    // The atoms between the container and the trailing free space move
    // back, the last bytes first; the container then covers the gap.
    TMX_RETURN_IF_ERROR(
        MoveBytes(container.end(), container.end() + grow, tail.pos - container.end()));
    TMX_RETURN_IF_ERROR(WriteHeader(tail.pos + grow, tail.size - grow, kFree));
    TMX_RETURN_IF_ERROR(WriteWord(container.pos, container.size + grow));
    room.size += grow;
  }

  std::uint8_t head[kItemOverhead];
  StoreBE32(head, itemSize);
  StoreBE32(head + 4, code);
  StoreBE32(head + 8, n + kItemOverhead - kAtomHeaderSize);
  StoreBE32(head + 12, kData);
  StoreBE32(head + 16, dataType);
  StoreBE32(head + 20, 0);
  return PutAtom(room.pos, room.size, head, value);
}

}  // namespace tmx::bookmarks
