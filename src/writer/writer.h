// Writes TMX programmes: MP4 files whose audio is AAC in one track, with
// optional chapter-title ("text"), link ("tx3g") and picture ("jpeg") tracks
// named by the audio track's "tref"/"chap", an "ilst" metadata list, and a
// header in front of every chunk of media data.
//
// Layout: "ftyp", then "mdat", then "moov". The media data is streamed while
// the frames arrive, so the sizes that "moov" records (and the "mdat" size,
// patched at the end) are known when it is written; readers find "moov" by
// walking the top-level atoms. Memory use does not depend on the number of
// frames: one chunk of audio is held at a time, and the per-frame tables are
// spooled to a scratch stream or a temporary file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tmxsdk.h"
#include "util/status.h"
#include "writer/adts.h"

namespace tmx::writer {

// Major brand of "ftyp"; the reader tells TMX programmes (AAC decoding) and
// m4b audiobooks apart by it, and takes any other brand as a plain MP4.
enum class Brand { kTmx, kM4b, kMp4 };

// Metadata item types of the "ilst" list for the keys the library knows.
inline constexpr std::uint32_t kItemTitle = 0xA96E616D;      // "©nam"
inline constexpr std::uint32_t kItemAuthor = 0xA9415254;     // "©ART"
inline constexpr std::uint32_t kItemNarrator = 0xA96E7274;   // "©nrt"
inline constexpr std::uint32_t kItemCover = FourCC("covr");  // picture
inline constexpr std::uint32_t kItemCopyright = FourCC("cprt");
inline constexpr std::uint32_t kItemDescription = 0xA9636D74;      // "©cmt"
inline constexpr std::uint32_t kItemLongDescription = 0xA9646573;  // "©des"
inline constexpr std::uint32_t kItemProvider = 0xA9707562;         // "©pub"
inline constexpr std::uint32_t kItemPubDate = 0xA9646179;          // "©day"
inline constexpr std::uint32_t kItemProductId = FourCC("prID");
inline constexpr std::uint32_t kItemUserAlias = FourCC("ausr");
inline constexpr std::uint32_t kItemCategory = FourCC("@cat");
inline constexpr std::uint32_t kItemParentId = FourCC("@ppi");
inline constexpr std::uint32_t kItemParentTitle = FourCC("@pti");
inline constexpr std::uint32_t kItemShortTitle = FourCC("@sti");
inline constexpr std::uint32_t kItemGenre = FourCC("@sub");

// Value types of a "data" atom.
inline constexpr std::uint32_t kDataUtf8 = 1;
inline constexpr std::uint32_t kDataUtf16 = 2;
inline constexpr std::uint32_t kDataJpeg = 13;

struct WriterOptions {
  Brand brand = Brand::kTmx;
  std::uint32_t minorVersion = 0;
  // Audio frames per chunk, 1 to 4096.
  std::uint32_t framesPerChunk = 20;
  // False writes a plain MP4: no chunk headers in "mdat".
  bool chunkHeaders = true;
  // Where the per-frame tables are spooled (opened for reading and writing,
  // overwritten from position 0); null for a temporary file.
  TMXStream* scratch = nullptr;
};

// Start times are in milliseconds from the start of the audio. Every side
// track's time line starts with its first sample, so the first chapter, link
// and picture (of each quality) are stored as starting at 0. Times are
// rounded to whole audio frames.
struct Chapter {
  std::uint32_t startMs = 0;
  std::string title;  // UTF-8, at most 65535 bytes
};

struct Link {
  std::uint32_t startMs = 0;
  std::string caption;  // UTF-8, at most 65535 bytes
  std::string url;      // at most 255 bytes
};

struct Picture {
  std::uint32_t startMs = 0;
  // 0 (lowest) to 3 (highest). Pictures of one level form one track; the
  // track of the first picture listed is the main one.
  std::uint32_t quality = 3;
  std::vector<std::uint8_t> jpeg;
};

struct MetadataVariant {
  std::uint32_t dataType = kDataUtf8;
  std::uint32_t locale = 0;  // 0 for the default variant
  std::vector<std::uint8_t> value;
};

struct MetadataItem {
  std::uint32_t type = 0;  // item type, e.g. kItemTitle
  std::vector<MetadataVariant> variants;
};

// What accompanies the audio. Chapters, links and the pictures of each
// quality must be listed in time order.
struct SideTracks {
  std::vector<Chapter> chapters;
  std::vector<Link> links;
  std::vector<Picture> pictures;
  std::vector<MetadataItem> metadata;
};

// A text metadata item with one UTF-8 variant.
MetadataItem TextItem(std::uint32_t type, const std::string& text, std::uint32_t locale = 0);

// Writes a programme while its frames arrive: Begin, AddFrame for every raw
// AAC frame (1024 samples each), Finish. After a failure the output is
// unusable and later calls repeat the error.
class ProgrammeWriter {
 public:
  ProgrammeWriter() noexcept;
  ~ProgrammeWriter();
  ProgrammeWriter(const ProgrammeWriter&) = delete;
  ProgrammeWriter& operator=(const ProgrammeWriter&) = delete;

  // Checks the side tracks and options and writes "ftyp" and the start of
  // "mdat" to `out` (opened for writing, written from position 0). `side`
  // must stay unchanged until Finish. -18 for invalid input, -33 when `out`
  // cannot write or seek, -10 when memory runs out, or the stream's code.
  std::int32_t Begin(TMXStream* out, const AudioConfig& audio, const SideTracks& side,
                     const WriterOptions& options) noexcept;
  // Adds the next raw AAC frame (no ADTS header). -18 for an empty frame or
  // one over 1 MiB.
  std::int32_t AddFrame(std::span<const std::uint8_t> frame) noexcept;
  // Writes the pending samples, completes "mdat" and writes "moov". -7 when
  // no frame was added.
  std::int32_t Finish() noexcept;

 private:
  struct State;
  State* state_ = nullptr;
  std::int32_t failed_ = 0;
};

// Reads an ADTS stream (opened for reading) and writes it as a programme.
std::int32_t WriteProgrammeFromAdts(TMXStream* adts, const SideTracks& side,
                                    const WriterOptions& options, TMXStream* out) noexcept;

// Everything a programme is made of, for writing one in a single call. The
// audio is either `frames` with `audioSpecificConfig`, or (when `frames` is
// empty) the ADTS stream `adts`.
struct ProgrammeSpec {
  std::vector<std::vector<std::uint8_t>> frames;
  std::vector<std::uint8_t> audioSpecificConfig;
  std::span<const std::uint8_t> adts;
  SideTracks side;
  WriterOptions options;
};

// Writes a whole programme to `out` (opened for writing).
std::int32_t WriteProgramme(const ProgrammeSpec& plan, TMXStream* out) noexcept;

}  // namespace tmx::writer
