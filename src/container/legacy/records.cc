#include "container/legacy/records.h"

#include <algorithm>
#include <cstring>

#include "io/stream_io.h"
#include "util/alloc.h"

namespace tmx::legacy {
namespace {

// The header (size, magic, entry count, a word not used) and the first
// twelve table entries are read in one go; later entries one by one.
constexpr std::uint32_t kHeaderRead = 160;
constexpr std::uint32_t kHeaderFixed = 16;
constexpr std::uint32_t kEntrySize = 12;
constexpr std::uint32_t kEntriesInHeaderRead = (kHeaderRead - kHeaderFixed) / kEntrySize;

constexpr std::uint32_t kHeaderRecordSize = 24;
// Audio record: a 16-bit word, 56 bytes not used, the audio size, a word.
constexpr std::uint32_t kAudioRecordSize = 66;
constexpr std::uint32_t kAudioSizeAt = 58;

// Chapter entry: three words not used, the chapter's length in audio bytes,
// a word not used, the codec id, and a count of 8-byte pairs that follow.
constexpr std::uint32_t kMaxChapters = 128;
constexpr std::uint32_t kChapterFixed = 26;
constexpr std::uint32_t kChapterLengthAt = 12;
constexpr std::uint32_t kChapterCodecAt = 20;
constexpr std::uint32_t kChapterPairsAt = 22;
constexpr std::uint32_t kChapterPairSize = 8;

// Dictionary entry: a zero byte, the name's length, the value's length, the
// name, the value. Only the first 31 characters of a name take part in the
// comparison.
constexpr std::uint32_t kEntryFixed = 9;
constexpr std::size_t kNameChars = 31;

constexpr std::uint32_t kCoverFixed = 8;

// Records that a lookup reads must lie inside the file; in a stream that
// cannot tell its size, their last byte must be there.
std::int32_t CheckInside(Container* f, const Record& r) noexcept {
  const std::uint64_t end = std::uint64_t(r.offset) + r.size;
  if (end > State(f).fileEnd || !BytesExist(f->stream, end)) return TMX_ERR_INCONSISTENT;
  return TMX_OK;
}

// Looks a record up and checks that it lies inside the file.
std::int32_t Inside(Container* f, std::uint32_t type, Record* r) noexcept {
  TMX_RETURN_IF_ERROR(LookUpRecord(f, type, r));
  return CheckInside(f, *r);
}

void KeepEntry(LegacyState& st, const std::uint8_t* entry) noexcept {
  const std::uint32_t type = LoadBE32(entry);
  if (type >= kRecordTypes) return;
  // A later entry of a type replaces the earlier one.
  st.records[type] = {LoadBE32(entry + 4), LoadBE32(entry + 8), 1};
}

}  // namespace

std::int32_t ReadTableOfContents(Container* f, TMXStream* s) noexcept {
  LegacyState& st = State(f);
  std::uint8_t head[kHeaderRead] = {};
  std::int32_t got = 0;
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, 0));
  TMX_RETURN_IF_ERROR(s->ops->Read(s, head, kHeaderRead, &got));
  if (got < std::int32_t(kHeaderFixed)) return TMX_ERR_READ;

  const std::uint32_t sizeWord = LoadBE32(head);
  const std::uint32_t streamSize = s->ops->GetSize(s);
  if (streamSize != TMX_STREAM_UNKNOWN && streamSize != sizeWord) return TMX_ERR_INCONSISTENT;
  if (LoadBE32(head + 4) != kMagic) return TMX_ERR_UNSUPPORTED;
  // A stream that cannot tell its size is not held to the size word: its
  // reads fail by themselves at the real end.
  st.fileEnd = streamSize == TMX_STREAM_UNKNOWN ? TMX_STREAM_UNKNOWN : sizeWord;
  const std::uint32_t count = LoadBE32(head + 8);
  // The table has to fit in the file, which also bounds the walk below.
  if (kHeaderFixed + std::uint64_t(kEntrySize) * count > st.fileEnd) return TMX_ERR_INCONSISTENT;

  const std::uint32_t inHead = std::min(count, kEntriesInHeaderRead);
  if (std::uint32_t(got) < kHeaderFixed + kEntrySize * inHead) return TMX_ERR_READ;
  for (std::uint32_t i = 0; i < inHead; ++i) KeepEntry(st, head + kHeaderFixed + kEntrySize * i);
  for (std::uint32_t i = inHead; i < count; ++i) {
    std::uint8_t entry[kEntrySize];
    TMX_RETURN_IF_ERROR(ReadExactAt(s, kHeaderFixed + kEntrySize * i, entry));
    KeepEntry(st, entry);
  }
  return TMX_OK;
}

std::int32_t LookUpRecord(Container* f, std::uint32_t type, Record* record) noexcept {
  if (type >= kRecordTypes || !State(f).records[type].present) return TMX_ERR_END;
  *record = State(f).records[type];
  return f->stream->ops->Seek(f->stream, record->offset);
}

std::int32_t ReadHeaderRecord(Container* f) noexcept {
  Record r{};
  TMX_RETURN_IF_ERROR(LookUpRecord(f, kRecordHeader, &r));
  if (r.size != kHeaderRecordSize) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(CheckInside(f, r));
  std::uint8_t b[kHeaderRecordSize];
  TMX_RETURN_IF_ERROR(ReadExactAt(f->stream, r.offset, b));
  const std::uint16_t version = LoadBE16(b);
  if (version > 1) return TMX_ERR_UNSUPPORTED;
  if (LoadBE16(b + 2) != 0 || LoadBE32(b + 4) != kMagic) return TMX_ERR_INCONSISTENT;
  // The record's seven fields are what TMXGetOriginalTitle reports.
  f->info.originalTitle[0] = version;
  f->info.originalTitle[1] = 0;
  for (int i = 0; i < 5; ++i) f->info.originalTitle[i + 2] = LoadBE32(b + 4 + 4 * i);
  return TMX_OK;
}

std::int32_t ReadAudioRecord(Container* f) noexcept {
  Record r{};
  TMX_RETURN_IF_ERROR(Inside(f, kRecordAudio, &r));
  if (r.size < kAudioRecordSize) return TMX_ERR_INCONSISTENT;
  std::uint8_t b[kAudioRecordSize];
  TMX_RETURN_IF_ERROR(ReadExactAt(f->stream, r.offset, b));
  State(f).audioSize = LoadBE32(b + kAudioSizeAt);
  return TMX_OK;
}

std::int32_t ReadChapterList(Container* f) noexcept {
  TMXStream* s = f->stream;
  LegacyState& st = State(f);
  Record r{};
  TMX_RETURN_IF_ERROR(Inside(f, kRecordChapters, &r));
  if (r.size < 4) return TMX_ERR_INCONSISTENT;
  std::uint8_t word[4];
  TMX_RETURN_IF_ERROR(ReadExactAt(s, r.offset, word));
  const std::uint32_t n = std::min(LoadBE32(word), kMaxChapters);
  if (4 + std::uint64_t(kChapterFixed) * n > r.size) return TMX_ERR_INCONSISTENT;
  if (n == 0) return TMX_OK;

  f->info.chapterStartFrames = AllocArray<std::uint32_t>(n);
  if (!f->info.chapterStartFrames) return TMX_ERR_MEMORY;
  f->info.chapterCount = n;
  const std::uint64_t end = std::uint64_t(r.offset) + r.size;
  std::uint64_t pos = r.offset + 4ull;
  std::uint64_t start = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    std::uint8_t b[kChapterFixed];
    if (pos + kChapterFixed > end) return TMX_ERR_INCONSISTENT;
    TMX_RETURN_IF_ERROR(ReadExactAt(s, std::uint32_t(pos), b));
    if (i == 0) st.codecId = LoadBE16(b + kChapterCodecAt);
    // Starts in bytes for now; the handler turns them into frames once the
    // frame size is known.
    f->info.chapterStartFrames[i] = std::uint32_t(std::min<std::uint64_t>(start, UINT32_MAX));
    start += LoadBE32(b + kChapterLengthAt);
    pos += kChapterFixed + std::uint64_t(kChapterPairSize) * LoadBE32(b + kChapterPairsAt);
    if (pos > end) return TMX_ERR_INCONSISTENT;
  }
  return TMX_OK;
}

std::int32_t FindDictionaryValue(Container* f, std::string_view name, std::uint32_t* offset,
                                 std::uint32_t* size) noexcept {
  TMXStream* s = f->stream;
  Record r{};
  TMX_RETURN_IF_ERROR(Inside(f, kRecordDictionary, &r));
  if (r.size < 4) return TMX_ERR_INCONSISTENT;
  std::uint8_t word[4];
  TMX_RETURN_IF_ERROR(ReadExactAt(s, r.offset, word));
  const std::uint32_t count = LoadBE32(word);
  const std::string_view wanted = name.substr(0, kNameChars);
  // Every entry takes at least nine bytes of the record, so the walk ends
  // within the record whatever the count says.
  std::uint64_t total = 4;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (total >= r.size) return TMX_ERR_NOT_FOUND;
    const std::uint32_t pos = r.offset + std::uint32_t(total);
    std::uint8_t head[kEntryFixed];
    TMX_RETURN_IF_ERROR(ReadExactAt(s, pos, head));
    if (head[0] != 0) return TMX_ERR_NOT_FOUND;
    const std::uint32_t nameLength = LoadBE32(head + 1);
    const std::uint32_t valueLength = LoadBE32(head + 5);
    total += std::uint64_t(kEntryFixed) + nameLength + valueLength;
    if (total > r.size) return TMX_ERR_NOT_FOUND;
    // The name is compared as the text before its first zero byte.
    char stored[kNameChars + 1] = {};
    const std::uint32_t readLength = std::min<std::uint32_t>(nameLength, kNameChars);
    TMX_RETURN_IF_ERROR(
        ReadExactAt(s, pos + kEntryFixed, {reinterpret_cast<std::uint8_t*>(stored), readLength}));
    if (std::string_view(stored, strnlen(stored, kNameChars)) == wanted) {
      *offset = pos + kEntryFixed + nameLength;
      *size = valueLength;
      return TMX_OK;
    }
  }
  *size = 0;
  return TMX_OK;
}

std::int32_t FindCover(Container* f, std::uint32_t* offset, std::uint32_t* size) noexcept {
  Record r{};
  TMX_RETURN_IF_ERROR(Inside(f, kRecordCover, &r));
  if (r.size < kCoverFixed) return TMX_ERR_INCONSISTENT;
  std::uint8_t b[kCoverFixed];
  TMX_RETURN_IF_ERROR(ReadExactAt(f->stream, r.offset, b));
  const std::uint32_t pictureSize = LoadBE32(b);
  const std::uint32_t pictureOffset = LoadBE32(b + 4);
  if (pictureOffset != std::uint64_t(r.offset) + kCoverFixed ||
      r.size != std::uint64_t(pictureSize) + kCoverFixed) {
    return TMX_ERR_INCONSISTENT;
  }
  *offset = pictureOffset;
  *size = pictureSize;
  return TMX_OK;
}

}  // namespace tmx::legacy
