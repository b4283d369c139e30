#include "playback/position.h"

#include "container/format_handler.h"
#include "io/stream_io.h"
#include "util/frame_time.h"

namespace tmx {
namespace {

constexpr std::uint32_t kRecordVersion = 2;
constexpr std::uint32_t kRecordSize = 16;

std::uint32_t ByteSum(std::uint32_t v) noexcept {
  return (v & 0xFF) + ((v >> 8) & 0xFF) + ((v >> 16) & 0xFF) + (v >> 24);
}

// Reads and checks the record; -5, -3 or 0.
std::int32_t ReadRecord(TMXStream* s, PositionRecord* record) noexcept {
  std::uint8_t bytes[kRecordSize];
  TMX_RETURN_IF_ERROR(ReadExactAt(s, 0, bytes));
  record->version = LoadBE32(bytes);
  record->checksum = LoadBE32(bytes + 4);
  record->position = LoadBE32(bytes + 8);
  record->finished = LoadBE32(bytes + 12);
  if (record->version != kRecordVersion ||
      record->checksum != PositionChecksum(record->position, record->finished))
    return TMX_ERR_READ;
  return TMX_OK;
}

}  // namespace

bool OpenPositionStream(TMXFile* f, bool create) noexcept {
  if (f->positionStreamOpen) return true;
  TMXStream* s = f->positionStream;
  const TMXStreamOps* ops = s->ops;
  bool opened = ops->Open && ops->Open(s, TMX_STREAM_READ_WRITE) == 0;
  if (!opened && create) opened = ops->Create && ops->Create(s) == 0;
  if (opened) f->positionStreamOpen = 1;
  return opened;
}

std::uint32_t PositionChecksum(std::uint32_t position, std::uint32_t finished) noexcept {
  return ~(ByteSum(position) + ByteSum(finished));
}

std::int32_t SavePosition(TMXFile* f, std::uint32_t reason) noexcept {
  if (!f->positionStream) return TMX_OK;
  if (!OpenPositionStream(f, /*create=*/true)) return TMX_ERR_FILE;
  if (reason == std::uint32_t(SaveReason::kPeriodic) && f->framesUntilSave > 0) {
    --f->framesUntilSave;
    return TMX_OK;
  }
  const std::uint32_t position =
      FramesToMs(f->reader.currentFrame, f->sampleRate, f->samplesPerFrame);
  std::uint32_t finished = f->reader.currentFrame >= f->frameCount - 1 ? 1 : 0;
  const std::uint32_t checksum = PositionChecksum(position, finished);
  // At the end of the audio the flag is set after the checksum, so that the
  // record only survives loading when the position is the last frame anyway:
  // a book that ended starts again from the beginning.
  if (reason == std::uint32_t(SaveReason::kEnd)) finished = 1;
  std::uint8_t bytes[kRecordSize];
  StoreBE32(bytes, kRecordVersion);
  StoreBE32(bytes + 4, checksum);
  StoreBE32(bytes + 8, position);
  StoreBE32(bytes + 12, finished);
  const std::int32_t rc = WriteExactAt(f->positionStream, 0, bytes);
  f->framesUntilSave = f->positionSaveInterval;
  return rc;
}

std::int32_t LoadPosition(TMXFile* f) noexcept {
  PositionRecord record{};
  bool valid = false;
  if (f->positionStream && OpenPositionStream(f, /*create=*/false))
    valid = ReadRecord(f->positionStream, &record) == 0;
  const FormatHandler* handler = f->formatHandler;
  if (valid && record.finished != 0) {
    f->reader.currentFrame = f->frameCount - 1;
    return handler->SeekToFrame(&f->reader, f->frameCount - 1);
  }
  const std::uint32_t target = valid ? record.position : 0;
  if (f->samplesPerFrame == 0) return TMX_ERR_INCONSISTENT;
  const std::uint32_t frame = TimeToFrame(target, f->sampleRate, f->samplesPerFrame);
  if (frame >= f->frameCount) return TMX_ERR_SEEK_RANGE;
  if (handler->SeekToFrame(&f->reader, frame) != 0) return TMX_ERR_SEEK_RANGE;
  f->reader.decoderResetPending = 1;
  return TMX_OK;
}

void EnsurePositionLoaded(TMXFile* f) noexcept {
  if (f->positionLoaded) return;
  LoadPosition(f);
  f->positionLoaded = 1;
}

}  // namespace tmx
