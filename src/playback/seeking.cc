// Seeking by time and chapter, chapter queries and the saved position.
#include "playback/playback.h"

#include "container/format_handler.h"
#include "playback/position.h"
#include "util/frame_time.h"

namespace {

std::uint32_t Ms(const TMXFile* f, std::uint32_t frames) noexcept {
  return tmx::FramesToMs(frames, f->sampleRate, f->samplesPerFrame);
}

}  // namespace

namespace tmx::playback {

std::int32_t Seek(TMXFile* f, std::uint32_t ms) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (f->samplesPerFrame == 0) return TMX_ERR_INCONSISTENT;
  const std::uint32_t frame = tmx::TimeToFrame(ms, f->sampleRate, f->samplesPerFrame);
  if (frame >= f->frameCount) return TMX_ERR_SEEK_RANGE;
  if (f->formatHandler->SeekToFrame(&f->reader, frame) != 0) return TMX_ERR_SEEK_RANGE;
  f->reader.decoderResetPending = 1;
  tmx::SavePosition(f, std::uint32_t(tmx::SaveReason::kSeek));
  return TMX_OK;
}

std::int32_t SeekToChapter(TMXFile* f, std::uint32_t chapter) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (chapter >= f->chapterCount) return TMX_ERR_INDEX;
  const std::uint32_t frame = f->chapterStartFrames[chapter];
  if (f->formatHandler->SeekToFrame(&f->reader, frame) != 0) return TMX_ERR_SEEK_RANGE;
  f->reader.currentFrame = frame;
  tmx::SavePosition(f, std::uint32_t(tmx::SaveReason::kSeek));
  f->reader.decoderResetPending = 1;
  return TMX_OK;
}

std::int32_t GetChapterStartTime(TMXFile* f, std::uint32_t chapter, std::uint32_t* ms) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!ms) return TMX_ERR_ARGUMENT;
  if (chapter >= f->chapterCount) return TMX_ERR_INDEX;
  *ms = Ms(f, f->chapterStartFrames[chapter]);
  return TMX_OK;
}

std::int32_t GetPlaybackPosition(TMXFile* f, std::uint32_t* ms) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!ms) return TMX_ERR_ARGUMENT;
  if (f->positionStream && !f->positionStreamOpen && !f->positionLoaded) {
    const std::int32_t rc = tmx::LoadPosition(f);
    f->positionLoaded = 1;
    if (rc != 0) return rc;
  }
  *ms = Ms(f, f->reader.currentFrame);
  return TMX_OK;
}

std::int32_t GetCurrentChapter(TMXFile* f, std::uint32_t* chapter) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!chapter) return TMX_ERR_ARGUMENT;
  std::uint32_t position = 0;
  if (f->chapterCount == 0 || TMXGetPlaybackPosition(f, &position) != 0) return TMX_ERR_NOT_FOUND;
  TMXStream* s = f->stream;
  const std::uint32_t saved = s->ops->Tell(s);
  std::uint32_t found = 0;
  // The last chapter that starts at or before the position; chapter 0's own
  // start is not compared.
  for (std::uint32_t i = f->chapterCount - 1; i >= 1; --i) {
    if (Ms(f, f->chapterStartFrames[i]) <= position) {
      found = i;
      break;
    }
  }
  s->ops->Seek(s, saved);
  *chapter = found;
  return TMX_OK;
}

std::int32_t SavePlaybackPosition(TMXFile* f, std::uint32_t reason) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  return tmx::SavePosition(f, reason);
}

std::int32_t GetOriginalTitle(TMXFile* f, std::uint32_t* w1, std::uint32_t* w2, std::uint32_t* w3,
                              std::uint32_t* w4, std::uint32_t* w5, std::uint32_t* w6,
                              std::uint32_t* w7) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!w1) return TMX_ERR_ARGUMENT;
  *w1 = f->originalTitle[0];
  if (f->originalTitle[0] == 0) return TMX_OK;
  std::uint32_t* rest[6] = {w2, w3, w4, w5, w6, w7};
  for (std::uint32_t* p : rest)
    if (!p) return TMX_ERR_ARGUMENT;
  for (int i = 0; i < 6; ++i) *rest[i] = f->originalTitle[i + 1];
  return TMX_OK;
}

}  // namespace tmx::playback
