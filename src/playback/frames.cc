// Pulling the programme frame by frame.
#include "playback/playback.h"

#include "container/format_handler.h"
#include "playback/position.h"
#include "util/status.h"

namespace {

// True when the sample type is one the player asked to see.
bool Wanted(const TMXFile* f, std::uint32_t type) noexcept {
  using tmx::FourCC;
  return type == f->audioTrackType || (type == FourCC("jpeg") && f->chapterImagesEnabled) ||
         (type == FourCC("text") && f->chapterTextEnabled) ||
         (type == FourCC("tx3g") && f->chapterLinksEnabled);
}

}  // namespace

namespace tmx::playback {

std::int32_t GetNextFrameInfo(TMXFile* f, TMXFrameInfo* info) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!info) return TMX_ERR_ARGUMENT;
  tmx::EnsurePositionLoaded(f);
  // The end test counts audio frames, so side samples stored after the last
  // audio frame are never reported.
  for (;;) {
    if (f->reader.currentFrame >= f->frameCount) return TMX_ERR_END;
    if (Wanted(f, f->reader.currentFrameInfo.type)) break;
    TMX_RETURN_IF_ERROR(f->formatHandler->AdvanceFrame(&f->reader));
  }
  const TMXFrameInfo& current = f->reader.currentFrameInfo;
  *info = current;
  // Pictures, and samples whose size is not known yet, are described from
  // their track's tables.
  if (current.type == tmx::FourCC("jpeg") || current.size == 0)
    f->formatHandler->GetSampleInfo(&f->reader, current.type, current.index, info);
  return TMX_OK;
}

std::int32_t GetEncodedAudio(TMXFile* f, std::uint8_t* buffer, std::int32_t size,
                             std::uint32_t* count) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!buffer || !count) return TMX_ERR_ARGUMENT;
  tmx::EnsurePositionLoaded(f);
  const std::uint32_t capacity = size > 0 ? std::uint32_t(size) : 0;
  const std::int32_t rc = f->formatHandler->ReadEncodedFrame(&f->reader, buffer, capacity, count);
  if (rc != TMX_ERR_END) {
    tmx::SavePosition(f, std::uint32_t(tmx::SaveReason::kPeriodic));
    return rc;
  }
  // At the end the reader goes back to the start, and the saved position
  // marks the book finished.
  f->formatHandler->SeekToFrame(&f->reader, 0);
  tmx::SavePosition(f, std::uint32_t(tmx::SaveReason::kEnd));
  return TMX_ERR_END;
}

std::int32_t SkipNextFrame(TMXFile* f) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (f->reader.currentFrameInfo.type == 0) return TMX_ERR_NOT_FOUND;
  tmx::EnsurePositionLoaded(f);
  if (f->reader.currentFrame >= f->frameCount) return TMX_ERR_END;
  return f->formatHandler->AdvanceFrame(&f->reader);
}

}  // namespace tmx::playback
