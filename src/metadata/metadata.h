// Metadata and chapter-metadata queries.
// The exported functions in src/api forward to these; each checks its
// arguments in the order the export documents.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

namespace tmx::metadata {

std::int32_t SetMetadataLocale(TMXFile* f, std::uint32_t locale) noexcept;
std::int32_t GetMetadataLocaleList(TMXFile* f, std::uint32_t* locales,
                                   std::uint32_t* count) noexcept;
std::int32_t GetMetadataInfo(TMXFile* f, std::uint32_t key, std::uint32_t locale,
                             std::uint32_t* size) noexcept;
std::int32_t GetChapterMetadataInfo(TMXFile* f, std::uint32_t chapter, std::uint32_t key,
                                    std::uint32_t locale, std::uint32_t* size) noexcept;
std::int32_t GetMetadata(TMXFile* f, std::uint32_t key, std::uint8_t* buffer,
                         std::uint32_t size) noexcept;
std::int32_t GetChapterMetadata(TMXFile* f, std::uint32_t chapter, std::uint32_t key,
                                std::uint8_t* buffer, std::uint32_t size) noexcept;
std::int32_t GetUseralias(TMXFile* f, std::uint8_t* buffer, std::uint32_t* size) noexcept;

}  // namespace tmx::metadata
