#include "io/stream_io.h"

#include <algorithm>

namespace tmx {
namespace {

std::int32_t ReadBytes(TMXStream* s, std::uint8_t* out, std::int32_t n) noexcept {
  return s->ops->Read(s, out, n, nullptr);
}

std::int32_t TransferAt(TMXStream* s, std::uint32_t position, std::uint8_t* readTo,
                        const std::uint8_t* writeFrom, std::size_t size) noexcept {
  const bool reading = readTo != nullptr;
  const std::int32_t shortCode = reading ? TMX_ERR_READ : TMX_ERR_WRITE;
  if (size > INT32_MAX) return shortCode;
  if (size == 0) return TMX_OK;
  if (s->ops->Seek(s, position) != 0) return TMX_ERR_SEEK;
  std::int32_t done = 0;
  std::int32_t rc;
  if (reading) {
    rc = s->ops->Read(s, readTo, std::int32_t(size), &done);
  } else {
    if (!s->ops->Write) return TMX_ERR_WRITE;
    rc = s->ops->Write(s, writeFrom, std::int32_t(size), &done);
  }
  if (rc != 0 || done != std::int32_t(size)) return shortCode;
  return TMX_OK;
}

}  // namespace

std::int32_t ReadU8(TMXStream* s, std::uint8_t* value) noexcept {
  std::uint8_t b = 0;
  TMX_RETURN_IF_ERROR(ReadBytes(s, &b, 1));
  *value = b;
  return TMX_OK;
}

std::int32_t ReadU16(TMXStream* s, std::uint16_t* value) noexcept {
  std::uint8_t b[2] = {};
  TMX_RETURN_IF_ERROR(ReadBytes(s, b, 2));
  *value = LoadBE16(b);
  return TMX_OK;
}

std::int32_t ReadU32(TMXStream* s, std::uint32_t* value) noexcept {
  std::uint8_t b[4] = {};
  TMX_RETURN_IF_ERROR(ReadBytes(s, b, 4));
  *value = LoadBE32(b);
  return TMX_OK;
}

std::int32_t WriteU32(TMXStream* s, std::uint32_t value) noexcept {
  if (!s->ops->Write) return TMX_ERR_WRITE;
  std::uint8_t b[4];
  StoreBE32(b, value);
  return s->ops->Write(s, b, 4, nullptr);
}

std::int32_t Skip(TMXStream* s, std::uint32_t count) noexcept {
  std::uint32_t here = s->ops->Tell(s);
  if (here == TMX_STREAM_UNKNOWN) return TMX_ERR_SEEK;
  return s->ops->Seek(s, here + count);
}

std::int32_t ReadAtomHeader(TMXStream* s, std::uint32_t* size, std::uint32_t* type) noexcept {
  TMX_RETURN_IF_ERROR(ReadU32(s, size));
  return ReadU32(s, type);
}

std::int32_t ReadExactAt(TMXStream* s, std::uint32_t position,
                         std::span<std::uint8_t> out) noexcept {
  return TransferAt(s, position, out.data(), nullptr, out.size());
}

std::int32_t WriteExactAt(TMXStream* s, std::uint32_t position,
                          std::span<const std::uint8_t> data) noexcept {
  return TransferAt(s, position, nullptr, data.data(), data.size());
}

std::int32_t ReadUpToAt(TMXStream* s, std::uint32_t position, std::span<std::uint8_t> out,
                        std::uint32_t* got) noexcept {
  *got = 0;
  if (out.empty()) return TMX_OK;
  if (out.size() > INT32_MAX) return TMX_ERR_READ;
  if (s->ops->Seek(s, position) != 0) return TMX_ERR_SEEK;
  std::int32_t rc = TMX_OK;
  while (*got < out.size()) {
    std::int32_t done = 0;
    rc = s->ops->Read(s, out.data() + *got, std::int32_t(out.size() - *got), &done);
    if (rc != 0 || done <= 0) break;
    *got += std::uint32_t(done);
  }
  if (*got > 0) return TMX_OK;
  return rc != 0 ? rc : TMX_ERR_READ;
}

namespace {

// Whether the byte at `position` can be read; the caller restores the
// position.
bool ByteAt(TMXStream* s, std::uint32_t position) noexcept {
  std::uint8_t b = 0;
  std::int32_t done = 0;
  return s->ops->Seek(s, position) == 0 && s->ops->Read(s, &b, 1, &done) == 0 && done == 1;
}

}  // namespace

bool BytesExist(TMXStream* s, std::uint64_t end) noexcept {
  if (end == 0) return true;
  if (end > UINT32_MAX) return false;
  const std::uint32_t size = s->ops->GetSize(s);
  if (size != TMX_STREAM_UNKNOWN) return end <= size;
  const std::uint32_t saved = s->ops->Tell(s);
  const bool found = ByteAt(s, std::uint32_t(end - 1));
  s->ops->Seek(s, saved);
  return found;
}

std::uint32_t ExistingEnd(TMXStream* s, std::uint32_t from, std::uint32_t to) noexcept {
  if (to <= from) return from;
  const std::uint32_t size = s->ops->GetSize(s);
  if (size != TMX_STREAM_UNKNOWN) return std::max(from, std::min(to, size));
  const std::uint32_t saved = s->ops->Tell(s);
  // Invariant: the byte before `low` exists (or low == from), the byte at
  // `high` does not (or high == to).
  std::uint32_t low = from, high = to;
  if (ByteAt(s, to - 1)) {
    low = to;
  } else {
    while (low < high) {
      const std::uint32_t mid = low + (high - low) / 2;
      if (ByteAt(s, mid)) {
        low = mid + 1;
      } else {
        high = mid;
      }
    }
  }
  s->ops->Seek(s, saved);
  return low;
}

}  // namespace tmx
