#include "codec/aac/bitreader.h"

#include <cstring>

namespace tmx::aac {

bool BitBuffer::Load(const std::uint8_t* data, std::uint32_t length) noexcept {
  if (length > kBitBufferBytes) return false;
  const std::uint32_t first = length < kBitBufferBytes - write_ ? length : kBitBufferBytes - write_;
  if (first) std::memcpy(ring_ + write_, data, first);
  if (length > first) std::memcpy(ring_, data + first, length - first);
  start_ = write_;
  length_ = length;
  write_ = (write_ + length) % kBitBufferBytes;
  return true;
}

std::uint32_t BitReader::Read(int n) noexcept {
  std::uint32_t value = 0;
  int left = n;
  while (left > 0) {
    if (pos_ >= bits_) {
      overrun_ = true;
      pos_ = bits_;
      return left >= 32 ? 0 : value << left;
    }
    const std::uint32_t abs = base_ + pos_;
    const std::uint32_t byte = buffer_->at(abs >> 3);
    const int used = static_cast<int>(abs & 7u);
    int take = 8 - used;
    if (take > left) take = left;
    if (static_cast<std::uint32_t>(take) > bits_ - pos_) take = static_cast<int>(bits_ - pos_);
    const std::uint32_t chunk = (byte >> (8 - used - take)) & ((1u << take) - 1u);
    value = (value << take) | chunk;
    pos_ += static_cast<std::uint32_t>(take);
    left -= take;
  }
  return value;
}

void BitReader::Skip(std::uint32_t n) noexcept {
  if (n > bits_ - pos_) {
    overrun_ = true;
    pos_ = bits_;
    return;
  }
  pos_ += n;
}

}  // namespace tmx::aac
