// Writes programmes in the older single-file container: a header with a
// table of typed records, the header record (type 1), a metadata dictionary
// (2), the audio record (3), the chapter list (6), an optional cover picture
// (11) and the audio as a chain of segments (10), each an 8-byte header
// (data size, data position) followed by its data.
//
// Layout: header and table, then the records in the order 1, 2, 3, 6, 11,
// and the segment chain last. Frames are written as they are; they may run
// across the end of a segment.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tmxsdk.h"

namespace tmx::writer {

// Codec ids: the audio of the programme and the size of its frames.
inline constexpr std::uint16_t kLegacyCodecMp3 = 0xC00D;       // 104-byte frames
inline constexpr std::uint16_t kLegacyCodecSpeech16 = 0xC00C;  // 20-byte speech packets
inline constexpr std::uint16_t kLegacyCodecSpeech8 = 0xC010;   // 19-byte speech packets

// Bytes of one frame of a codec; 0 for codecs the writer does not know.
std::uint32_t LegacyFrameSize(std::uint16_t codecId) noexcept;

// A table-of-contents entry as stored.
struct LegacyTableEntry {
  std::uint32_t type = 0;
  std::uint32_t offset = 0;
  std::uint32_t size = 0;
};

struct LegacyChapter {
  std::uint32_t frames = 0;      // length in audio frames
  std::uint32_t extraPairs = 0;  // 8-byte pairs stored after the entry, as zeros
};

struct LegacyDictionaryEntry {
  std::string name;  // e.g. "title", "author" (ASCII)
  std::vector<std::uint8_t> value;
};

struct LegacyProgramme {
  std::uint16_t codecId = kLegacyCodecSpeech8;
  // The header record: its version (the reader takes 0 and 1) and its last
  // four words, reported by TMXGetOriginalTitle.
  std::uint16_t version = 1;
  std::array<std::uint32_t, 4> headerWords{};
  // Frames of exactly the codec's frame size.
  std::vector<std::vector<std::uint8_t>> frames;
  std::vector<LegacyDictionaryEntry> dictionary;
  // None: one chapter of the whole audio.
  std::vector<LegacyChapter> chapters;
  // Data bytes of each segment, in order; the last size repeats until the
  // audio is placed and the final segment holds what is left. None: one
  // segment of the whole audio.
  std::vector<std::uint32_t> segmentSizes;
  // JPEG bytes; no cover record when empty.
  std::vector<std::uint8_t> cover;
  // Further table entries stored before and after the writer's own.
  std::vector<LegacyTableEntry> leadingEntries;
  std::vector<LegacyTableEntry> trailingEntries;
};

// Where a record went: the position of its table entry, and its place.
struct LegacyRecordPlace {
  std::uint32_t entryPos = 0;  // 0 when the record was not written
  std::uint32_t offset = 0;
  std::uint32_t size = 0;
};

struct LegacyLayout {
  std::uint32_t fileSize = 0;
  std::array<LegacyRecordPlace, 12> records{};  // by record type
  std::uint32_t segmentCount = 0;
};

// Writes the programme to `out` (opened for writing, written from position
// 0) and describes where its parts went in `layout` (may be null). -18 for
// invalid input (unknown codec, a frame of another size, sizes that do not
// fit a 32-bit file, a repeating segment size of 0), -33 when `out` cannot
// write or seek, -10 when memory runs out, or the stream's code.
std::int32_t WriteLegacyProgramme(const LegacyProgramme& programme, TMXStream* out,
                                  LegacyLayout* layout = nullptr) noexcept;

// Codes 16-bit mono PCM (8000 Hz for kLegacyCodecSpeech8, 16000 Hz for
// kLegacyCodecSpeech16) with the speech encoder into `programme`'s frames,
// setting its codec id; the last packet is padded with silence. -18 for
// another codec, -10 without memory.
std::int32_t EncodeSpeech(std::uint16_t codecId, const std::vector<std::int16_t>& pcm,
                          LegacyProgramme* programme) noexcept;

}  // namespace tmx::writer
