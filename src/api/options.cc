// Option switches and the getters of what the container reported at open.
#include "api/file.h"

namespace {

std::int32_t Store(TMXFile* file, std::uint32_t TMXFile::*field, std::uint32_t value) noexcept {
  if (!file) return TMX_ERR_HANDLE;
  file->*field = value;
  return TMX_OK;
}

// The options the reader follows live in its record.
std::int32_t StoreReader(TMXFile* file, std::uint32_t tmx::Container::*field,
                         std::uint32_t value) noexcept {
  if (!file) return TMX_ERR_HANDLE;
  file->reader.*field = value;
  return TMX_OK;
}

std::int32_t ReportReader(TMXFile* file, std::uint32_t tmx::Container::*field,
                          std::uint32_t* out) noexcept {
  if (!file) return TMX_ERR_HANDLE;
  if (!out) return TMX_ERR_ARGUMENT;
  *out = file->reader.*field;
  return TMX_OK;
}

std::int32_t Report(TMXFile* file, std::uint32_t TMXFile::*field, std::uint32_t* out) noexcept {
  if (!file) return TMX_ERR_HANDLE;
  if (!out) return TMX_ERR_ARGUMENT;
  *out = file->*field;
  return TMX_OK;
}

}  // namespace

extern "C" {

TMX_API std::int32_t TMXEnableChapterText(TMXFile* f) noexcept {
  return Store(f, &TMXFile::chapterTextEnabled, 1);
}
TMX_API std::int32_t TMXDisableChapterText(TMXFile* f) noexcept {
  return Store(f, &TMXFile::chapterTextEnabled, 0);
}
TMX_API std::int32_t TMXEnableChapterLinks(TMXFile* f) noexcept {
  return Store(f, &TMXFile::chapterLinksEnabled, 1);
}
TMX_API std::int32_t TMXDisableChapterLinks(TMXFile* f) noexcept {
  return Store(f, &TMXFile::chapterLinksEnabled, 0);
}
TMX_API std::int32_t TMXEnableChapterImages(TMXFile* f) noexcept {
  return Store(f, &TMXFile::chapterImagesEnabled, 1);
}
TMX_API std::int32_t TMXDisableChapterImages(TMXFile* f) noexcept {
  return Store(f, &TMXFile::chapterImagesEnabled, 0);
}
TMX_API std::int32_t TMXEnableADTSHeaders(TMXFile* f) noexcept {
  return StoreReader(f, &tmx::Container::adtsHeadersEnabled, 1);
}
TMX_API std::int32_t TMXDisableADTSHeaders(TMXFile* f) noexcept {
  return StoreReader(f, &tmx::Container::adtsHeadersEnabled, 0);
}
TMX_API std::int32_t TMXSetImageQuality(TMXFile* f, std::uint32_t quality) noexcept {
  return StoreReader(f, &tmx::Container::imageQuality, quality);
}
TMX_API std::int32_t TMXSetUnicodeFormat(TMXFile* f, std::uint32_t format) noexcept {
  return StoreReader(f, &tmx::Container::unicodeFormat, format);
}

TMX_API std::int32_t TMXGetFileType(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::fileType, out);
}
TMX_API std::int32_t TMXGetSampleRate(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::sampleRate, out);
}
TMX_API std::int32_t TMXGetAvgBitrate(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::avgBitrate, out);
}
TMX_API std::int32_t TMXGetMaxBitrate(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::maxBitrate, out);
}
TMX_API std::int32_t TMXGetDuration(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::duration, out);
}
TMX_API std::int32_t TMXGetAudioChannelCount(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::channelCount, out);
}
TMX_API std::int32_t TMXGetChapterCount(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::chapterCount, out);
}
TMX_API std::int32_t TMXGetImageCount(TMXFile* f, std::uint32_t* out) noexcept {
  return Report(f, &TMXFile::imageCount, out);
}
TMX_API std::int32_t TMXGetImageQuality(TMXFile* f, std::uint32_t* out) noexcept {
  return ReportReader(f, &tmx::Container::imageQuality, out);
}
TMX_API std::int32_t TMXGetUnicodeFormat(TMXFile* f, std::uint32_t* out) noexcept {
  return ReportReader(f, &tmx::Container::unicodeFormat, out);
}

}  // extern "C"
