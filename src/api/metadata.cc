// Metadata and chapter-metadata queries.
#include "metadata/metadata.h"

extern "C" {

TMX_API std::int32_t TMXSetMetadataLocale(TMXFile* f, std::uint32_t locale) noexcept {
  return tmx::metadata::SetMetadataLocale(f, locale);
}

TMX_API std::int32_t TMXGetMetadataLocaleList(TMXFile* f, std::uint32_t* locales,
                                              std::uint32_t* count) noexcept {
  return tmx::metadata::GetMetadataLocaleList(f, locales, count);
}

TMX_API std::int32_t TMXGetMetadataInfo(TMXFile* f, std::uint32_t key, std::uint32_t locale,
                                        std::uint32_t* size) noexcept {
  return tmx::metadata::GetMetadataInfo(f, key, locale, size);
}

TMX_API std::int32_t TMXGetChapterMetadataInfo(TMXFile* f, std::uint32_t chapter, std::uint32_t key,
                                               std::uint32_t locale, std::uint32_t* size) noexcept {
  return tmx::metadata::GetChapterMetadataInfo(f, chapter, key, locale, size);
}

TMX_API std::int32_t TMXGetMetadata(TMXFile* f, std::uint32_t key, std::uint8_t* buffer,
                                    std::uint32_t size) noexcept {
  return tmx::metadata::GetMetadata(f, key, buffer, size);
}

TMX_API std::int32_t TMXGetChapterMetadata(TMXFile* f, std::uint32_t chapter, std::uint32_t key,
                                           std::uint8_t* buffer, std::uint32_t size) noexcept {
  return tmx::metadata::GetChapterMetadata(f, chapter, key, buffer, size);
}

TMX_API std::int32_t TMXGetUseralias(TMXFile* f, std::uint8_t* buffer,
                                     std::uint32_t* size) noexcept {
  return tmx::metadata::GetUseralias(f, buffer, size);
}

}  // extern "C"
