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

// The payload range of an atom whose header is at `position`.
constexpr AtomRange PayloadOf(std::uint32_t position, std::uint32_t size) noexcept {
  return {position + kAtomHeaderSize, position + size};
}

// True when an atom of `size` bytes at `position` lies inside `range` and is
// at least a header long.
constexpr bool AtomFits(std::uint32_t position, std::uint32_t size, AtomRange range) noexcept {
  return size >= kAtomHeaderSize && position >= range.begin &&
         std::uint64_t(position) + size <= range.end;
}

// True when `count` entries of `entryBytes` each, starting at `first`, lie
// inside `range`: a count read from a file must be backed by the bytes of
// its box before it drives a loop or an allocation.
constexpr bool CountFits(AtomRange range, std::uint32_t first, std::uint32_t count,
                         std::uint32_t entryBytes) noexcept {
  return first >= range.begin && first <= range.end &&
         std::uint64_t(count) * entryBytes <= range.end - first;
}

// One box of the file: where its header is, its size and its type.
struct Box {
  std::uint32_t pos;
  std::uint32_t size;
  std::uint32_t type;
  constexpr AtomRange payload() const noexcept { return PayloadOf(pos, size); }
};

// Returned by the lookups below when the box is not there: distinct from
// every failure code, so that a read failure is never taken for "absent".
inline constexpr std::int32_t kAbsent = 1;

// Reads the header of the box at `position`, which must lie inside `parent`
// (-7 otherwise, or when it is shorter than its header). The stream is left
// at the payload.
std::int32_t ReadBoxAt(TMXStream* s, std::uint32_t position, AtomRange parent, Box* box) noexcept;

// As ReadBoxAt, for a box that must be of `type` (kAbsent when it is not).
std::int32_t OpenBoxAt(TMXStream* s, std::uint32_t position, std::uint32_t type, AtomRange parent,
                       Box* box) noexcept;

// What a walk does with fewer bytes than a header at the end of its range.
enum class ShortTail { kMalformed, kIgnored };

// Calls `visit(box)` for each child box of `range` in file order; a child
// outside the range ends the walk with -7, and a non-zero result of `visit`
// ends it with that result. Lists whose last few bytes may be padding are
// walked with ShortTail::kIgnored.
template <class Visit>
std::int32_t ForEachBox(TMXStream* s, AtomRange range, Visit&& visit,
                        ShortTail tail = ShortTail::kMalformed) noexcept {
  for (std::uint32_t position = range.begin; position < range.end;) {
    if (tail == ShortTail::kIgnored && range.end - position < kAtomHeaderSize) break;
    Box box{};
    TMX_RETURN_IF_ERROR(ReadBoxAt(s, position, range, &box));
    TMX_RETURN_IF_ERROR(visit(box));
    position += box.size;
  }
  return TMX_OK;
}

// The first child of `type` in `range`, the stream left at its payload:
// 0, kAbsent, -7 for a malformed child before it, or a stream error.
std::int32_t FindBox(TMXStream* s, AtomRange range, std::uint32_t type, Box* box) noexcept;

// FindBox for a box whose absence the caller reports as `absentCode`.
inline std::int32_t FindBoxOr(TMXStream* s, AtomRange range, std::uint32_t type, Box* box,
                              std::int32_t absentCode) noexcept {
  const std::int32_t rc = FindBox(s, range, type, box);
  return rc == kAbsent ? absentCode : rc;
}

// A reader of one kind of child box. `Walk` hands every child of a range
// whose type a table names to that table's reader, in file order; other
// children are passed over. A reader's non-zero result ends the walk.
template <class Context>
struct BoxReader {
  std::uint32_t type;
  std::int32_t (*read)(Context& context, const Box& box) noexcept;
};

template <class Context, std::size_t N>
std::int32_t Walk(TMXStream* s, AtomRange range, const BoxReader<Context> (&table)[N],
                  Context& context) noexcept {
  return ForEachBox(s, range, [&](const Box& box) -> std::int32_t {
    for (const BoxReader<Context>& reader : table) {
      if (AtomTypeMatches(box.type, reader.type)) {
        TMX_RETURN_IF_ERROR(s->ops->Seek(s, box.pos + kAtomHeaderSize));
        return reader.read(context, box);
      }
    }
    return TMX_OK;
  });
}

// The file as a range: its whole size, or all 32-bit positions when the
// stream cannot tell its size.
AtomRange FileRange(TMXStream* s) noexcept;

// Finds the movie: the file must begin with "ftyp"; the top-level atoms are
// walked to "moov", whose payload range is returned. -7 otherwise.
std::int32_t AtomLocateMovie(TMXStream* s, AtomRange* movie) noexcept;

}  // namespace tmx::mp4
