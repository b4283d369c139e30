#include "bookmarks/storage.h"

#include "container/mp4/item_list.h"
#include "io/stream_io.h"
#include "metadata/key_table.h"

namespace tmx::bookmarks {
namespace {

constexpr std::uint32_t kDataHeaderSize = 16;  // header, type word, locale word
constexpr std::uint64_t kDuplicateInterval = 1000;

// The first atom of `type` (capitals folded) in `range`; -25 when none.
std::int32_t FindChild(TMXStream* s, AtomRange range, std::uint32_t type, Atom* found) noexcept {
  bool have = false;
  TMX_RETURN_IF_ERROR(ForEachAtom(s, range, [&](const Atom& a) -> std::int32_t {
    if (!mp4::AtomTypeMatches(a.type, type)) return 0;
    *found = a;
    have = true;
    return 1;
  }));
  return have ? TMX_OK : TMX_ERR_NOT_FOUND;
}

constexpr AtomRange PayloadOf(const Atom& a) noexcept { return mp4::PayloadOf(a.pos, a.size); }

std::int32_t ReadWordAt(TMXStream* s, std::uint32_t position, std::uint32_t* value) noexcept {
  std::uint8_t bytes[4];
  TMX_RETURN_IF_ERROR(ReadExactAt(s, position, bytes));
  *value = LoadBE32(bytes);
  return TMX_OK;
}

// Chooses among the "data" atoms of one item.
std::int32_t ChooseVariant(TMXStream* s, const Atom& item, std::uint32_t wanted,
                           StoredValue* chosen, bool* found) noexcept {
  StoredValue exact{}, fallback{};
  bool haveExact = false, haveDefault = false;
  TMX_RETURN_IF_ERROR(ForEachAtom(s, PayloadOf(item), [&](const Atom& a) -> std::int32_t {
    if (!mp4::AtomTypeMatches(a.type, kData)) return 0;
    if (a.size < kDataHeaderSize) return TMX_ERR_INCONSISTENT;
    std::uint8_t words[8];
    TMX_RETURN_IF_ERROR(ReadExactAt(s, a.pos + kAtomHeaderSize, words));
    const std::uint32_t locale = LoadBE32(words + 4);
    const StoredValue v{mp4::KindForValueType(words[3]), a.pos + kDataHeaderSize,
                        a.size - kDataHeaderSize};
    if (locale == wanted) {
      exact = v;
      haveExact = true;
      return 1;
    }
    if (locale == 0) {
      fallback = v;
      haveDefault = true;
    }
    return 0;
  }));
  *found = true;
  if (haveExact && (exact.size != 0 || !haveDefault)) {
    *chosen = exact;
  } else if (haveDefault) {
    *chosen = fallback;
  } else {
    *found = false;
  }
  return TMX_OK;
}

bool IsBookmark(const Atom& a) noexcept { return mp4::AtomTypeMatches(a.type, kBookmark); }

}  // namespace

std::int32_t FindList(TMXStream* s, ListLayout* layout) noexcept {
  ListLayout l{};
  l.streamSize = s->ops->GetSize(s);
  std::uint32_t size = 0, type = 0;
  const bool ftyp = s->ops->Seek(s, 0) == 0 && mp4::AtomReadHeader(s, &size, &type) == 0 &&
                    mp4::AtomTypeMatches(type, FourCC("ftyp"));
  l.prefixed = !ftyp;
  const AtomRange top{l.prefixed ? kPrefixSize : 0, l.streamSize};
  TMX_RETURN_IF_ERROR(FindChild(s, top, FourCC("moov"), &l.moov));
  TMX_RETURN_IF_ERROR(FindChild(s, PayloadOf(l.moov), FourCC("udta"), &l.udta));
  TMX_RETURN_IF_ERROR(FindChild(s, PayloadOf(l.udta), FourCC("bmet"), &l.bmet));
  if (l.bmet.size < kContainerHeaderSize) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(ReadWordAt(s, l.bmet.pos + kAtomHeaderSize, &l.flags));
  l.range = {l.bmet.pos + kContainerHeaderSize, l.bmet.end()};
  *layout = l;
  return TMX_OK;
}

std::int32_t FindListItems(TMXStream* s, AtomRange range, Atom* blst) noexcept {
  TMX_RETURN_IF_ERROR(FindChild(s, range, kListItems, blst));
  return blst->size < kContainerHeaderSize ? TMX_ERR_INCONSISTENT : TMX_OK;
}

std::int32_t CountBookmarks(TMXStream* s, AtomRange range, std::uint32_t* count) noexcept {
  std::uint32_t n = 0;
  TMX_RETURN_IF_ERROR(ForEachAtom(s, range, [&](const Atom& a) -> std::int32_t {
    if (!IsBookmark(a)) return 0;
    if (a.size < kContainerHeaderSize) return TMX_ERR_INCONSISTENT;
    ++n;
    return 0;
  }));
  *count = n;
  return TMX_OK;
}

std::int32_t ReadBookmarkTimes(TMXStream* s, AtomRange range, std::uint32_t* times,
                               std::uint32_t count) noexcept {
  std::uint32_t n = 0;
  return ForEachAtom(s, range, [&](const Atom& a) -> std::int32_t {
    if (!IsBookmark(a)) return 0;
    if (n == count) return 1;
    if (a.size < kContainerHeaderSize) return TMX_ERR_INCONSISTENT;
    return ReadWordAt(s, a.pos + kAtomHeaderSize, &times[n++]);
  });
}

std::int32_t FindBookmarkAtom(TMXStream* s, AtomRange range, std::uint32_t time,
                              Atom* bmrk) noexcept {
  // Every atom is visited, so that an edit that follows knows the whole
  // range to be sound.
  bool exact = false, near = false;
  Atom nearest{};
  TMX_RETURN_IF_ERROR(ForEachAtom(s, range, [&](const Atom& a) -> std::int32_t {
    if (!IsBookmark(a)) return 0;
    if (a.size < kContainerHeaderSize) return TMX_ERR_INCONSISTENT;
    if (exact) return 0;
    std::uint32_t b = 0;
    TMX_RETURN_IF_ERROR(ReadWordAt(s, a.pos + kAtomHeaderSize, &b));
    if (b == time) {
      *bmrk = a;
      exact = true;
    } else if (!near && b <= time && time < std::uint64_t(b) + kDuplicateInterval) {
      nearest = a;
      near = true;
    }
    return 0;
  }));
  if (exact) return TMX_OK;
  if (!near) return TMX_ERR_NOT_FOUND;
  *bmrk = nearest;
  return TMX_OK;
}

std::int32_t FindItemValue(TMXStream* s, AtomRange children, std::uint32_t code,
                           std::uint32_t locale, StoredValue* value) noexcept {
  bool found = false;
  // Item types are compared exactly, without folding capitals.
  TMX_RETURN_IF_ERROR(ForEachAtom(s, children, [&](const Atom& a) -> std::int32_t {
    if (a.type != code) return 0;
    TMX_RETURN_IF_ERROR(ChooseVariant(s, a, locale, value, &found));
    return found ? 1 : 0;
  }));
  return found ? TMX_OK : TMX_ERR_NOT_FOUND;
}

std::uint32_t DataTypeForItem(std::uint32_t key, std::uint32_t unicodeFormat) noexcept {
  if (key == kCoverKey) return 13;
  if (unicodeFormat == 1) return 1;
  if (unicodeFormat == 3) return 2;
  return 0;
}

}  // namespace tmx::bookmarks
