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

// Calls visit(position, size, type) for each child box of `range` that
// starts before its last 8 bytes; a non-zero result stops the walk.
template <class Visit>
std::int32_t ForEachChild(TMXStream* s, AtomRange range, Visit&& visit) noexcept {
  return ForEachBox(
      s, range, [&](const Box& box) { return visit(box.pos, box.size, box.type); },
      ShortTail::kIgnored);
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
  // One entry per chapter, each list at least a box header of the file.
  if (!CountFits(FileRange(s), st.chapterMetadataPos, file->info.chapterCount, kAtomHeaderSize))
    return TMX_ERR_INCONSISTENT;
  Owned<std::uint32_t> lists(AllocArray<std::uint32_t>(file->info.chapterCount));
  if (!lists) return TMX_ERR_MEMORY;
  const std::uint32_t saved = s->ops->Tell(s);
  std::uint32_t filled = 0;
  constexpr std::int32_t kAllFound = 2;
  std::int32_t rc =
      ForEachBox(s, {st.chapterMetadataPos, FileRange(s).end}, [&](const Box& box) -> std::int32_t {
        if (AtomTypeMatches(box.type, FourCC("ilst"))) lists.get()[filled++] = box.pos;
        return filled == file->info.chapterCount ? kAllFound : TMX_OK;
      });
  s->ops->Seek(s, saved);
  if (rc != kAllFound) return rc == TMX_OK ? TMX_ERR_INCONSISTENT : rc;
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
  Box box{};
  TMX_RETURN_IF_ERROR(ReadBoxAt(s, listPos, FileRange(s), &box));
  *items = box.payload();
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
