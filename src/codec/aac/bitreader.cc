#include "codec/aac/bitreader.h"

#include <cstring>

namespace tmx::aac {

bool BitBuffer::Load(const std::uint8_t* data, std::uint32_t length) noexcept {
  if (length > kBitBufferBytes) return false;
  const std::uint32_t first = length < kBitBufferBytes - write_ ? length : kBitBufferBytes - write_;
  if (first) std::memcpy(ring_ + write_, data, first);
  if (length > first) std::memcpy(ring_, data + first, length - first);
  // The copy of the first bytes behind the end of the ring.
  std::memcpy(ring_ + kBitBufferBytes, ring_, 8);
  start_ = write_;
  length_ = length;
  write_ = (write_ + length) % kBitBufferBytes;
  return true;
}

}  // namespace tmx::aac
