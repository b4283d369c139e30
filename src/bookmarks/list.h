// The bookmark list of an open programme: creating, opening and closing it,
// and the state the TMXFile keeps while it is open.
#pragma once

#include <cstdint>

#include "api/file.h"
#include "bookmarks/storage.h"

namespace tmx {

// Closes the open bookmark list, if any: its stream is closed unless it is
// the programme's own stream or the position stream, and the list state is
// cleared.
void CloseBookmarkList(TMXFile* file) noexcept;

namespace bookmarks {

inline constexpr std::uint32_t kProductIdKey = FourCC("@pid");

// Opens the list in `stream` (closing the one open before). -33 for a null
// stream or one without the operations to read it, -8 when the programme
// has no "@pid", -1 when the stream does not open, -25 or -7 when the tree is
// missing or malformed, -36 when the list belongs to another programme, -10.
std::int32_t OpenList(TMXFile* file, TMXStream* stream) noexcept;

// Writes a new, empty list into `stream` (from position 0, behind the
// position record when it is the position stream) and opens it when it
// replaces the open list or lives in the position stream.
std::int32_t InitList(TMXFile* file, TMXStream* stream) noexcept;

// Stores a time (sorted) or drops the one at `index`.
std::int32_t InsertTime(TMXFile* file, std::uint32_t time, std::uint32_t* index) noexcept;
void RemoveTime(TMXFile* file, std::uint32_t index) noexcept;

// Keeps the position of the programme's own stream across a call that
// works on a list kept in it, so that playback is not disturbed. Other
// streams are left alone (a failed open may close them).
class StreamPositionKeeper {
 public:
  StreamPositionKeeper(TMXFile* file, TMXStream* s) noexcept
      : s_(s && s == file->stream ? s : nullptr),
        saved_(s_ ? s_->ops->Tell(s_) : TMX_STREAM_UNKNOWN) {}
  StreamPositionKeeper(const StreamPositionKeeper&) = delete;
  StreamPositionKeeper& operator=(const StreamPositionKeeper&) = delete;
  ~StreamPositionKeeper() {
    if (saved_ != TMX_STREAM_UNKNOWN) s_->ops->Seek(s_, saved_);
  }

 private:
  TMXStream* s_;
  std::uint32_t saved_;
};

}  // namespace bookmarks
}  // namespace tmx
