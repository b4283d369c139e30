#include <cstring>
#include <cwchar>
#include <new>

#include "api/file.h"
#include "io/file_stream.h"
#include "metadata/key_table.h"
#include "tmx_metadata.h"
#include "util/alloc.h"
#include "util/status.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

using tmx::FourCC;

// Converts single-byte text in the system's code page to wide characters.
// On POSIX the C library's multibyte conversion is used, and a byte it
// cannot convert is taken as its Latin-1 character.
std::wstring FromCodePage(const char* text) {
#ifdef _WIN32
  const int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
  if (n <= 1) return {};
  std::wstring out(std::size_t(n - 1), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text, -1, out.data(), n);
  return out;
#else
  std::wstring out;
  std::mbstate_t state{};
  const char* p = text;
  std::size_t left = std::strlen(text);
  while (left > 0) {
    wchar_t wc = 0;
    const std::size_t used = std::mbrtowc(&wc, p, left, &state);
    if (used == 0) break;
    if (used == std::size_t(-1) || used == std::size_t(-2)) {
      out.push_back(wchar_t(static_cast<unsigned char>(*p)));
      state = {};
      ++p;
      --left;
      continue;
    }
    out.push_back(wc);
    p += used;
    left -= used;
  }
  return out;
#endif
}

// Reads a text tag as single-byte text into `target`; a missing or empty
// tag leaves it as it was.
template <class Assign>
void ReadTag(TMXFile* file, std::uint32_t key, Assign&& assign) {
  std::uint32_t size = 0;
  if (TMXGetMetadataInfo(file, key, 0, &size) != 0 || size == 0) return;
  tmx::Owned<std::uint8_t> buffer(tmx::AllocArray<std::uint8_t>(std::size_t(size) + 1));
  if (!buffer) return;
  if (TMXGetMetadata(file, key, buffer.get(), size) == 0)
    assign(reinterpret_cast<const char*>(buffer.get()));
}

void ReadTag(TMXFile* file, std::uint32_t key, std::wstring& target) {
  ReadTag(file, key, [&](const char* text) { target = FromCodePage(text); });
}

}  // namespace

CTesmoraMetadata::CTesmoraMetadata() noexcept = default;

CTesmoraMetadata::~CTesmoraMetadata() { CloseTMXFile(); }

std::int32_t CTesmoraMetadata::CloseTMXFile() noexcept {
  tmx::Free(cover);
  cover = nullptr;
  coverSize = 0;
  tmx::Free(secondBuffer);
  secondBuffer = nullptr;
  secondBufferSize = 0;
  return 1;
}

std::int32_t CTesmoraMetadata::OpenTMXFile(const wchar_t* path) noexcept {
  TMXStream* stream = tmx::MakeFileStream(path, /*writable=*/false);
  if (!stream) return 0;
  TMXFile* file = nullptr;
  // A failed open releases the stream.
  if (tmx::OpenWithOwnedStreams(&file, stream, nullptr) != 0) return 0;
  try {
    ReadTag(file, FourCC("@aut"), author);
    ReadTag(file, FourCC("@cat"), category);
    ReadTag(file, FourCC("@cop"), copyright);
    ReadTag(file, FourCC("@lde"), longDescription);
    ReadTag(file, FourCC("@nar"), narrator);
    ReadTag(file, FourCC("@pti"), parentTitle);
    ReadTag(file, FourCC("@pid"), [&](const char* bytes) { productId = bytes; });
    ReadTag(file, FourCC("@pro"), provider);
    ReadTag(file, FourCC("@pda"), publicationDate);
    ReadTag(file, FourCC("@sde"), shortDescription);
    ReadTag(file, FourCC("@sti"), shortTitle);
    ReadTag(file, FourCC("@tit"), title);

    std::uint8_t number[4] = {};
    const bool haveNumber = TMXGetMetadata(file, FourCC("@tnu"), number, 4) == 0;
    if (haveNumber) {
      const std::uint32_t word = number[0] | (std::uint32_t(number[1]) << 8) |
                                 (std::uint32_t(number[2]) << 16) |
                                 (std::uint32_t(number[3]) << 24);
      trackNumberLow = word & 0xFFFF;
      trackNumberHigh = word >> 16;
    }
    if (shortTitle.empty()) shortTitle = title;
    // The alias is kept only for programmes with a "@tnu" item.
    std::uint8_t alias[256] = {};
    std::uint32_t aliasSize = sizeof alias;
    TMXGetUseralias(file, alias, &aliasSize);
    if (haveNumber) userAlias = FromCodePage(reinterpret_cast<const char*>(alias));

    // A second open replaces the cover instead of dropping it.
    tmx::Free(cover);
    cover = nullptr;
    coverSize = 0;
    std::uint32_t size = 0;
    if (TMXGetMetadataInfo(file, tmx::kCoverKey, 0, &size) == 0 && size != 0) {
      coverSize = size;
      cover = tmx::AllocArray<std::uint8_t>(size);
      if (cover) TMXGetMetadata(file, tmx::kCoverKey, cover, size);
    }
  } catch (const std::bad_alloc&) {
    // Out of memory while copying strings: keep what was read.
  }
  TMXGetDuration(file, &duration);
  TMXGetAvgBitrate(file, &avgBitrate);
  TMXGetSampleRate(file, &sampleRate);
  TMXGetFileType(file, &fileType);
  TMXGetAudioChannelCount(file, &channelCount);
  TMXGetOriginalTitle(file, &originalTitle[0], &originalTitle[1], &originalTitle[2],
                      &originalTitle[3], &originalTitle[4], &originalTitle[5], &originalTitle[6]);
  TMXCloseFile(file);
  return 1;
}
