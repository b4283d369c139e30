// Reading and writing big-endian numbers and atom headers through a stream.
// Each helper returns the stream operation's code and stores its value only
// on success. A short read still succeeds (the stream's contract): the bytes
// not read are zero.
#pragma once

#include <cstdint>
#include <span>

#include "tmxsdk.h"
#include "util/status.h"

namespace tmx {

std::int32_t ReadU8(TMXStream* s, std::uint8_t* value) noexcept;
std::int32_t ReadU16(TMXStream* s, std::uint16_t* value) noexcept;
std::int32_t ReadU32(TMXStream* s, std::uint32_t* value) noexcept;
std::int32_t WriteU32(TMXStream* s, std::uint32_t value) noexcept;
// Seeks `count` bytes forward from the current position.
std::int32_t Skip(TMXStream* s, std::uint32_t count) noexcept;
// Reads a 32-bit size, then a 32-bit type code.
std::int32_t ReadAtomHeader(TMXStream* s, std::uint32_t* size, std::uint32_t* type) noexcept;

// Exact transfers at an absolute position: -5 when the seek fails, -3 (read)
// or -4 (write) when fewer bytes than asked move.
std::int32_t ReadExactAt(TMXStream* s, std::uint32_t position,
                         std::span<std::uint8_t> out) noexcept;
std::int32_t WriteExactAt(TMXStream* s, std::uint32_t position,
                          std::span<const std::uint8_t> data) noexcept;

// Reads at an absolute position until `out` is full or the stream gives no
// more; `*got` receives the count. At least one byte is a success, as with
// a single short read; an empty `out` reads nothing and succeeds.
std::int32_t ReadUpToAt(TMXStream* s, std::uint32_t position, std::span<std::uint8_t> out,
                        std::uint32_t* got) noexcept;

// True when the stream holds a byte at every position below `end`: compared
// with the size when the stream knows it, otherwise tried by reading the
// byte at `end` - 1. Counts and sizes read from a file are held to this
// before they drive an allocation. The stream position is restored.
bool BytesExist(TMXStream* s, std::uint64_t end) noexcept;

// The end of the bytes the stream holds in [from, to): `to` when all of them
// exist, otherwise found by bisection, a byte read at a time. The stream
// position is restored.
std::uint32_t ExistingEnd(TMXStream* s, std::uint32_t from, std::uint32_t to) noexcept;

// Big-endian packing of in-memory bytes.
constexpr std::uint32_t LoadBE32(const std::uint8_t* p) noexcept {
  return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
         std::uint32_t(p[3]);
}
constexpr std::uint16_t LoadBE16(const std::uint8_t* p) noexcept {
  return std::uint16_t((p[0] << 8) | p[1]);
}
constexpr void StoreBE32(std::uint8_t* p, std::uint32_t v) noexcept {
  p[0] = std::uint8_t(v >> 24);
  p[1] = std::uint8_t(v >> 16);
  p[2] = std::uint8_t(v >> 8);
  p[3] = std::uint8_t(v);
}

}  // namespace tmx
