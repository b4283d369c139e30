// The bookmark list.
#include "bookmarks/bookmarks.h"

extern "C" {

TMX_API std::int32_t TMXSetBookmarkBufferSize(TMXFile* f, std::uint32_t size) noexcept {
  return tmx::bookmarks::SetBookmarkBufferSize(f, size);
}

TMX_API std::int32_t TMXInitBookmarkList(TMXFile* f, TMXStream* stream) noexcept {
  return tmx::bookmarks::InitBookmarkList(f, stream);
}

TMX_API std::int32_t TMXOpenBookmarkList(TMXFile* f, TMXStream* stream) noexcept {
  return tmx::bookmarks::OpenBookmarkList(f, stream);
}

TMX_API std::int32_t TMXCloseBookmarkList(TMXFile* f) noexcept {
  return tmx::bookmarks::CloseBookmarkList(f);
}

TMX_API std::int32_t TMXGetBookmarkListLocale(TMXFile* f, std::uint32_t* locale) noexcept {
  return tmx::bookmarks::GetBookmarkListLocale(f, locale);
}

TMX_API std::int32_t TMXGetBookmarkCount(TMXFile* f, std::uint32_t* count) noexcept {
  return tmx::bookmarks::GetBookmarkCount(f, count);
}

TMX_API std::int32_t TMXGetBookmarkTimeStamp(TMXFile* f, std::uint32_t index,
                                             std::uint32_t* ms) noexcept {
  return tmx::bookmarks::GetBookmarkTimeStamp(f, index, ms);
}

TMX_API std::int32_t TMXSeekToBookmark(TMXFile* f, std::uint32_t index) noexcept {
  return tmx::bookmarks::SeekToBookmark(f, index);
}

TMX_API std::int32_t TMXAddBookmark(TMXFile* f, std::uint32_t ms, std::uint32_t* index) noexcept {
  return tmx::bookmarks::AddBookmark(f, ms, index);
}

TMX_API std::int32_t TMXDeleteBookmark(TMXFile* f, std::uint32_t index) noexcept {
  return tmx::bookmarks::DeleteBookmark(f, index);
}

TMX_API std::int32_t TMXGetBookmarkListInfo(TMXFile* f, std::uint32_t key, std::uint32_t locale,
                                            std::uint32_t* size) noexcept {
  return tmx::bookmarks::GetBookmarkListInfo(f, key, locale, size);
}

TMX_API std::int32_t TMXGetBookmarkListMetadata(TMXFile* f, std::uint32_t key, std::uint8_t* buffer,
                                                std::uint32_t size) noexcept {
  return tmx::bookmarks::GetBookmarkListMetadata(f, key, buffer, size);
}

TMX_API std::int32_t TMXAddBookmarkListMetadata(TMXFile* f, std::uint32_t key, const void* value,
                                                std::uint32_t size) noexcept {
  return tmx::bookmarks::AddBookmarkListMetadata(f, key, value, size);
}

TMX_API std::int32_t TMXDeleteBookmarkListMetadata(TMXFile* f, std::uint32_t key) noexcept {
  return tmx::bookmarks::DeleteBookmarkListMetadata(f, key);
}

TMX_API std::int32_t TMXGetBookmarkInfo(TMXFile* f, std::uint32_t index, std::uint32_t key,
                                        std::uint32_t locale, std::uint32_t* size) noexcept {
  return tmx::bookmarks::GetBookmarkInfo(f, index, key, locale, size);
}

TMX_API std::int32_t TMXGetBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key,
                                            std::uint8_t* buffer, std::uint32_t size) noexcept {
  return tmx::bookmarks::GetBookmarkMetadata(f, index, key, buffer, size);
}

TMX_API std::int32_t TMXAddBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key,
                                            const void* value, std::uint32_t size) noexcept {
  return tmx::bookmarks::AddBookmarkMetadata(f, index, key, value, size);
}

TMX_API std::int32_t TMXDeleteBookmarkMetadata(TMXFile* f, std::uint32_t index,
                                               std::uint32_t key) noexcept {
  return tmx::bookmarks::DeleteBookmarkMetadata(f, index, key);
}

}  // extern "C"
