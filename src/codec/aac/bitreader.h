// The decoder's input path: frames are copied into a circular buffer of 1536
// bytes (the largest stereo frame, 6144 bits per channel) and read back most
// significant bit first. Reads never leave the current frame: past its end
// they return zeros and mark the reader as overrun.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace tmx::aac {

inline constexpr std::uint32_t kBitBufferBytes = 1536;

class BitBuffer {
 public:
  // Appends a frame after the previous one, wrapping at the end of the ring.
  // Returns false (and stores nothing) when the frame is larger than the ring.
  bool Load(const std::uint8_t* data, std::uint32_t length) noexcept;
  void Reset() noexcept {
    write_ = 0;
    start_ = 0;
    length_ = 0;
  }
  // Byte offset of the current frame within the ring, and its length.
  std::uint32_t frameStart() const noexcept { return start_; }
  std::uint32_t frameLength() const noexcept { return length_; }
  std::uint8_t at(std::uint32_t offset) const noexcept { return ring_[offset % kBitBufferBytes]; }
  // The ring's bytes, followed by a copy of its first 8 bytes, so that 8
  // bytes from any offset inside the ring can be loaded without a wrap test.
  const std::uint8_t* data() const noexcept { return ring_; }

 private:
  // Plain members, so that a zero-filled block is an empty buffer.
  std::uint8_t ring_[kBitBufferBytes + 8];
  std::uint32_t write_;
  std::uint32_t start_;
  std::uint32_t length_;
};

class BitReader {
 public:
  // Reads the frame most recently loaded into `buffer`.
  explicit BitReader(const BitBuffer& buffer) noexcept
      : ring_(buffer.data()), base_(buffer.frameStart() * 8u), bits_(buffer.frameLength() * 8u) {}

  // The next 64 bits, most significant first, without consuming them; bits
  // past the end of the frame read as zero. At least the top 57 are valid.
  std::uint64_t Peek64() const noexcept {
    std::uint32_t abs = base_ + pos_;  // bit offset in the ring, below twice its size
    std::uint32_t byte = abs >> 3;
    if (byte >= kBitBufferBytes) byte -= kBitBufferBytes;
    std::uint64_t w;
    std::memcpy(&w, ring_ + byte, 8);
    // The frame's bytes in reading order: most significant first.
    if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
    w <<= abs & 7u;
    const std::uint32_t left = bits_ - pos_;
    if (left < 64) w &= ~(~std::uint64_t{0} >> left);  // zeros past the frame
    return w;
  }
  // The next 32 bits, as Peek64.
  std::uint32_t Peek32() const noexcept { return static_cast<std::uint32_t>(Peek64() >> 32); }
  // Consumes n bits (n <= 64) already looked at with a peek.
  void Consume(std::uint32_t n) noexcept {
    if (n > bits_ - pos_) {
      overrun_ = true;
      pos_ = bits_;
      return;
    }
    pos_ += n;
  }

  // Next n bits (0 <= n <= 32) as an unsigned number.
  std::uint32_t Read(int n) noexcept {
    if (n == 0) return 0;
    const std::uint32_t v = static_cast<std::uint32_t>(Peek64() >> (64 - n));
    Consume(static_cast<std::uint32_t>(n));
    return v;
  }
  std::uint32_t ReadBit() noexcept { return Read(1); }
  void Skip(std::uint32_t n) noexcept {
    if (n > bits_ - pos_) {
      overrun_ = true;
      pos_ = bits_;
      return;
    }
    pos_ += n;
  }
  // Skips to the next byte boundary of the frame.
  void ByteAlign() noexcept { Skip((8u - (pos_ & 7u)) & 7u); }

  std::uint32_t position() const noexcept { return pos_; }
  std::uint32_t remaining() const noexcept { return bits_ - pos_; }
  // True once a read or skip asked for bits past the end of the frame.
  bool overrun() const noexcept { return overrun_; }

 private:
  const std::uint8_t* ring_;
  std::uint32_t base_;  // bit offset of the frame within the ring
  std::uint32_t bits_;  // frame length in bits
  std::uint32_t pos_ = 0;
  bool overrun_ = false;
};

}  // namespace tmx::aac
