// Playback: frames, seeking, chapters, chapter text, links and pictures.
#include "playback/playback.h"

extern "C" {

TMX_API std::int32_t TMXGetNextFrameInfo(TMXFile* f, TMXFrameInfo* info) noexcept {
  return tmx::playback::GetNextFrameInfo(f, info);
}

TMX_API std::int32_t TMXGetEncodedAudio(TMXFile* f, std::uint8_t* buffer, std::int32_t size,
                                        std::uint32_t* count) noexcept {
  return tmx::playback::GetEncodedAudio(f, buffer, size, count);
}

TMX_API std::int32_t TMXSkipNextFrame(TMXFile* f) noexcept {
  return tmx::playback::SkipNextFrame(f);
}

TMX_API std::int32_t TMXSeek(TMXFile* f, std::uint32_t ms) noexcept {
  return tmx::playback::Seek(f, ms);
}

TMX_API std::int32_t TMXSeekToChapter(TMXFile* f, std::uint32_t chapter) noexcept {
  return tmx::playback::SeekToChapter(f, chapter);
}

TMX_API std::int32_t TMXGetChapterStartTime(TMXFile* f, std::uint32_t chapter,
                                            std::uint32_t* ms) noexcept {
  return tmx::playback::GetChapterStartTime(f, chapter, ms);
}

TMX_API std::int32_t TMXGetPlaybackPosition(TMXFile* f, std::uint32_t* ms) noexcept {
  return tmx::playback::GetPlaybackPosition(f, ms);
}

TMX_API std::int32_t TMXGetCurrentChapter(TMXFile* f, std::uint32_t* chapter) noexcept {
  return tmx::playback::GetCurrentChapter(f, chapter);
}

TMX_API std::int32_t TMXSavePlaybackPosition(TMXFile* f, std::uint32_t reason) noexcept {
  return tmx::playback::SavePlaybackPosition(f, reason);
}

TMX_API std::int32_t TMXGetOriginalTitle(TMXFile* f, std::uint32_t* w1, std::uint32_t* w2,
                                         std::uint32_t* w3, std::uint32_t* w4, std::uint32_t* w5,
                                         std::uint32_t* w6, std::uint32_t* w7) noexcept {
  return tmx::playback::GetOriginalTitle(f, w1, w2, w3, w4, w5, w6, w7);
}

TMX_API std::int32_t TMXGetLinkCount(TMXFile* f, std::uint32_t* count) noexcept {
  return tmx::playback::GetLinkCount(f, count);
}

TMX_API std::int32_t TMXGetChapterInfo(TMXFile* f, std::uint32_t chapter,
                                       TMXFrameInfo* info) noexcept {
  return tmx::playback::GetChapterInfo(f, chapter, info);
}

TMX_API std::int32_t TMXGetLinkInfo(TMXFile* f, std::uint32_t link, TMXFrameInfo* info) noexcept {
  return tmx::playback::GetLinkInfo(f, link, info);
}

TMX_API std::int32_t TMXGetLinkStartTime(TMXFile* f, std::uint32_t link,
                                         std::uint32_t* time) noexcept {
  return tmx::playback::GetLinkStartTime(f, link, time);
}

TMX_API std::int32_t TMXGetImageInfo(TMXFile* f, std::uint32_t image, TMXFrameInfo* info) noexcept {
  return tmx::playback::GetImageInfo(f, image, info);
}

TMX_API std::int32_t TMXGetImageStartTime(TMXFile* f, std::uint32_t image,
                                          std::uint32_t* time) noexcept {
  return tmx::playback::GetImageStartTime(f, image, time);
}

TMX_API std::int32_t TMXGetChapterText(TMXFile* f, const TMXFrameInfo* record, std::uint8_t* buffer,
                                       std::uint32_t size) noexcept {
  return tmx::playback::GetChapterText(f, record, buffer, size);
}

TMX_API std::int32_t TMXGetLink(TMXFile* f, const TMXFrameInfo* record, std::uint8_t* buffer,
                                std::uint32_t size) noexcept {
  return tmx::playback::GetLink(f, record, buffer, size);
}

TMX_API std::int32_t TMXGetEncodedImage(TMXFile* f, const TMXFrameInfo* record, std::uint32_t start,
                                        std::uint8_t* buffer, std::uint32_t size,
                                        std::uint32_t* bytesRead) noexcept {
  return tmx::playback::GetEncodedImage(f, record, start, buffer, size, bytesRead);
}

}  // extern "C"
