// The bookmark list as an atom tree in a stream: "moov" > "udta" > "bmet",
// whose payload (after a flags word) holds one "blst" with the list's own
// metadata items, the "bmrk" atoms and a trailing "free" atom. This file
// finds the pieces and reads them; editor.h changes them.
#pragma once

#include <cstdint>
#include <optional>

#include "container/mp4/atom.h"
#include "tmxsdk.h"
#include "util/status.h"

namespace tmx::bookmarks {

using mp4::AtomRange;
using mp4::kAtomHeaderSize;

// Bytes in front of the tree of a file that does not start with "ftyp".
inline constexpr std::uint32_t kPrefixSize = 16;
// A new "bmrk": header, time word and an empty "free" atom.
inline constexpr std::uint32_t kNewBookmarkSize = 20;
// "bmrk" and "blst" keep one word (time, locale) in front of their children.
inline constexpr std::uint32_t kContainerHeaderSize = 12;
// Item header, "data" header, data type and locale words.
inline constexpr std::uint32_t kItemOverhead = 24;
// Largest value an item may hold, so that every size derived from it fits.
inline constexpr std::uint32_t kMaxValueSize = 0x7FFF0000;

inline constexpr std::uint32_t kFree = FourCC("free");
inline constexpr std::uint32_t kBookmark = FourCC("bmrk");
inline constexpr std::uint32_t kListItems = FourCC("blst");
inline constexpr std::uint32_t kData = FourCC("data");

// An atom header as found in the stream.
struct Atom {
  std::uint32_t pos = 0;
  std::uint32_t size = 0;
  std::uint32_t type = 0;
  constexpr std::uint32_t end() const noexcept { return pos + size; }
};

// Where the list lies in its stream.
struct ListLayout {
  bool prefixed = false;  // the tree follows a 16-byte prefix (no "ftyp")
  std::uint32_t streamSize = 0;
  Atom moov, udta, bmet;
  std::uint32_t flags = 0;  // 0: the list is read-only
  AtomRange range{};        // "bmet" payload after the flags word
};

constexpr bool IsFree(std::uint32_t type) noexcept { return mp4::AtomTypeMatches(type, kFree); }

// Calls visit(const Atom&) for each atom of `range` in file order. An atom
// shorter than its header or reaching past the range gives -7; fewer than 8
// bytes left at the end are slack and end the walk. A non-zero result of
// `visit` ends the walk: negative ones are returned, positive ones give 0.
template <class Visit>
std::int32_t ForEachAtom(TMXStream* s, AtomRange range, Visit&& visit) noexcept {
  const std::int32_t rc = mp4::ForEachBox(
      s, range,
      [&](const mp4::Box& box) {
        return visit(Atom{box.pos, box.size, box.type});
      },
      mp4::ShortTail::kIgnored);
  return rc < 0 ? rc : TMX_OK;
}

// Finds "moov", "udta" and "bmet" (-25 when one is missing, -7 when the
// atoms are malformed) and reads the flags word.
std::int32_t FindList(TMXStream* s, ListLayout* layout) noexcept;

// The "blst" atom of the list range: -25 when there is none.
std::int32_t FindListItems(TMXStream* s, AtomRange range, Atom* blst) noexcept;

// The children of a "blst" or "bmrk" (behind its locale or time word).
constexpr AtomRange ChildrenOf(const Atom& container) noexcept {
  return {container.pos + kContainerHeaderSize, container.end()};
}

// Counts the "bmrk" atoms of the range; -7 when one cannot hold its time.
std::int32_t CountBookmarks(TMXStream* s, AtomRange range, std::uint32_t* count) noexcept;
// Reads the times of the first `count` "bmrk" atoms in file order.
std::int32_t ReadBookmarkTimes(TMXStream* s, AtomRange range, std::uint32_t* times,
                               std::uint32_t count) noexcept;

// The "bmrk" atom of a bookmark whose stored time is `time`: the first one
// holding exactly that time, else the first whose time b has
// b <= time < b + 1000. -25 when there is none.
std::int32_t FindBookmarkAtom(TMXStream* s, AtomRange range, std::uint32_t time,
                              Atom* bmrk) noexcept;

// Where a stored value lies and how it is encoded (text kind).
struct StoredValue {
  std::uint32_t kind = 0;
  std::uint32_t offset = 0;
  std::uint32_t size = 0;
};

// Looks for the item of type `code` among `children` and chooses among its
// "data" atoms: the one of `locale` at once, else the last of locale 0 (an
// exact match with an empty value gives way to that default). A later item
// of the same type is tried when an earlier one has no such atom. -25 when
// nothing is found.
std::int32_t FindItemValue(TMXStream* s, AtomRange children, std::uint32_t code,
                           std::uint32_t locale, StoredValue* value) noexcept;

// Data type word stored with a new item.
std::uint32_t DataTypeForItem(std::uint32_t key, std::uint32_t unicodeFormat) noexcept;

}  // namespace tmx::bookmarks
