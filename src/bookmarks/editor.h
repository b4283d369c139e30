// In-place edits of a bookmark list.
//
// New atoms are carved out of "free" atoms. When the free space runs short
// the tree grows at its end: "bmet" is the last atom of "udta", "udta" of
// "moov" and "moov" of the file, and the list's own trailing "free" atom is
// the last atom of the list, so raising the three sizes and that "free"
// atom and appending bytes keeps every atom inside its parent. A removed
// atom becomes "free" and the atoms behind it move forward, so that the free
// space gathers in one trailing atom again. The file never shrinks.
//
// The writes are ordered for an edit cut short (a failed write, a power
// cut): new bytes go first into free space or past the end of the tree,
// where no reader looks; the header that makes them part of the list goes
// last, and an item or bookmark being replaced or removed turns "free" only
// then. An atom that moves by less than its own size cannot be both kept and
// copied, so it is first hidden in a "free" atom, copied, and shown again in
// its new place: an edit cut short in between lacks that one atom, but the
// list still reads. Writing a new item over the room of the one it replaces
// likewise lacks the item in between. A container that grows by fewer than
// 8 bytes has no room for such a "free" atom: the atoms behind it move as
// one block, and a cut in between can leave the list unreadable.
//
// Each edit checks the atoms it walks before it writes its first byte and
// refuses (-7) a tree it cannot grow without overlapping other atoms.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "bookmarks/storage.h"
#include "util/alloc.h"

namespace tmx::bookmarks {

class ListEditor {
 public:
  // `layout` as FindList found it; atoms are moved in pieces of at most
  // `chunkSize` bytes.
  ListEditor(TMXStream* s, const ListLayout& layout, std::uint32_t chunkSize) noexcept
      : s_(s), layout_(layout), chunkSize_(chunkSize ? chunkSize : 1) {}

  const ListLayout& layout() const noexcept { return layout_; }

  // Writes a new "bmrk" holding `time` and an empty "free" atom.
  std::int32_t AddBookmark(std::uint32_t time) noexcept;

  // Removing a bookmark: get the buffer for the moves (-10) before anything
  // is written, turn the "bmrk" into "free", then gather the free space.
  std::int32_t PrepareRemoval(const Atom& bmrk) noexcept;
  std::int32_t MarkFree(const Atom& atom) noexcept;
  std::int32_t Compact() noexcept;

  // Writes an item of type `code` into a "blst" or "bmrk" atom of the list,
  // after turning the items of that type it holds into "free".
  std::int32_t WriteItem(const Atom& container, std::uint32_t code, std::uint32_t dataType,
                         std::span<const std::uint8_t> value) noexcept;
  // Turns the items of type `code` in the container into "free"; -25 when
  // it holds none.
  std::int32_t DeleteItems(const Atom& container, std::uint32_t code) noexcept;

 private:
  // Room for an atom of `need` bytes (its own size plus a "free" header).
  struct Space {
    bool fits = false;         // a "free" atom with room was found
    bool reuses = false;       // the room holds an item of type `freed`
    std::uint32_t pos = 0;     // where the new atom goes
    std::uint32_t size = 0;    // free bytes there; may be short of `need`
    std::uint32_t first = 0;   // size of the atom at `pos` (0: none there)
    std::uint32_t tail = 0;    // start of the free space at the end of the range
    std::uint32_t parsed = 0;  // end of the last whole atom of the range
  };
  // The first "free" atom (or item of type `freed`) with `need` bytes;
  // without one, the trailing free space of the range.
  std::int32_t FindSpace(AtomRange range, std::uint32_t need, std::optional<std::uint32_t> freed,
                         Space* space) noexcept;
  // -7 unless the tree can grow by `bytes` at its end with the list's free
  // space starting at `tail`.
  std::int32_t CheckGrowth(std::uint32_t bytes, std::uint32_t tail) const noexcept;
  // Grows the tree by `bytes`; `tail` and `parsed` as FindSpace found them
  // in the list range. The trailing free space becomes one "free" atom.
  std::int32_t Grow(std::uint32_t bytes, std::uint32_t tail, std::uint32_t parsed) noexcept;
  // Makes the `size` free bytes at `pos` one "free" atom; `first` is the
  // size of the free atom there now.
  std::int32_t JoinFree(std::uint32_t pos, std::uint32_t size, std::uint32_t first) noexcept;
  // Moves the atom `a` forward into the `gap` free bytes in front of it,
  // which then follow it.
  std::int32_t ShiftForward(const Atom& a, std::uint32_t gap) noexcept;
  // Moves the atom `a` back by `gap` bytes into the free space behind it
  // (the trailing free atom, at least `gap` + 8 bytes, when `last`; else a
  // "free" atom of exactly `gap` bytes); the gap then lies in front of it.
  std::int32_t ShiftBack(const Atom& a, std::uint32_t gap, bool last) noexcept;
  // Grows `container` by `grow` bytes (at least 8), moving the atoms behind
  // it back into the trailing free atom, which reaches the end of the list;
  // `behind` holds the positions of those atoms.
  std::int32_t GrowContainer(const Atom& container, std::uint32_t grow,
                             std::span<const std::uint32_t> behind) noexcept;
  // Makes sure moves of up to `bytes` bytes have their buffer.
  std::int32_t PrepareMoves(std::uint32_t bytes) noexcept;
  std::int32_t MoveBytes(std::uint32_t from, std::uint32_t to, std::uint32_t count) noexcept;
  // Writes `head` and `body` at `pos` in front of a "free" atom filling the
  // rest of the `room` bytes, which must be one "free" atom: the header of
  // `head` goes last, so that until then the room still reads as free.
  std::int32_t PutAtom(std::uint32_t pos, std::uint32_t room, std::span<const std::uint8_t> head,
                       std::span<const std::uint8_t> body) noexcept;
  std::int32_t WriteHeader(std::uint32_t pos, std::uint32_t size, std::uint32_t type) noexcept;
  std::int32_t WriteWord(std::uint32_t pos, std::uint32_t value) noexcept;
  std::int32_t WriteZeros(std::uint32_t pos, std::uint32_t count) noexcept;
  // Turns the items of type `code` into "free", except the one at `keep`.
  std::int32_t MarkItems(AtomRange children, std::uint32_t code, std::uint32_t keep,
                         bool* found) noexcept;

  TMXStream* s_;
  ListLayout layout_;
  std::uint32_t chunkSize_;
  Owned<std::uint8_t> chunk_;
  std::uint32_t chunkBytes_ = 0;
};

}  // namespace tmx::bookmarks
