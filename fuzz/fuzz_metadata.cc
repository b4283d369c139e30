// Fuzz target: every metadata and chapter-metadata query, in every text
// format and locale, with a capacity the first byte gives; then chapter
// titles, links and pictures read into buffers of that capacity. The rest
// of the input is the programme. Each buffer is a heap block of exactly the
// capacity, so that the sanitizer sees a write past it.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "exercise.h"
#include "metadata/key_table.h"
#include "tmxsdk.h"

namespace {

void QueryEverything(TMXFile* f, std::uint32_t capacity) {
  std::vector<std::uint8_t> out(capacity);
  std::uint8_t* buffer = capacity ? out.data() : nullptr;
  std::uint32_t chapters = 0, size = 0, locales[8];
  std::uint32_t localeCount = 8;
  TMXGetChapterCount(f, &chapters);
  if (TMXGetMetadataLocaleList(f, locales, &localeCount) != TMX_OK) localeCount = 0;
  for (std::uint32_t format : {0u, 1u, 2u, 3u}) {
    TMXSetUnicodeFormat(f, format);
    for (std::uint32_t l = 0; l <= localeCount && l <= 8; ++l) {
      const std::uint32_t locale = l < localeCount ? locales[l] : 0;
      TMXSetMetadataLocale(f, locale);
      for (const tmx::MetadataKey& key : tmx::MetadataKeys()) {
        TMXGetMetadataInfo(f, key.key, locale, &size);
        TMXGetMetadata(f, key.key, buffer, capacity);
        for (std::uint32_t c = 0; c < chapters && c < 4; ++c) {
          TMXGetChapterMetadataInfo(f, c, key.key, locale, &size);
          TMXGetChapterMetadata(f, c, key.key, buffer, capacity);
        }
      }
      size = capacity;
      TMXGetUseralias(f, buffer, &size);
    }
  }
  TMXFrameInfo info{};
  for (std::uint32_t c = 0; c < chapters && c < 16; ++c)
    if (TMXGetChapterInfo(f, c, &info) == TMX_OK) TMXGetChapterText(f, &info, buffer, capacity);
  std::uint32_t links = 0, images = 0;
  TMXGetLinkCount(f, &links);
  for (std::uint32_t l = 0; l < links && l < 16; ++l)
    if (TMXGetLinkInfo(f, l, &info) == TMX_OK) TMXGetLink(f, &info, buffer, capacity);
  TMXGetImageCount(f, &images);
  for (std::uint32_t i = 0; i < images && i < 4; ++i)
    if (TMXGetImageInfo(f, i, &info) == TMX_OK)
      for (std::uint32_t start : {0u, capacity, 4000u})
        TMXGetEncodedImage(f, &info, start, buffer, capacity, &size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > (1u << 20)) return 0;
  // Small capacities most of the time: they are where cutting text goes wrong.
  const std::uint32_t capacity = data[0] < 0xF0 ? data[0] % 80 : 4096u * (data[0] - 0xEF);
  std::vector<std::uint8_t> bytes(data + 1, data + size);
  tmx::fuzz::ByteStream in(std::move(bytes));
  TMXFile* f = nullptr;
  if (TMXOpenFile(&f, in.stream(), nullptr) == TMX_OK) {
    TMXEnableChapterText(f);
    TMXEnableChapterLinks(f);
    TMXEnableChapterImages(f);
    QueryEverything(f, capacity);
    TMXCloseFile(f);
  }
  return 0;
}
