// The bookmark list.
// The exported functions in src/api forward to these; each checks its
// arguments in the order the export documents.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

namespace tmx::bookmarks {

std::int32_t SetBookmarkBufferSize(TMXFile* f, std::uint32_t size) noexcept;
std::int32_t InitBookmarkList(TMXFile* f, TMXStream* stream) noexcept;
std::int32_t OpenBookmarkList(TMXFile* f, TMXStream* stream) noexcept;
std::int32_t CloseBookmarkList(TMXFile* f) noexcept;
std::int32_t GetBookmarkListLocale(TMXFile* f, std::uint32_t* locale) noexcept;
std::int32_t GetBookmarkCount(TMXFile* f, std::uint32_t* count) noexcept;
std::int32_t GetBookmarkTimeStamp(TMXFile* f, std::uint32_t index, std::uint32_t* ms) noexcept;
std::int32_t SeekToBookmark(TMXFile* f, std::uint32_t index) noexcept;
std::int32_t AddBookmark(TMXFile* f, std::uint32_t ms, std::uint32_t* index) noexcept;
std::int32_t DeleteBookmark(TMXFile* f, std::uint32_t index) noexcept;
std::int32_t GetBookmarkListInfo(TMXFile* f, std::uint32_t key, std::uint32_t locale,
                                 std::uint32_t* size) noexcept;
std::int32_t GetBookmarkListMetadata(TMXFile* f, std::uint32_t key, std::uint8_t* buffer,
                                     std::uint32_t size) noexcept;
std::int32_t AddBookmarkListMetadata(TMXFile* f, std::uint32_t key, const void* value,
                                     std::uint32_t size) noexcept;
std::int32_t DeleteBookmarkListMetadata(TMXFile* f, std::uint32_t key) noexcept;
std::int32_t GetBookmarkInfo(TMXFile* f, std::uint32_t index, std::uint32_t key,
                             std::uint32_t locale, std::uint32_t* size) noexcept;
std::int32_t GetBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key,
                                 std::uint8_t* buffer, std::uint32_t size) noexcept;
std::int32_t AddBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key,
                                 const void* value, std::uint32_t size) noexcept;
std::int32_t DeleteBookmarkMetadata(TMXFile* f, std::uint32_t index, std::uint32_t key) noexcept;

}  // namespace tmx::bookmarks
