#include "container/mp4/item_list.h"

#include "container/mp4/atom.h"
#include "container/mp4/mp4_state.h"
#include "metadata/key_table.h"
#include "util/alloc.h"

namespace tmx::mp4 {
namespace {

constexpr std::uint32_t kDataHeader = 16;  // header, type word, locale word

struct Variant {
  std::uint32_t kind;
  std::uint32_t locale;
  std::uint32_t offset;
  std::uint32_t size;
};

// Calls visit(position, size, type) for each child atom of `range` that
// starts before its last 8 bytes; a non-zero result stops the walk.
template <class Visit>
std::int32_t ForEachChild(TMXStream* s, AtomRange range, Visit&& visit) noexcept {
  std::uint32_t position = range.begin;
  while (position < range.end && range.end - position >= kAtomHeaderSize) {
    std::uint32_t size = 0, type = 0;
    TMX_RETURN_IF_ERROR(s->ops->Seek(s, position));
    TMX_RETURN_IF_ERROR(AtomReadHeader(s, &size, &type));
    if (!AtomFits(position, size, range)) return TMX_ERR_INCONSISTENT;
    TMX_RETURN_IF_ERROR(visit(position, size, type));
    position += size;
  }
  return TMX_OK;
}

// Reads the type and locale words of a "data" atom whose header was just
// read; the value follows.
std::int32_t ReadData(TMXStream* s, std::uint32_t position, std::uint32_t size,
                      Variant* v) noexcept {
  if (size < kDataHeader) return TMX_ERR_INCONSISTENT;
  std::uint32_t typeWord = 0;
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &typeWord));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &v->locale));
  v->kind = KindForValueType(typeWord & 0xFF);
  v->offset = position + kDataHeader;
  v->size = size - kDataHeader;
  return TMX_OK;
}

// Chooses among an item's "data" atoms: the wanted locale at once, else the
// last locale-0 atom. An exact match whose value is empty gives way to a
// default.
std::int32_t ChooseVariant(TMXStream* s, AtomRange item, std::uint32_t wanted, Variant* chosen,
                           bool* found) noexcept {
  Variant exact{}, fallback{};
  bool haveExact = false, haveDefault = false;
  constexpr std::int32_t kStop = 1;
  std::int32_t rc = ForEachChild(
      s, item, [&](std::uint32_t pos, std::uint32_t size, std::uint32_t type) -> std::int32_t {
        if (!AtomTypeMatches(type, FourCC("data"))) return TMX_OK;
        Variant v{};
        TMX_RETURN_IF_ERROR(ReadData(s, pos, size, &v));
        if (v.locale == wanted) {
          exact = v;
          haveExact = true;
          return kStop;
        }
        if (v.locale == 0) {
          fallback = v;
          haveDefault = true;
        }
        return TMX_OK;
      });
  if (rc < 0) return rc;
  *found = true;
  if (haveExact && (exact.size != 0 || !haveDefault)) {
    *chosen = exact;
  } else if (haveDefault) {
    *chosen = fallback;
    chosen->locale = 0;
  } else {
    *found = false;
  }
  return TMX_OK;
}

// Positions of the per-chapter item lists, one "ilst" after another from
// chapterMetadataPos.
std::int32_t BuildChapterLists(Container* file, Mp4State& st) noexcept {
  TMXStream* s = file->stream;
  Owned<std::uint32_t> lists(AllocArray<std::uint32_t>(file->info.chapterCount));
  if (!lists) return TMX_ERR_MEMORY;
  const std::uint32_t saved = s->ops->Tell(s);
  std::uint64_t position = st.chapterMetadataPos;
  std::int32_t rc = TMX_OK;
  for (std::uint32_t filled = 0; filled < file->info.chapterCount && rc == 0;) {
    std::uint32_t size = 0, type = 0;
    if (position > UINT32_MAX) {
      rc = TMX_ERR_INCONSISTENT;
      break;
    }
    rc = s->ops->Seek(s, std::uint32_t(position));
    if (rc == 0) rc = AtomReadHeader(s, &size, &type);
    if (rc == 0 && size < kAtomHeaderSize) rc = TMX_ERR_INCONSISTENT;
    if (rc != 0) break;
    if (AtomTypeMatches(type, FourCC("ilst"))) lists.get()[filled++] = std::uint32_t(position);
    position += size;
  }
  s->ops->Seek(s, saved);
  if (rc != 0) return rc;
  st.chapterListPos = lists.release();
  return TMX_OK;
}

// The header position of the "ilst" to search for `chapter`.
std::int32_t ListFor(Container* file, std::uint32_t chapter, std::uint32_t* listPos) noexcept {
  Mp4State& st = State(file);
  if (chapter == kFileLevel) {
    if (st.metadataListPos == 0) return TMX_ERR_INCONSISTENT;
    *listPos = st.metadataListPos;
    return TMX_OK;
  }
  if (chapter >= file->info.chapterCount) return TMX_ERR_INDEX;
  if (st.chapterMetadataPos == 0) return TMX_ERR_NOT_FOUND;
  if (!st.chapterListPos) TMX_RETURN_IF_ERROR(BuildChapterLists(file, st));
  if (!st.chapterListPos || st.chapterListPos[chapter] == 0) return TMX_ERR_NOT_FOUND;
  *listPos = st.chapterListPos[chapter];
  return TMX_OK;
}

std::int32_t OpenList(TMXStream* s, std::uint32_t listPos, AtomRange* items) noexcept {
  std::uint32_t size = 0, type = 0;
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, listPos));
  TMX_RETURN_IF_ERROR(AtomReadHeader(s, &size, &type));
  if (size < kAtomHeaderSize || std::uint64_t(listPos) + size > UINT32_MAX)
    return TMX_ERR_INCONSISTENT;
  *items = PayloadOf(listPos, size);
  return TMX_OK;
}

}  // namespace

std::uint32_t KindForValueType(std::uint32_t valueType) noexcept {
  switch (valueType) {
    case 1: return 1;
    case 2: return 3;
    case 13: return 16;
    default: return 0;
  }
}

std::int32_t GetMetadataItem(Container* file, std::uint32_t chapter, std::uint32_t key,
                             std::uint32_t* locale, std::uint32_t* kind, std::uint32_t* offset,
                             std::uint32_t* size) noexcept {
  TMXStream* s = file->stream;
  *size = 0;
  *kind = 0;
  const std::uint32_t itemType = ItemTypeForKey(key);
  std::uint32_t listPos = 0;
  TMX_RETURN_IF_ERROR(ListFor(file, chapter, &listPos));
  AtomRange items{};
  TMX_RETURN_IF_ERROR(OpenList(s, listPos, &items));
  // Item types are compared exactly, without folding capitals. A later item
  // of the same type is tried when an earlier one has no usable variant.
  std::int32_t result = TMX_OK;
  constexpr std::int32_t kStop = 1;
  std::int32_t rc = ForEachChild(
      s, items, [&](std::uint32_t pos, std::uint32_t itemSize, std::uint32_t type) -> std::int32_t {
        if (type != itemType) {
          result = TMX_ERR_NOT_FOUND;
          return TMX_OK;
        }
        Variant v{};
        bool found = false;
        TMX_RETURN_IF_ERROR(ChooseVariant(s, PayloadOf(pos, itemSize), *locale, &v, &found));
        if (!found) {
          result = TMX_ERR_NOT_FOUND;
          return TMX_OK;
        }
        *locale = v.locale;
        *kind = v.kind;
        *offset = v.offset;
        *size = v.size;
        result = TMX_OK;
        return kStop;
      });
  if (rc < 0) return rc;
  return result;
}

std::int32_t GetMetadataLocaleList(Container* file, std::uint32_t* locales,
                                   std::uint32_t* count) noexcept {
  TMXStream* s = file->stream;
  const Mp4State& st = State(file);
  if (st.metadataListPos == 0) return TMX_ERR_INCONSISTENT;
  AtomRange items{};
  TMX_RETURN_IF_ERROR(OpenList(s, st.metadataListPos, &items));
  constexpr std::uint32_t kGrowth = 16;
  std::uint32_t capacity = kGrowth, found = 0;
  Owned<std::uint32_t> list(AllocArray<std::uint32_t>(capacity));
  if (!list) return TMX_ERR_MEMORY;
  std::int32_t rc = ForEachChild(
      s, items, [&](std::uint32_t pos, std::uint32_t size, std::uint32_t) -> std::int32_t {
        return ForEachChild(
            s, PayloadOf(pos, size),
            [&](std::uint32_t dataPos, std::uint32_t dataSize, std::uint32_t type) -> std::int32_t {
              if (!AtomTypeMatches(type, FourCC("data"))) return TMX_OK;
              Variant v{};
              TMX_RETURN_IF_ERROR(ReadData(s, dataPos, dataSize, &v));
              for (std::uint32_t i = 0; i < found; ++i)
                if (list.get()[i] == v.locale) return TMX_OK;
              if (found == capacity) {
                auto* grown = static_cast<std::uint32_t*>(
                    Realloc(list.get(), capacity * 4u, (capacity + kGrowth) * 4u));
                if (!grown) return TMX_ERR_MEMORY;
                list.release();
                list.reset(grown);
                capacity += kGrowth;
              }
              list.get()[found++] = v.locale;
              return TMX_OK;
            });
      });
  TMX_RETURN_IF_ERROR(rc);
  const std::uint32_t room = *count;
  *count = found;
  if (room < found) return TMX_ERR_BUFFER;
  for (std::uint32_t i = 0; i < found; ++i) locales[i] = list.get()[i];
  return TMX_OK;
}

}  // namespace tmx::mp4
