// Playback: frames, seeking, chapters, chapter text, links and pictures.
// The exported functions in src/api forward to these; each checks its
// arguments in the order the export documents.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

namespace tmx::playback {

std::int32_t GetNextFrameInfo(TMXFile* f, TMXFrameInfo* info) noexcept;
std::int32_t GetEncodedAudio(TMXFile* f, std::uint8_t* buffer, std::int32_t size,
                             std::uint32_t* count) noexcept;
std::int32_t SkipNextFrame(TMXFile* f) noexcept;

std::int32_t Seek(TMXFile* f, std::uint32_t ms) noexcept;
std::int32_t SeekToChapter(TMXFile* f, std::uint32_t chapter) noexcept;
std::int32_t GetChapterStartTime(TMXFile* f, std::uint32_t chapter, std::uint32_t* ms) noexcept;
std::int32_t GetPlaybackPosition(TMXFile* f, std::uint32_t* ms) noexcept;
std::int32_t GetCurrentChapter(TMXFile* f, std::uint32_t* chapter) noexcept;
std::int32_t SavePlaybackPosition(TMXFile* f, std::uint32_t reason) noexcept;
std::int32_t GetOriginalTitle(TMXFile* f, std::uint32_t* w1, std::uint32_t* w2, std::uint32_t* w3,
                              std::uint32_t* w4, std::uint32_t* w5, std::uint32_t* w6,
                              std::uint32_t* w7) noexcept;

std::int32_t GetLinkCount(TMXFile* f, std::uint32_t* count) noexcept;
std::int32_t GetChapterInfo(TMXFile* f, std::uint32_t chapter, TMXFrameInfo* info) noexcept;
std::int32_t GetLinkInfo(TMXFile* f, std::uint32_t link, TMXFrameInfo* info) noexcept;
std::int32_t GetLinkStartTime(TMXFile* f, std::uint32_t link, std::uint32_t* time) noexcept;
std::int32_t GetImageInfo(TMXFile* f, std::uint32_t image, TMXFrameInfo* info) noexcept;
std::int32_t GetImageStartTime(TMXFile* f, std::uint32_t image, std::uint32_t* time) noexcept;
std::int32_t GetChapterText(TMXFile* f, const TMXFrameInfo* record, std::uint8_t* buffer,
                            std::uint32_t size) noexcept;
std::int32_t GetLink(TMXFile* f, const TMXFrameInfo* record, std::uint8_t* buffer,
                     std::uint32_t size) noexcept;
std::int32_t GetEncodedImage(TMXFile* f, const TMXFrameInfo* record, std::uint32_t start,
                             std::uint8_t* buffer, std::uint32_t size,
                             std::uint32_t* bytesRead) noexcept;

}  // namespace tmx::playback
