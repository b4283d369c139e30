// The bookmark list operations. Each checks its arguments in a fixed order (file,
// open list, pointers, read-only list, index, as each function lists them),
// finds the list again in its stream and reads or edits it there.
#include "bookmarks/bookmarks.h"

#include <algorithm>

#include "bookmarks/editor.h"
#include "bookmarks/list.h"
#include "io/stream_io.h"
#include "metadata/key_table.h"
#include "metadata/text_convert.h"
#include "util/alloc.h"

namespace tmx::bookmarks {
namespace {

constexpr std::uint32_t kMinBufferSize = 64;
constexpr std::uint64_t kDuplicateInterval = 1000;

// -2 for a null file, -35 when no list is open.
std::int32_t CheckList(const TMXFile* f) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  return f->bookmarkStream ? TMX_OK : TMX_ERR_NO_BOOKMARK_LIST;
}

// A list whose flags word is 0 is read-only, and so is one kept in the
// programme's own stream, which the library never writes.
std::int32_t CheckWritable(const TMXFile* f) noexcept {
  return f->bookmarkListFlags != 0 && f->bookmarkStream != f->stream ? TMX_OK
                                                                     : TMX_ERR_READ_ONLY_LIST;
}

std::int32_t CheckIndex(const TMXFile* f, std::uint32_t index) noexcept {
  return index < f->bookmarkCount ? TMX_OK : TMX_ERR_INDEX;
}

// Finds the list again: the tree may have moved since the last call.
std::int32_t Locate(TMXFile* f, ListLayout* layout) noexcept {
  TMX_RETURN_IF_ERROR(FindList(f->bookmarkStream, layout));
  f->bookmarkRangeBegin = layout->range.begin;
  f->bookmarkRangeEnd = layout->range.end;
  return TMX_OK;
}

void Remember(TMXFile* f, const ListEditor& editor) noexcept {
  f->bookmarkRangeEnd = editor.layout().range.end;
}

std::int32_t LocateListItems(TMXFile* f, ListLayout* layout, Atom* blst) noexcept {
  TMX_RETURN_IF_ERROR(Locate(f, layout));
  return FindListItems(f->bookmarkStream, layout->range, blst);
}

std::int32_t LocateBookmark(TMXFile* f, std::uint32_t index, ListLayout* layout,
                            Atom* bmrk) noexcept {
  TMX_RETURN_IF_ERROR(Locate(f, layout));
  return FindBookmarkAtom(f->bookmarkStream, layout->range, f->bookmarkTimes[index], bmrk);
}

// Items are written with locale 0, so the list's own locale means them.
std::uint32_t LookupLocale(const TMXFile* f, std::uint32_t locale) noexcept {
  return locale == f->bookmarkListLocale ? 0 : locale;
}

std::int32_t ItemSize(TMXFile* f, const Atom& container, std::uint32_t key, std::uint32_t locale,
                      std::uint32_t* size) noexcept {
  StoredValue v{};
  TMX_RETURN_IF_ERROR(FindItemValue(f->bookmarkStream, ChildrenOf(container), ItemTypeForKey(key),
                                    LookupLocale(f, locale), &v));
  *size = v.size;
  return TMX_OK;
}

// Delivers an item: pictures and the user alias as stored, other values as
// text in the file's unicode format.
std::int32_t ItemValue(TMXFile* f, const Atom& container, std::uint32_t key, std::uint8_t* buffer,
                       std::uint32_t capacity) noexcept {
  TMXStream* s = f->bookmarkStream;
  StoredValue v{};
  TMX_RETURN_IF_ERROR(FindItemValue(s, ChildrenOf(container), ItemTypeForKey(key),
                                    LookupLocale(f, f->metadataLocale), &v));
  if (key == kCoverKey || key == kUserAliasKey) {
    if (capacity < v.size) return TMX_ERR_BUFFER;
    return ReadExactAt(s, v.offset, {buffer, v.size});
  }
  // A claimed size becomes an allocation only when its bytes are there.
  if (!BytesExist(s, std::uint64_t(v.offset) + v.size)) return TMX_ERR_INCONSISTENT;
  // Two zero bytes behind the value end it for every source encoding.
  Owned<std::uint8_t> work(AllocArray<std::uint8_t>(std::size_t(v.size) + 2));
  if (!work) return TMX_ERR_MEMORY;
  TMX_RETURN_IF_ERROR(ReadExactAt(s, v.offset, {work.get(), v.size}));
  return ConvertText({work.get(), std::size_t(v.size) + 2}, v.kind, f->reader.unicodeFormat, buffer,
                     capacity);
}

std::int32_t WriteItem(TMXFile* f, const ListLayout& layout, const Atom& container,
                       std::uint32_t key, const void* value, std::uint32_t size) noexcept {
  ListEditor editor(f->bookmarkStream, layout, f->bookmarkBufferSize);
  const std::int32_t rc = editor.WriteItem(container, ItemTypeForKey(key),
                                           DataTypeForItem(key, f->reader.unicodeFormat),
                                           {static_cast<const std::uint8_t*>(value), size});
  Remember(f, editor);
  return rc;
}

std::int32_t DeleteItems(TMXFile* f, const ListLayout& layout, const Atom& container,
                         std::uint32_t key) noexcept {
  ListEditor editor(f->bookmarkStream, layout, f->bookmarkBufferSize);
  return editor.DeleteItems(container, ItemTypeForKey(key));
}

// The stored time of a bookmark requested at `ms`: kept clear of the end
// of the programme, less the handler's offset.
std::uint32_t StoredTime(const TMXFile* f, std::uint32_t ms) noexcept {
  const std::uint32_t last =
      f->duration > f->bookmarkEndMargin ? f->duration - f->bookmarkEndMargin : 0;
  const std::uint32_t t = std::min(ms, last);
  return t > f->bookmarkTimeOffset ? t - f->bookmarkTimeOffset : 0;
}

// A bookmark may not follow another by less than 1000 ms; one shortly
// before another is allowed.
bool TooClose(const TMXFile* f, std::uint32_t time) noexcept {
  return std::any_of(f->bookmarkTimes, f->bookmarkTimes + f->bookmarkCount,
                     [&](std::uint32_t b) { return b <= time && time < b + kDuplicateInterval; });
}

}  // namespace
}  // namespace tmx::bookmarks

using namespace tmx;
using namespace tmx::bookmarks;

namespace tmx::bookmarks {

std::int32_t SetBookmarkBufferSize(TMXFile* f, std::uint32_t size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (size < kMinBufferSize) return TMX_ERR_ARGUMENT;
  f->bookmarkBufferSize = size;
  return TMX_OK;
}

std::int32_t InitBookmarkList(TMXFile* f, TMXStream* stream) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  return InitList(f, stream);
}

std::int32_t OpenBookmarkList(TMXFile* f, TMXStream* stream) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  StreamPositionKeeper keep(f, stream);
  return OpenList(f, stream);
}

std::int32_t CloseBookmarkList(TMXFile* f) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  tmx::CloseBookmarkList(f);
  return TMX_OK;
}

std::int32_t GetBookmarkListLocale(TMXFile* f, std::uint32_t* locale) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!locale) return TMX_ERR_ARGUMENT;
  *locale = f->bookmarkListLocale;
  return TMX_OK;
}

std::int32_t GetBookmarkCount(TMXFile* f, std::uint32_t* count) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!count) return TMX_ERR_ARGUMENT;
  *count = f->bookmarkCount;
  return TMX_OK;
}

std::int32_t GetBookmarkTimeStamp(TMXFile* f, std::uint32_t index, std::uint32_t* ms) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!ms) return TMX_ERR_ARGUMENT;
  TMX_RETURN_IF_ERROR(CheckIndex(f, index));
  *ms = f->bookmarkTimes[index] + f->bookmarkTimeOffset;
  return TMX_OK;
}

std::int32_t SeekToBookmark(TMXFile* f, std::uint32_t index) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  TMX_RETURN_IF_ERROR(CheckIndex(f, index));
  return TMXSeek(f, f->bookmarkTimes[index] + f->bookmarkTimeOffset);
}

std::int32_t AddBookmark(TMXFile* f, std::uint32_t ms, std::uint32_t* index) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!index) return TMX_ERR_ARGUMENT;
  TMX_RETURN_IF_ERROR(CheckWritable(f));
  const std::uint32_t time = StoredTime(f, ms);
  if (TooClose(f, time)) return TMX_ERR_DUPLICATE_BOOKMARK;
  ListLayout layout{};
  TMX_RETURN_IF_ERROR(Locate(f, &layout));
  ListEditor editor(f->bookmarkStream, layout, f->bookmarkBufferSize);
  TMX_RETURN_IF_ERROR(editor.AddBookmark(time));
  Remember(f, editor);
  if (InsertTime(f, time, index) != 0) {
    // The list in memory no longer matches the file.
    tmx::CloseBookmarkList(f);
    return TMX_ERR_MEMORY;
  }
  return TMX_OK;
}

std::int32_t DeleteBookmark(TMXFile* f, std::uint32_t index) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  TMX_RETURN_IF_ERROR(CheckWritable(f));
  TMX_RETURN_IF_ERROR(CheckIndex(f, index));
  ListLayout layout{};
  Atom bmrk{};
  TMX_RETURN_IF_ERROR(LocateBookmark(f, index, &layout, &bmrk));
  ListEditor editor(f->bookmarkStream, layout, f->bookmarkBufferSize);
  TMX_RETURN_IF_ERROR(editor.PrepareRemoval(bmrk));
  TMX_RETURN_IF_ERROR(editor.MarkFree(bmrk));
  RemoveTime(f, index);
  return editor.Compact();
}

std::int32_t GetBookmarkListInfo(TMXFile* f, std::uint32_t key, std::uint32_t locale,
                                 std::uint32_t* size) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!size) return TMX_ERR_ARGUMENT;
  *size = 0;
  StreamPositionKeeper keep(f, f->bookmarkStream);
  ListLayout layout{};
  Atom blst{};
  TMX_RETURN_IF_ERROR(LocateListItems(f, &layout, &blst));
  return ItemSize(f, blst, key, locale, size);
}

std::int32_t GetBookmarkListMetadata(TMXFile* f, std::uint32_t key, std::uint8_t* buffer,
                                     std::uint32_t size) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!buffer) return TMX_ERR_ARGUMENT;
  StreamPositionKeeper keep(f, f->bookmarkStream);
  ListLayout layout{};
  Atom blst{};
  TMX_RETURN_IF_ERROR(LocateListItems(f, &layout, &blst));
  return ItemValue(f, blst, key, buffer, size);
}

std::int32_t AddBookmarkListMetadata(TMXFile* f, std::uint32_t key, const void* value,
                                     std::uint32_t size) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  TMX_RETURN_IF_ERROR(CheckWritable(f));
  if (!value) return TMX_ERR_ARGUMENT;
  ListLayout layout{};
  Atom blst{};
  const std::int32_t rc = LocateListItems(f, &layout, &blst);
  if (rc == TMX_ERR_NOT_FOUND) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(rc);
  return WriteItem(f, layout, blst, key, value, size);
}

std::int32_t DeleteBookmarkListMetadata(TMXFile* f, std::uint32_t key) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  TMX_RETURN_IF_ERROR(CheckWritable(f));
  ListLayout layout{};
  Atom blst{};
  TMX_RETURN_IF_ERROR(LocateListItems(f, &layout, &blst));
  return DeleteItems(f, layout, blst, key);
}

std::int32_t GetBookmarkInfo(TMXFile* f, std::uint32_t index, std::uint32_t key,
                             std::uint32_t locale, std::uint32_t* size) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!size) return TMX_ERR_ARGUMENT;
  *size = 0;
  TMX_RETURN_IF_ERROR(CheckIndex(f, index));
  StreamPositionKeeper keep(f, f->bookmarkStream);
  ListLayout layout{};
  Atom bmrk{};
  TMX_RETURN_IF_ERROR(LocateBookmark(f, index, &layout, &bmrk));
  return ItemSize(f, bmrk, key, locale, size);
}

std::int32_t GetBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key,
                                 std::uint8_t* buffer, std::uint32_t size) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  if (!buffer) return TMX_ERR_ARGUMENT;
  TMX_RETURN_IF_ERROR(CheckIndex(f, index));
  StreamPositionKeeper keep(f, f->bookmarkStream);
  ListLayout layout{};
  Atom bmrk{};
  TMX_RETURN_IF_ERROR(LocateBookmark(f, index, &layout, &bmrk));
  return ItemValue(f, bmrk, key, buffer, size);
}

std::int32_t AddBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key,
                                 const void* value, std::uint32_t size) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  TMX_RETURN_IF_ERROR(CheckWritable(f));
  TMX_RETURN_IF_ERROR(CheckIndex(f, index));
  if (!value) return TMX_ERR_ARGUMENT;
  ListLayout layout{};
  Atom bmrk{};
  TMX_RETURN_IF_ERROR(LocateBookmark(f, index, &layout, &bmrk));
  return WriteItem(f, layout, bmrk, key, value, size);
}

std::int32_t DeleteBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key) noexcept {
  TMX_RETURN_IF_ERROR(CheckList(f));
  TMX_RETURN_IF_ERROR(CheckWritable(f));
  TMX_RETURN_IF_ERROR(CheckIndex(f, index));
  ListLayout layout{};
  Atom bmrk{};
  TMX_RETURN_IF_ERROR(LocateBookmark(f, index, &layout, &bmrk));
  return DeleteItems(f, layout, bmrk, key);
}

}  // namespace tmx::bookmarks
