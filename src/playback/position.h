// The playback position file: one 16-byte record beside the programme.
#pragma once

#include <cstdint>

#include "api/file.h"

namespace tmx {

// Why the position is saved.
enum class SaveReason : std::uint32_t {
  kClose = 0,     // write now
  kSeek = 1,      // write now
  kPeriodic = 2,  // write when the countdown of delivered frames runs out
  kEnd = 3,       // write now, with the finished flag forced on
};

// Writes the record; 0 without a position stream, -1 when the file can be
// neither opened nor created, or the code of the write.
std::int32_t SavePosition(TMXFile* file, std::uint32_t reason) noexcept;

// Restores the saved position (or frame 0) on the first frame request.
// A missing or corrupt record is not an error: playback starts at 0.
std::int32_t LoadPosition(TMXFile* file) noexcept;

// Opens the position stream for reading and writing once per open file,
// creating the file when `create` is set and it does not exist yet.
bool OpenPositionStream(TMXFile* file, bool create) noexcept;

// Runs LoadPosition once per open, ignoring its result.
void EnsurePositionLoaded(TMXFile* file) noexcept;

// The 16-byte record: version 2, checksum, position in ms, finished flag.
struct PositionRecord {
  std::uint32_t version;
  std::uint32_t checksum;
  std::uint32_t position;
  std::uint32_t finished;
};

// NOT of the sum of the eight bytes of position and finished.
std::uint32_t PositionChecksum(std::uint32_t position, std::uint32_t finished) noexcept;

}  // namespace tmx
