#include "metadata/metadata.h"

#include "metadata/queries.h"

#include "container/format_handler.h"
#include "io/stream_io.h"
#include "metadata/key_table.h"
#include "metadata/text_convert.h"
#include "util/alloc.h"

namespace tmx {

std::int32_t LookUpItem(TMXFile* file, std::uint32_t chapter, std::uint32_t key,
                        std::uint32_t locale, ItemValue* value) noexcept {
  TMXStream* s = file->stream;
  const std::uint32_t saved = s->ops->Tell(s);
  *value = {locale, 0, 0, 0};
  const std::int32_t rc = file->formatHandler->GetMetadataItem(
      &file->reader, chapter, key, &value->locale, &value->kind, &value->offset, &value->size);
  s->ops->Seek(s, saved);
  return rc;
}

std::int32_t ReadValue(TMXFile* file, std::uint32_t offset, std::span<std::uint8_t> out) noexcept {
  if (out.empty()) return TMX_OK;
  TMXStream* s = file->stream;
  const std::uint32_t saved = s->ops->Tell(s);
  const std::int32_t rc = ReadExactAt(s, offset, out);
  s->ops->Seek(s, saved);
  return rc;
}

std::int32_t DeliverText(TMXFile* file, std::uint32_t offset, std::uint32_t size,
                         std::uint32_t kind, std::uint8_t* out, std::uint32_t capacity) noexcept {
  // A claimed size becomes an allocation only when its bytes are there.
  if (!BytesExist(file->stream, std::uint64_t(offset) + size)) return TMX_ERR_READ;
  // Two zero bytes behind the value end it for every source encoding.
  Owned<std::uint8_t> work(AllocArray<std::uint8_t>(std::size_t(size) + 2));
  if (!work) return TMX_ERR_MEMORY;
  TMX_RETURN_IF_ERROR(ReadValue(file, offset, {work.get(), size}));
  return ConvertText({work.get(), std::size_t(size) + 2}, kind, file->reader.unicodeFormat, out,
                     capacity);
}

std::uint32_t NeededSize(std::uint32_t n, std::uint32_t kind, std::uint32_t format) noexcept {
  if (n == 0 || kind > 3) return n;
  const bool utf8 = format == 1;
  const bool wide = format == 2 || format == 3;  // format 2 is sized as 16-bit text
  const bool plain = format == 0;
  switch (kind) {
    case 0: return utf8 ? n + 8 : wide ? 2 * n + 8 : n + 2;
    case 1: return wide ? 2 * n + 2 : n + 2;
    default:  // 2 and 3: stored as 16-bit text
      return utf8 ? (n + 12) / 2 + 2 : wide ? n + 2 : plain ? n / 2 + 2 : n + 2;
  }
}

}  // namespace tmx

using namespace tmx;

namespace {

constexpr std::uint32_t kFileLevel = 0xFFFFFFFF;

std::int32_t Info(TMXFile* f, std::uint32_t chapter, std::uint32_t key, std::uint32_t locale,
                  std::uint32_t* size) noexcept {
  ItemValue v{};
  const std::int32_t rc = LookUpItem(f, chapter, key, locale, &v);
  *size = rc == 0 ? NeededSize(v.size, v.kind, f->reader.unicodeFormat) : 0;
  return rc;
}

std::int32_t Fetch(TMXFile* f, std::uint32_t chapter, std::uint32_t key, bool raw,
                   std::uint8_t* buffer, std::uint32_t capacity) noexcept {
  ItemValue v{};
  TMX_RETURN_IF_ERROR(LookUpItem(f, chapter, key, f->metadataLocale, &v));
  if (raw) {
    if (capacity < v.size) return TMX_ERR_BUFFER;
    return ReadValue(f, v.offset, {buffer, v.size});
  }
  return DeliverText(f, v.offset, v.size, v.kind, buffer, capacity);
}

}  // namespace

namespace tmx::metadata {

std::int32_t SetMetadataLocale(TMXFile* f, std::uint32_t locale) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  f->metadataLocale = locale;
  return TMX_OK;
}

std::int32_t GetMetadataLocaleList(TMXFile* f, std::uint32_t* locales,
                                   std::uint32_t* count) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!locales || !count) return TMX_ERR_ARGUMENT;
  TMXStream* s = f->stream;
  const std::uint32_t saved = s->ops->Tell(s);
  const std::int32_t rc = f->formatHandler->GetMetadataLocaleList(&f->reader, locales, count);
  s->ops->Seek(s, saved);
  return rc;
}

std::int32_t GetMetadataInfo(TMXFile* f, std::uint32_t key, std::uint32_t locale,
                             std::uint32_t* size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!size) return TMX_ERR_ARGUMENT;
  return Info(f, kFileLevel, key, locale, size);
}

std::int32_t GetChapterMetadataInfo(TMXFile* f, std::uint32_t chapter, std::uint32_t key,
                                    std::uint32_t locale, std::uint32_t* size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!size) return TMX_ERR_ARGUMENT;
  if (chapter >= f->chapterCount) {
    *size = 0;
    return TMX_ERR_INDEX;
  }
  return Info(f, chapter, key, locale, size);
}

std::int32_t GetMetadata(TMXFile* f, std::uint32_t key, std::uint8_t* buffer,
                         std::uint32_t size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!buffer) return TMX_ERR_ARGUMENT;
  return Fetch(f, kFileLevel, key, key == kCoverKey || key == kUserAliasKey, buffer, size);
}

std::int32_t GetChapterMetadata(TMXFile* f, std::uint32_t chapter, std::uint32_t key,
                                std::uint8_t* buffer, std::uint32_t size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!buffer) return TMX_ERR_ARGUMENT;
  if (chapter >= f->chapterCount) return TMX_ERR_INDEX;
  return Fetch(f, chapter, key, key == kCoverKey, buffer, size);
}

std::int32_t GetUseralias(TMXFile* f, std::uint8_t* buffer, std::uint32_t* size) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!buffer || !size) return TMX_ERR_ARGUMENT;
  std::uint32_t needed = 0;
  TMX_RETURN_IF_ERROR(TMXGetMetadataInfo(f, kUserAliasKey, 0, &needed));
  Owned<std::uint8_t> work(AllocArray<std::uint8_t>(needed ? needed : 1));
  if (!work) return TMX_ERR_MEMORY;
  TMX_RETURN_IF_ERROR(TMXGetMetadata(f, kUserAliasKey, work.get(), needed));
  return ConvertText({work.get(), needed}, kTextUtf8, f->reader.unicodeFormat, buffer, *size);
}

}  // namespace tmx::metadata
