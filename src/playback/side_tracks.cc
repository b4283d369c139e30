// Chapter titles, links and pictures: the timed side tracks.
#include "playback/playback.h"

#include <algorithm>
#include <cstring>

#include "container/format_handler.h"
#include "io/stream_io.h"
#include "metadata/queries.h"
#include "metadata/text_convert.h"
#include "util/alloc.h"
#include "util/status.h"

namespace {

using tmx::FourCC;

constexpr std::uint32_t kText = FourCC("text");
constexpr std::uint32_t kLink = FourCC("tx3g");
constexpr std::uint32_t kPicture = FourCC("jpeg");

// A record equal to the one the reader stands on was just reported by
// TMXGetNextFrameInfo: reading it steps the reader past it.
void AdvanceIfCurrent(TMXFile* f, const TMXFrameInfo* record) noexcept {
  if (std::memcmp(record, &f->reader.currentFrameInfo, sizeof(TMXFrameInfo)) == 0)
    f->formatHandler->AdvanceFrame(&f->reader);
}

std::int32_t Describe(TMXFile* f, std::uint32_t type, std::uint32_t index,
                      TMXFrameInfo* info) noexcept {
  return f->formatHandler->GetSampleInfo(&f->reader, type, index, info);
}

std::int32_t StartTime(TMXFile* f, std::uint32_t type, std::uint32_t index,
                       std::uint32_t* time) noexcept {
  TMXFrameInfo info{};
  TMX_RETURN_IF_ERROR(Describe(f, type, index, &info));
  *time = info.startTime;
  return TMX_OK;
}

// The size of a title's record covers one character more than the title,
// so the bytes read run into what follows it and the conversion stops at the
// zero high byte of the next length or box size. After the last title that
// over-read reaches past the end of the stream: what can be read is enough,
// and the zero bytes behind it end the text.
std::int32_t DeliverTitle(TMXFile* f, const TMXFrameInfo& record, std::uint8_t* out,
                          std::uint32_t capacity) noexcept {
  TMXStream* s = f->stream;
  const std::uint64_t end = std::uint64_t(record.offset) + record.size;
  const std::uint32_t held =
      tmx::ExistingEnd(s, record.offset, std::uint32_t(std::min<std::uint64_t>(end, UINT32_MAX)));
  // Nothing there to read: the read fails as it would at the end.
  const std::uint32_t want = std::max<std::uint32_t>(held - record.offset, 1);
  tmx::Owned<std::uint8_t> work(tmx::AllocArray<std::uint8_t>(std::size_t(want) + 2));
  if (!work) return TMX_ERR_MEMORY;
  const std::uint32_t saved = s->ops->Tell(s);
  std::uint32_t got = 0;
  const std::int32_t rc = tmx::ReadUpToAt(s, record.offset, {work.get(), want}, &got);
  s->ops->Seek(s, saved);
  TMX_RETURN_IF_ERROR(rc);
  return tmx::ConvertText({work.get(), std::size_t(got) + 2}, tmx::kTextUtf8,
                          f->reader.unicodeFormat, out, capacity);
}

// The link sample: caption length L, caption, then the first modifier box,
// which must be "href": size, type, two character offsets, the address
// length U and the address.
struct LinkParts {
  std::uint32_t captionLength;
  std::uint32_t addressLength;
  const std::uint8_t* address;
};

std::int32_t ParseLink(const std::uint8_t* sample, std::uint32_t size, LinkParts* parts) noexcept {
  if (size < 2) return TMX_ERR_NOT_FOUND;
  const std::uint32_t l = (std::uint32_t(sample[0]) << 8) | sample[1];
  if (std::uint64_t(l) + 15 > size) return TMX_ERR_NOT_FOUND;
  if (std::memcmp(sample + 6 + l, "href", 4) != 0) return TMX_ERR_NOT_FOUND;
  const std::uint32_t u = sample[14 + l];
  if (std::uint64_t(l) + 15 + u > size) return TMX_ERR_NOT_FOUND;
  *parts = {l, u, sample + 15 + l};
  return TMX_OK;
}

}  // namespace

namespace tmx::playback {

std::int32_t GetLinkCount(TMXFile* f, std::uint32_t* count) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!count) return TMX_ERR_ARGUMENT;
  *count = f->linkCount;
  return TMX_OK;
}

std::int32_t GetChapterInfo(TMXFile* f, std::uint32_t chapter, TMXFrameInfo* info) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!info) return TMX_ERR_ARGUMENT;
  if (chapter >= f->chapterCount) return TMX_ERR_INDEX;
  return Describe(f, kText, chapter, info);
}

std::int32_t GetLinkInfo(TMXFile* f, std::uint32_t link, TMXFrameInfo* info) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!info) return TMX_ERR_ARGUMENT;
  if (link >= f->linkCount) return TMX_ERR_INDEX;
  return Describe(f, kLink, link, info);
}

std::int32_t GetLinkStartTime(TMXFile* f, std::uint32_t link, std::uint32_t* time) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!time) return TMX_ERR_ARGUMENT;
  if (link >= f->linkCount) return TMX_ERR_INDEX;
  // The time comes from the chapter-title track on purpose: links are
  // placed at the chapters they belong to.
  return StartTime(f, kText, link, time);
}

std::int32_t GetImageInfo(TMXFile* f, std::uint32_t image, TMXFrameInfo* info) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!info) return TMX_ERR_ARGUMENT;
  return Describe(f, kPicture, image, info);
}

std::int32_t GetImageStartTime(TMXFile* f, std::uint32_t image, std::uint32_t* time) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!time) return TMX_ERR_ARGUMENT;
  return StartTime(f, kPicture, image, time);
}

std::int32_t GetChapterText(TMXFile* f, const TMXFrameInfo* record, std::uint8_t* buffer,
                            std::uint32_t size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!record || !buffer || size == 0) return TMX_ERR_ARGUMENT;
  if (record->index >= f->chapterCount) return TMX_ERR_INDEX;
  if (record->size == 0) {
    std::memset(buffer, 0, size < 2 ? size : 2);
    return TMX_ERR_NOT_FOUND;
  }
  TMX_RETURN_IF_ERROR(DeliverTitle(f, *record, buffer, size));
  AdvanceIfCurrent(f, record);
  return TMX_OK;
}

std::int32_t GetLink(TMXFile* f, const TMXFrameInfo* record, std::uint8_t* buffer,
                     std::uint32_t size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!record || !buffer) return TMX_ERR_ARGUMENT;
  if (record->index >= f->linkCount) return TMX_ERR_INDEX;
  // A claimed size becomes an allocation only when its bytes are there.
  if (!tmx::BytesExist(f->stream, std::uint64_t(record->offset) + record->size))
    return TMX_ERR_READ;
  tmx::Owned<std::uint8_t> sample(tmx::AllocArray<std::uint8_t>(record->size ? record->size : 1));
  if (!sample) return TMX_ERR_MEMORY;
  TMX_RETURN_IF_ERROR(tmx::ReadValue(f, record->offset, {sample.get(), record->size}));
  LinkParts parts{};
  TMX_RETURN_IF_ERROR(ParseLink(sample.get(), record->size, &parts));
  // The address goes first, as it is, with a terminator; the library never
  // writes past the buffer, so one too small for it is refused.
  if (size < parts.addressLength + 1) return TMX_ERR_BUFFER;
  std::memcpy(buffer, parts.address, parts.addressLength);
  buffer[parts.addressLength] = 0;
  // The caption follows, converted; it is not terminated in the sample, and
  // the conversion stops at the zero high byte of the "href" box size.
  const std::uint32_t used = parts.addressLength + 1;
  tmx::ConvertText({sample.get() + 2, record->size - 2}, tmx::kTextUtf8, f->reader.unicodeFormat,
                   buffer + used, size - used);
  AdvanceIfCurrent(f, record);
  return TMX_OK;
}

std::int32_t GetEncodedImage(TMXFile* f, const TMXFrameInfo* record, std::uint32_t start,
                             std::uint8_t* buffer, std::uint32_t size,
                             std::uint32_t* bytesRead) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!buffer || !record || !bytesRead) return TMX_ERR_ARGUMENT;
  if (start >= record->size) return TMX_ERR_NOT_FOUND;
  if (record->type != kPicture) return TMX_ERR_ARGUMENT;
  const std::uint32_t rest = record->size - start;
  const std::uint32_t count = size < rest ? size : rest;
  const std::int32_t rc = tmx::ReadValue(f, record->offset + start, {buffer, count});
  *bytesRead = rc == 0 ? count : 0;
  AdvanceIfCurrent(f, record);
  return rc;
}

}  // namespace tmx::playback
