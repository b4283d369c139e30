#include "api/file.h"
#include "io/stream_io.h"
#include "util/status.h"

namespace tmx {
namespace {

constexpr std::uint32_t kMinimumSize = 16;
constexpr std::uint32_t kLegacyMagic = 0x57907536;
constexpr std::uint32_t kLegacyAudioEntry = 6;
constexpr std::uint32_t kCodecIdOffset = 24;  // from the start of the audio entry's data

std::uint32_t TypeForBrand(std::uint32_t brand) noexcept {
  switch (LowerFourCC(brand)) {
    case FourCC("m4b "): return TMX_FILETYPE_M4B;
    case FourCC("tmx "): return TMX_FILETYPE_TMX;
    default: return TMX_FILETYPE_MP4;
  }
}

bool IsId3v2(std::uint32_t firstWord) noexcept {
  const std::uint32_t version = firstWord & 0xFF;
  return (firstWord >> 8) == 0x494433 && (version == 3 || version == 4);
}

std::uint32_t TypeForCodecId(std::uint16_t id) noexcept {
  switch (id) {
    case 0xC00D: return TMX_FILETYPE_LEGACY_C00D;
    case 0xC00C: return TMX_FILETYPE_LEGACY_C00C;
    case 0xC010: return TMX_FILETYPE_LEGACY_C010;
    default: return TMX_FILETYPE_LEGACY_OTHER;
  }
}

// The older container: a header of size word and magic, an entry count, a
// word not used, then entries of (kind, offset, length). The codec id sits
// in the audio entry's data.
std::int32_t DetectLegacy(TMXFile* file, TMXStream* s, std::uint32_t size) noexcept {
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, 0));
  std::uint32_t sizeWord = 0, magic = 0, count = 0, unused = 0;
  TMX_RETURN_IF_ERROR(ReadU32(s, &sizeWord));
  TMX_RETURN_IF_ERROR(ReadU32(s, &magic));
  if ((size != TMX_STREAM_UNKNOWN && size != sizeWord) || magic != kLegacyMagic)
    return TMX_ERR_UNSUPPORTED;
  TMX_RETURN_IF_ERROR(ReadU32(s, &count));
  TMX_RETURN_IF_ERROR(ReadU32(s, &unused));
  if (count == 0) return TMX_ERR_UNSUPPORTED;
  // Each entry read consumes 12 bytes, so a huge count ends at the stream's
  // end with a read error rather than looping.
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t kind = 0, offset = 0, length = 0;
    TMX_RETURN_IF_ERROR(ReadU32(s, &kind));
    TMX_RETURN_IF_ERROR(ReadU32(s, &offset));
    TMX_RETURN_IF_ERROR(ReadU32(s, &length));
    if (kind != kLegacyAudioEntry) continue;
    TMX_RETURN_IF_ERROR(s->ops->Seek(s, offset + kCodecIdOffset));
    std::uint16_t codecId = 0;
    TMX_RETURN_IF_ERROR(ReadU16(s, &codecId));
    file->fileType = TypeForCodecId(codecId);
    return TMX_OK;
  }
  return TMX_ERR_UNSUPPORTED;
}

}  // namespace

std::int32_t DetectFileType(TMXFile* file, TMXStream* s) noexcept {
  file->fileType = 0;
  file->stream = s;
  const std::uint32_t size = s->ops->GetSize(s);
  if (size != TMX_STREAM_UNKNOWN && size < kMinimumSize) return TMX_ERR_UNSUPPORTED;

  TMX_RETURN_IF_ERROR(s->ops->Seek(s, 0));
  std::uint32_t atomSize = 0, atomType = 0;
  TMX_RETURN_IF_ERROR(ReadAtomHeader(s, &atomSize, &atomType));
  if (LowerFourCC(atomType) == FourCC("ftyp")) {
    std::uint32_t brand = 0;
    TMX_RETURN_IF_ERROR(ReadU32(s, &brand));
    file->fileType = TypeForBrand(brand);
    return TMX_OK;
  }
  if (IsId3v2(atomSize)) {
    file->fileType = TMX_FILETYPE_ID3;
    return TMX_OK;
  }
  return DetectLegacy(file, s, size);
}

}  // namespace tmx
