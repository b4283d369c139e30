#include "container/mp4/atom.h"

#include <algorithm>

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

std::int32_t ReadBoxAt(TMXStream* s, std::uint32_t position, AtomRange parent, Box* box) noexcept {
  if (parent.end - std::min(parent.end, position) < kAtomHeaderSize) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, position));
  std::uint32_t size = 0, type = 0;
  TMX_RETURN_IF_ERROR(AtomReadHeader(s, &size, &type));
  if (!AtomFits(position, size, parent)) return TMX_ERR_INCONSISTENT;
  // In a stream that cannot tell its size, a box directly in the file must
  // show that its bytes exist; every box inside it is then bounded by them.
  if (parent.end == TMX_STREAM_UNKNOWN && !BytesExist(s, std::uint64_t(position) + size))
    return TMX_ERR_INCONSISTENT;
  *box = {position, size, type};
  return TMX_OK;
}

std::int32_t OpenBoxAt(TMXStream* s, std::uint32_t position, std::uint32_t type, AtomRange parent,
                       Box* box) noexcept {
  TMX_RETURN_IF_ERROR(ReadBoxAt(s, position, parent, box));
  return AtomTypeMatches(box->type, type) ? TMX_OK : kAbsent;
}

std::int32_t FindBox(TMXStream* s, AtomRange range, std::uint32_t type, Box* found) noexcept {
  constexpr std::int32_t kFound = 2;
  const std::int32_t rc = ForEachBox(s, range, [&](const Box& box) -> std::int32_t {
    if (!AtomTypeMatches(box.type, type)) return TMX_OK;
    *found = box;
    return kFound;
  });
  if (rc == kFound) return s->ops->Seek(s, found->pos + kAtomHeaderSize);
  return rc == TMX_OK ? kAbsent : rc;
}

AtomRange FileRange(TMXStream* s) noexcept { return {0, s->ops->GetSize(s)}; }

std::int32_t AtomLocateMovie(TMXStream* s, AtomRange* movie) noexcept {
  const AtomRange file = FileRange(s);
  Box box{};
  if (OpenBoxAt(s, 0, FourCC("ftyp"), file, &box) != 0) return TMX_ERR_INCONSISTENT;
  if (FindBox(s, {box.size, file.end}, FourCC("moov"), &box) != 0) return TMX_ERR_INCONSISTENT;
  // A movie needs a payload before the end of the file.
  if (std::uint64_t(box.pos) + kAtomHeaderSize >= file.end) return TMX_ERR_INCONSISTENT;
  *movie = box.payload();
  return TMX_OK;
}

}  // namespace tmx::mp4
