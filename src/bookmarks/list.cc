#include "bookmarks/list.h"

#include <algorithm>
#include <cstring>

#include "io/file_stream.h"
#include "io/stream_io.h"
#include "metadata/key_table.h"
#include "playback/position.h"
#include "util/alloc.h"

namespace tmx {
namespace bookmarks {
namespace {

// Forgets the open list without closing its stream.
void Detach(TMXFile* f) noexcept {
  Free(f->bookmarkTimes);
  f->bookmarkTimes = nullptr;
  f->bookmarkStream = nullptr;
  f->bookmarkRangeBegin = f->bookmarkRangeEnd = 0;
  f->bookmarkListLocale = f->bookmarkListFlags = f->bookmarkCount = 0;
}

bool CanRead(const TMXStream* s) noexcept {
  const TMXStreamOps* ops = s->ops;
  return ops && ops->Close && ops->GetSize && ops->Tell && ops->Seek && ops->Read;
}

// Whether the list code may close the stream: never the programme's own
// stream nor the position stream, which the file closes itself.
bool ClosesWithList(const TMXFile* f, const TMXStream* s) noexcept {
  return s != f->stream && s != f->positionStream;
}

void CloseStream(TMXFile* f, TMXStream* s) noexcept {
  if (s && ClosesWithList(f, s)) s->ops->Close(s);
}

// Closes a stream on every path that does not keep it.
class StreamCloser {
 public:
  explicit StreamCloser(TMXStream* s) noexcept : s_(s) {}
  StreamCloser(const StreamCloser&) = delete;
  StreamCloser& operator=(const StreamCloser&) = delete;
  ~StreamCloser() {
    if (s_) s_->ops->Close(s_);
  }
  void Keep() noexcept { s_ = nullptr; }

 private:
  TMXStream* s_;
};

// Size of the programme's "@pid" value as delivered in the current text
// format; -8 when there is none.
std::int32_t ProductIdSize(TMXFile* f, std::uint32_t* size) noexcept {
  if (TMXGetMetadataInfo(f, kProductIdKey, 0, size) != 0) return TMX_ERR_UNSUPPORTED;
  return *size > kMaxValueSize ? TMX_ERR_INCONSISTENT : TMX_OK;
}

// The list must carry the programme's "@pid": the stored value, up to its
// first zero byte within the programme's value size, must equal the
// programme's value. A stored value without a zero byte there is not
// compared.
std::int32_t CheckIdentity(TMXFile* f, TMXStream* s, const Atom& blst, std::uint32_t listLocale,
                           std::uint32_t pidSize) noexcept {
  StoredValue stored{};
  const std::int32_t rc =
      FindItemValue(s, ChildrenOf(blst), ItemTypeForKey(kProductIdKey), listLocale, &stored);
  if (rc == TMX_ERR_NOT_FOUND) return TMX_ERR_FOREIGN_LIST;
  TMX_RETURN_IF_ERROR(rc);
  const std::uint32_t span = std::min(stored.size, pidSize);
  if (span == 0) return TMX_OK;
  Owned<std::uint8_t> own(AllocArray<std::uint8_t>(2 * std::size_t(pidSize)));
  Owned<std::uint8_t> mine(AllocArray<std::uint8_t>(span));
  if (!own || !mine) return TMX_ERR_MEMORY;
  TMX_RETURN_IF_ERROR(TMXGetMetadata(f, kProductIdKey, own.get(), 2 * pidSize));
  TMX_RETURN_IF_ERROR(ReadExactAt(s, stored.offset, {mine.get(), span}));
  const auto* zero = static_cast<const std::uint8_t*>(std::memchr(mine.get(), 0, span));
  if (!zero) return TMX_OK;
  const std::size_t compared = std::size_t(zero - mine.get()) + 1;
  return std::memcmp(mine.get(), own.get(), compared) == 0 ? TMX_OK : TMX_ERR_FOREIGN_LIST;
}

// Reads the list in an open stream into the file's list state.
std::int32_t ReadList(TMXFile* f, TMXStream* s, std::uint32_t pidSize) noexcept {
  ListLayout layout{};
  TMX_RETURN_IF_ERROR(FindList(s, &layout));
  Atom blst{};
  TMX_RETURN_IF_ERROR(FindListItems(s, layout.range, &blst));
  std::uint8_t word[4];
  TMX_RETURN_IF_ERROR(ReadExactAt(s, blst.pos + kAtomHeaderSize, word));
  const std::uint32_t locale = LoadBE32(word);
  TMX_RETURN_IF_ERROR(CheckIdentity(f, s, blst, locale, pidSize));
  std::uint32_t count = 0;
  TMX_RETURN_IF_ERROR(CountBookmarks(s, layout.range, &count));
  Owned<std::uint32_t> times;
  if (count > 0) {
    times.reset(AllocArray<std::uint32_t>(count));
    if (!times) return TMX_ERR_MEMORY;
    TMX_RETURN_IF_ERROR(ReadBookmarkTimes(s, layout.range, times.get(), count));
    std::sort(times.get(), times.get() + count);
  }
  f->bookmarkStream = s;
  f->bookmarkRangeBegin = layout.range.begin;
  f->bookmarkRangeEnd = layout.range.end;
  f->bookmarkListLocale = locale;
  f->bookmarkListFlags = layout.flags;
  f->bookmarkCount = count;
  f->bookmarkTimes = times.release();
  return TMX_OK;
}

// Opens a list in `s`; `isOpen` when the stream is open already.
std::int32_t OpenOn(TMXFile* f, TMXStream* s, bool isOpen) noexcept {
  std::uint32_t pidSize = 0;
  if (std::int32_t rc = ProductIdSize(f, &pidSize); rc != 0) {
    if (isOpen) CloseStream(f, s);
    return rc;
  }
  if (s == f->positionStream) {
    if (!OpenPositionStream(f, /*create=*/false)) return TMX_ERR_FILE;
  } else if (s != f->stream && !isOpen) {
    if (!s->ops->Open || s->ops->Open(s, TMX_STREAM_READ) != 0) return TMX_ERR_FILE;
  }
  StreamCloser closer(ClosesWithList(f, s) ? s : nullptr);
  TMX_RETURN_IF_ERROR(ReadList(f, s, pidSize));
  closer.Keep();
  return TMX_OK;
}

// Data type of the "@pid" item of a new list.
std::uint32_t ProductIdDataType(std::uint32_t unicodeFormat) noexcept {
  switch (unicodeFormat) {
    case 1: return 1;
    case 3: return 2;
    case 16: return 13;
    default: return 0;
  }
}

// Writes the tree of an empty list from position 0.
std::int32_t WriteTree(TMXFile* f, TMXStream* s, const std::uint8_t (&prefix)[kPrefixSize],
                       std::span<const std::uint8_t> pid) noexcept {
  const std::uint32_t n = std::uint32_t(pid.size());
  std::uint8_t head[80];
  std::memcpy(head, prefix, kPrefixSize);
  const std::uint32_t words[] = {n + 100,
                                 FourCC("moov"),
                                 n + 92,
                                 FourCC("udta"),
                                 n + 84,
                                 FourCC("bmet"),
                                 1,  // flags: the list may be edited
                                 n + 44,
                                 kListItems,
                                 f->metadataLocale,
                                 n + kItemOverhead,
                                 ItemTypeForKey(kProductIdKey),
                                 n + 16,
                                 kData,
                                 ProductIdDataType(f->reader.unicodeFormat),
                                 0};
  for (std::size_t i = 0; i < std::size(words); ++i)
    StoreBE32(head + kPrefixSize + 4 * i, words[i]);
  // An empty "free" atom closes the list's items; 28 spare bytes follow.
  std::uint8_t tail[36] = {};
  StoreBE32(tail, kAtomHeaderSize);
  StoreBE32(tail + 4, kFree);
  StoreBE32(tail + 8, 28);
  StoreBE32(tail + 12, kFree);
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, 0));
  TMX_RETURN_IF_ERROR(WriteExactAt(s, 0, head));
  TMX_RETURN_IF_ERROR(WriteExactAt(s, sizeof head, pid));
  return WriteExactAt(s, sizeof head + n, tail);
}

// The 16 bytes in front of a list kept in the position stream (zeros when
// they cannot be read). A caller's position stream is closed afterwards, so
// that the new list is made through Create like any other; a built-in one
// stays open (created when missing), since its Close would free it.
std::int32_t ReadPrefix(TMXFile* f, TMXStream* s, bool keepOpen,
                        std::uint8_t (&prefix)[kPrefixSize]) noexcept {
  const bool open = OpenPositionStream(f, /*create=*/keepOpen);
  if (keepOpen && !open) return TMX_ERR_FILE;
  if (!open || ReadExactAt(s, 0, prefix) != 0) std::memset(prefix, 0, kPrefixSize);
  if (open && !keepOpen) {
    s->ops->Close(s);
    f->positionStreamOpen = 0;
  }
  return TMX_OK;
}

}  // namespace

std::int32_t OpenList(TMXFile* f, TMXStream* s) noexcept {
  // The open list's stream is closed and opened again, unless it is a
  // built-in file stream, whose Close would free it: that one stays open.
  const bool keepOpen = s && s == f->bookmarkStream && IsFileStream(s);
  if (keepOpen) {
    Detach(f);
  } else {
    CloseBookmarkList(f);
  }
  if (!s) return TMX_ERR_STREAM_OPS;
  if (!CanRead(s)) {
    if (keepOpen) CloseStream(f, s);
    return TMX_ERR_STREAM_OPS;
  }
  return OpenOn(f, s, keepOpen);
}

// A new list: close the list kept in the stream, keep the position record,
// Create, write the tree, Close, and open the new list when it replaced the
// open one or lives in the position stream. Built-in file streams free
// themselves in Close, so one that is open already is written while it
// stays open.
std::int32_t InitList(TMXFile* f, TMXStream* s) noexcept {
  if (!s || s == f->stream || !CanRead(s) || !s->ops->Write) return TMX_ERR_STREAM_OPS;
  const bool position = s == f->positionStream;
  const bool builtIn = IsFileStream(s);
  const bool replaces = s == f->bookmarkStream;
  if (replaces && builtIn) {
    Detach(f);
  } else if (replaces) {
    CloseBookmarkList(f);
  }
  const bool reopen = position || replaces;
  // A built-in stream that is open now stays open throughout; on failure
  // the list's own stream is closed, the position stream left to the file.
  const bool isOpen = builtIn && reopen;
  StreamCloser closeOpen(isOpen && !position ? s : nullptr);

  std::uint32_t n = 0;
  TMX_RETURN_IF_ERROR(ProductIdSize(f, &n));
  Owned<std::uint8_t> pid;
  if (n > 0) {
    pid.reset(AllocArray<std::uint8_t>(n));
    if (!pid) return TMX_ERR_MEMORY;
  }
  std::uint8_t prefix[kPrefixSize] = {};
  if (position) TMX_RETURN_IF_ERROR(ReadPrefix(f, s, builtIn, prefix));
  if (!isOpen && (!s->ops->Create || s->ops->Create(s) != 0)) return TMX_ERR_FILE;
  StreamCloser closeCreated(isOpen ? nullptr : s);
  if (n > 0) TMX_RETURN_IF_ERROR(TMXGetMetadata(f, kProductIdKey, pid.get(), n));
  TMX_RETURN_IF_ERROR(WriteTree(f, s, prefix, {pid.get(), n}));
  ListLayout layout{};
  Atom blst{};
  TMX_RETURN_IF_ERROR(FindList(s, &layout));
  TMX_RETURN_IF_ERROR(FindListItems(s, layout.range, &blst));
  if (!reopen) return TMX_OK;  // closeCreated closes the stream
  closeOpen.Keep();
  if (!isOpen) {
    closeCreated.Keep();
    s->ops->Close(s);
  }
  CloseBookmarkList(f);  // a list open in another stream
  return OpenOn(f, s, isOpen);
}

std::int32_t InsertTime(TMXFile* f, std::uint32_t time, std::uint32_t* index) noexcept {
  const std::uint32_t count = f->bookmarkCount;
  auto* grown = static_cast<std::uint32_t*>(
      Realloc(f->bookmarkTimes, std::size_t(count) * 4, (std::size_t(count) + 1) * 4));
  if (!grown) return TMX_ERR_MEMORY;
  std::uint32_t* at = std::lower_bound(grown, grown + count, time);
  std::copy_backward(at, grown + count, grown + count + 1);
  *at = time;
  f->bookmarkTimes = grown;
  f->bookmarkCount = count + 1;
  *index = std::uint32_t(at - grown);
  return TMX_OK;
}

void RemoveTime(TMXFile* f, std::uint32_t index) noexcept {
  std::uint32_t* times = f->bookmarkTimes;
  const std::uint32_t count = f->bookmarkCount - 1;
  std::copy(times + index + 1, times + count + 1, times + index);
  f->bookmarkCount = count;
  if (count == 0) {
    Free(times);
    f->bookmarkTimes = nullptr;
    return;
  }
  // A failed shrink keeps the larger block, which is just as good.
  if (void* smaller = Realloc(times, (std::size_t(count) + 1) * 4, std::size_t(count) * 4))
    f->bookmarkTimes = static_cast<std::uint32_t*>(smaller);
}

}  // namespace bookmarks

void CloseBookmarkList(TMXFile* f) noexcept {
  bookmarks::CloseStream(f, f->bookmarkStream);
  bookmarks::Detach(f);
}

}  // namespace tmx
