// Primitives of the MP4 atom (box) structure over a stream. They keep no
// state: the stream position is the only cursor.
#pragma once

#include <cstdint>
#include <span>

#include "tmxsdk.h"
#include "util/status.h"

namespace tmx::mp4 {

inline constexpr std::uint32_t kAtomHeaderSize = 8;

std::int32_t AtomReadBytes(TMXStream* s, std::span<std::uint8_t> out) noexcept;
std::int32_t AtomReadU8(TMXStream* s, std::uint8_t* value) noexcept;
std::int32_t AtomReadU16(TMXStream* s, std::uint16_t* value) noexcept;
// Reads a full atom's version byte and 24-bit flags.
std::int32_t AtomReadU24(TMXStream* s, std::uint8_t* version, std::uint32_t* flags) noexcept;
std::int32_t AtomReadU32(TMXStream* s, std::uint32_t* value) noexcept;
// Reads a 64-bit field and keeps its low 32 bits.
std::int32_t AtomReadU64Low(TMXStream* s, std::uint32_t* value) noexcept;
// Reads size and type; the stream is left at the payload.
std::int32_t AtomReadHeader(TMXStream* s, std::uint32_t* size, std::uint32_t* type) noexcept;
std::int32_t AtomSkip(TMXStream* s, std::uint32_t count) noexcept;

// True when a type read from a file equals a lower-case literal, capital
// letters of the file's type taken as small ones.
constexpr bool AtomTypeMatches(std::uint32_t type, std::uint32_t literal) noexcept {
  return LowerFourCC(type) == literal;
}

// A byte range [begin, end) of the file that a walk may not leave.
struct AtomRange {
  std::uint32_t begin;
  std::uint32_t end;
};

// True when an atom of `size` bytes at `position` lies inside `range` and is
// at least a header long.
constexpr bool AtomFits(std::uint32_t position, std::uint32_t size, AtomRange range) noexcept {
  return size >= kAtomHeaderSize && std::uint64_t(position) + size <= range.end;
}

// Walks the atoms of `range` for one of `type`. 0 with the stream at its
// payload (and its header position and size stored when asked); -5 when the
// range holds none; -7 when an atom is shorter than its header or leaves the
// range (the walk could not go on safely).
std::int32_t AtomFindChild(TMXStream* s, AtomRange range, std::uint32_t type,
                           std::uint32_t* atomPos = nullptr,
                           std::uint32_t* atomSize = nullptr) noexcept;

// Finds the movie: the file must begin with "ftyp"; the top-level atoms are
// walked to "moov", whose payload range is returned. -7 otherwise.
std::int32_t AtomLocateMovie(TMXStream* s, AtomRange* movie) noexcept;

// True when `count` entries of `entryBytes` each could be stored in a
// stream of `streamSize` bytes, so that a count read from a file never
// drives an allocation larger than the file could justify (64 MiB when the
// size is unknown).
bool CountFitsStream(std::uint32_t streamSize, std::uint32_t count,
                     std::uint32_t entryBytes) noexcept;

// The payload range of an atom whose header is at `position`.
constexpr AtomRange PayloadOf(std::uint32_t position, std::uint32_t size) noexcept {
  return {position + kAtomHeaderSize, position + size};
}

}  // namespace tmx::mp4
