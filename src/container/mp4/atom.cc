#include "container/mp4/atom.h"

#include "io/stream_io.h"

namespace tmx::mp4 {

std::int32_t AtomReadBytes(TMXStream* s, std::span<std::uint8_t> out) noexcept {
  if (out.empty()) return TMX_OK;
  if (out.size() > INT32_MAX) return TMX_ERR_READ;
  std::int32_t done = 0;
  TMX_RETURN_IF_ERROR(s->ops->Read(s, out.data(), std::int32_t(out.size()), &done));
  return done == std::int32_t(out.size()) ? TMX_OK : TMX_ERR_READ;
}

std::int32_t AtomReadU8(TMXStream* s, std::uint8_t* value) noexcept { return ReadU8(s, value); }

std::int32_t AtomReadU16(TMXStream* s, std::uint16_t* value) noexcept { return ReadU16(s, value); }

std::int32_t AtomReadU24(TMXStream* s, std::uint8_t* version, std::uint32_t* flags) noexcept {
  std::uint32_t word = 0;
  TMX_RETURN_IF_ERROR(ReadU32(s, &word));
  *version = std::uint8_t(word >> 24);
  *flags = word & 0xFFFFFF;
  return TMX_OK;
}

std::int32_t AtomReadU32(TMXStream* s, std::uint32_t* value) noexcept { return ReadU32(s, value); }

std::int32_t AtomReadU64Low(TMXStream* s, std::uint32_t* value) noexcept {
  std::uint32_t high = 0;
  TMX_RETURN_IF_ERROR(ReadU32(s, &high));
  return ReadU32(s, value);
}

std::int32_t AtomReadHeader(TMXStream* s, std::uint32_t* size, std::uint32_t* type) noexcept {
  return ReadAtomHeader(s, size, type);
}

std::int32_t AtomSkip(TMXStream* s, std::uint32_t count) noexcept { return Skip(s, count); }

std::int32_t AtomFindChild(TMXStream* s, AtomRange range, std::uint32_t type,
                           std::uint32_t* atomPos, std::uint32_t* atomSize) noexcept {
  std::uint32_t position = range.begin;
  while (position < range.end) {
    std::uint32_t size = 0, found = 0;
    TMX_RETURN_IF_ERROR(s->ops->Seek(s, position));
    TMX_RETURN_IF_ERROR(AtomReadHeader(s, &size, &found));
    if (!AtomFits(position, size, range)) return TMX_ERR_INCONSISTENT;
    if (AtomTypeMatches(found, type)) {
      if (atomPos) *atomPos = position;
      if (atomSize) *atomSize = size;
      return TMX_OK;
    }
    position += size;
  }
  return TMX_ERR_SEEK;
}

bool CountFitsStream(std::uint32_t streamSize, std::uint32_t count,
                     std::uint32_t entryBytes) noexcept {
  constexpr std::uint64_t kUnknownSizeLimit = 64u << 20;
  const std::uint64_t limit = streamSize == TMX_STREAM_UNKNOWN ? kUnknownSizeLimit : streamSize;
  return std::uint64_t(count) * entryBytes <= limit;
}

std::int32_t AtomLocateMovie(TMXStream* s, AtomRange* movie) noexcept {
  const std::uint32_t fileSize = s->ops->GetSize(s);
  const bool sizeKnown = fileSize != TMX_STREAM_UNKNOWN;
  std::uint32_t size = 0, type = 0;
  if (s->ops->Seek(s, 0) != 0 || AtomReadHeader(s, &size, &type) != 0 ||
      !AtomTypeMatches(type, FourCC("ftyp")) || size < kAtomHeaderSize) {
    return TMX_ERR_INCONSISTENT;
  }
  std::uint32_t position = size;
  for (;;) {
    if (sizeKnown && position >= fileSize) return TMX_ERR_INCONSISTENT;
    if (s->ops->Seek(s, position) != 0 || AtomReadHeader(s, &size, &type) != 0)
      return TMX_ERR_INCONSISTENT;
    // A size below the header would never advance; one past 4 GiB wraps.
    if (size < kAtomHeaderSize || std::uint64_t(position) + size > UINT32_MAX)
      return TMX_ERR_INCONSISTENT;
    if (AtomTypeMatches(type, FourCC("moov"))) break;
    position += size;
  }
  if (sizeKnown && position + kAtomHeaderSize >= fileSize) return TMX_ERR_INCONSISTENT;
  *movie = PayloadOf(position, size);
  return TMX_OK;
}

}  // namespace tmx::mp4
