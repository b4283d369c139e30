// The older single-file container: every size is known before the first
// byte is written, so the file is written front to back in one pass.
#include "writer/legacy_writer.h"

#include <algorithm>
#include <new>
#include <span>

#include "codec/speech/encoder.h"
#include "writer/output.h"

namespace tmx::writer {
namespace {

constexpr std::uint32_t kMagic = 0x57907536;
constexpr std::uint32_t kHeaderFixed = 16;
constexpr std::uint32_t kEntrySize = 12;
constexpr std::uint32_t kHeaderRecordSize = 24;
constexpr std::uint32_t kAudioRecordSize = 66;
constexpr std::uint32_t kAudioRecordUnused = 56;
constexpr std::uint32_t kChapterFixed = 26;
constexpr std::uint32_t kDictionaryEntryFixed = 9;
constexpr std::uint32_t kSegmentHeader = 8;
constexpr std::uint32_t kCoverFixed = 8;

// Record types.
constexpr std::uint32_t kHeaderRecord = 1;
constexpr std::uint32_t kDictionary = 2;
constexpr std::uint32_t kAudioRecord = 3;
constexpr std::uint32_t kChapterList = 6;
constexpr std::uint32_t kSegments = 10;
constexpr std::uint32_t kCover = 11;
constexpr std::uint32_t kTableOrder[] = {kHeaderRecord, kDictionary, kAudioRecord,
                                         kChapterList,  kSegments,   kCover};

// Walks the segment sizes that place `audio` bytes; `visit(size)` is
// called for each. The sizes have been checked to end the walk.
template <class Visit>
void ForEachSegment(const std::vector<std::uint32_t>& sizes, std::uint64_t audio, Visit visit) {
  std::uint64_t left = audio;
  std::size_t i = 0;
  do {
    const std::uint64_t wanted = sizes.empty() ? audio : sizes[std::min(i, sizes.size() - 1)];
    const auto size = std::uint32_t(std::min(wanted, left));
    visit(size);
    left -= size;
    ++i;
  } while (left > 0);
}

struct Plan {
  std::uint32_t frameSize = 0;
  std::uint64_t audio = 0;
  std::uint32_t entryCount = 0;
  LegacyLayout layout;
};

std::int32_t CheckAndPlan(const LegacyProgramme& p, Plan* plan) {
  plan->frameSize = LegacyFrameSize(p.codecId);
  if (plan->frameSize == 0) return TMX_ERR_ARGUMENT;
  for (const auto& frame : p.frames)
    if (frame.size() != plan->frameSize) return TMX_ERR_ARGUMENT;
  plan->audio = std::uint64_t(p.frames.size()) * plan->frameSize;
  if (plan->audio > UINT32_MAX) return TMX_ERR_ARGUMENT;
  if (!p.segmentSizes.empty() && p.segmentSizes.back() == 0) {
    std::uint64_t sum = 0;
    for (std::uint32_t s : p.segmentSizes) sum += s;
    if (sum < plan->audio) return TMX_ERR_ARGUMENT;
  }

  const bool cover = !p.cover.empty();
  plan->entryCount =
      std::uint32_t(p.leadingEntries.size() + 5 + (cover ? 1 : 0) + p.trailingEntries.size());
  std::uint64_t dictionary = 4;
  for (const auto& e : p.dictionary)
    dictionary += std::uint64_t(kDictionaryEntryFixed) + e.name.size() + e.value.size();
  std::uint64_t chapters = 4;
  if (p.chapters.empty()) chapters += kChapterFixed;
  for (const auto& c : p.chapters) {
    chapters += kChapterFixed + 8ull * c.extraPairs;
    if (std::uint64_t(c.frames) * plan->frameSize > UINT32_MAX) return TMX_ERR_ARGUMENT;
  }
  std::uint64_t chain = 0;
  ForEachSegment(p.segmentSizes, plan->audio, [&](std::uint32_t size) {
    chain += kSegmentHeader + size;
    ++plan->layout.segmentCount;
  });

  // Records in file order: 1, 2, 3, 6, 11, the segments.
  const struct {
    std::uint32_t type;
    std::uint64_t size;
  } records[] = {{kHeaderRecord, kHeaderRecordSize},
                 {kDictionary, dictionary},
                 {kAudioRecord, kAudioRecordSize},
                 {kChapterList, chapters},
                 {kCover, cover ? kCoverFixed + p.cover.size() : 0},
                 {kSegments, chain}};
  std::uint64_t at = kHeaderFixed + std::uint64_t(kEntrySize) * plan->entryCount;
  for (const auto& r : records) {
    if (r.type == kCover && !cover) continue;
    if (at + r.size > UINT32_MAX) return TMX_ERR_ARGUMENT;
    plan->layout.records[r.type] = {0, std::uint32_t(at), std::uint32_t(r.size)};
    at += r.size;
  }
  // Their table entries follow the leading entries, in table order.
  auto entry = std::uint32_t(kHeaderFixed + kEntrySize * p.leadingEntries.size());
  for (std::uint32_t type : kTableOrder) {
    if (type == kCover && !cover) continue;
    plan->layout.records[type].entryPos = entry;
    entry += kEntrySize;
  }
  plan->layout.fileSize = std::uint32_t(at);
  return TMX_OK;
}

void WriteHeader(Output& out, const LegacyProgramme& p, const Plan& plan) {
  out.U32(plan.layout.fileSize);
  out.U32(kMagic);
  out.U32(plan.entryCount);
  out.U32(0);
  auto entry = [&](std::uint32_t type, std::uint32_t offset, std::uint32_t size) {
    out.U32(type);
    out.U32(offset);
    out.U32(size);
  };
  for (const auto& e : p.leadingEntries) entry(e.type, e.offset, e.size);
  for (std::uint32_t type : kTableOrder) {
    const LegacyRecordPlace& r = plan.layout.records[type];
    if (r.entryPos != 0) entry(type, r.offset, r.size);
  }
  for (const auto& e : p.trailingEntries) entry(e.type, e.offset, e.size);
}

void WriteRecords(Output& out, const LegacyProgramme& p, const Plan& plan) {
  out.U16(p.version);
  out.U16(0);
  out.U32(kMagic);
  for (std::uint32_t w : p.headerWords) out.U32(w);

  out.U32(std::uint32_t(p.dictionary.size()));
  for (const auto& e : p.dictionary) {
    out.U8(0);
    out.U32(std::uint32_t(e.name.size()));
    out.U32(std::uint32_t(e.value.size()));
    out.Bytes({reinterpret_cast<const std::uint8_t*>(e.name.data()), e.name.size()});
    out.Bytes(e.value);
  }

  out.U16(0);
  out.Zeros(kAudioRecordUnused);
  out.U32(std::uint32_t(plan.audio));
  out.U32(0);

  auto chapter = [&](const LegacyChapter& c) {
    out.Zeros(12);
    out.U32(c.frames * plan.frameSize);
    out.U32(0);
    out.U16(p.codecId);
    out.U32(c.extraPairs);
    for (std::uint32_t i = 0; i < c.extraPairs; ++i) out.Zeros(8);
  };
  out.U32(std::uint32_t(std::max<std::size_t>(p.chapters.size(), 1)));
  if (p.chapters.empty()) chapter({std::uint32_t(p.frames.size()), 0});
  for (const auto& c : p.chapters) chapter(c);

  if (!p.cover.empty()) {
    out.U32(std::uint32_t(p.cover.size()));
    out.U32(out.position() + 4);
    out.Bytes(p.cover);
  }
}

// The frames, cut into segments wherever the segment sizes say.
void WriteSegments(Output& out, const LegacyProgramme& p, const Plan& plan) {
  std::size_t frame = 0, inFrame = 0;
  ForEachSegment(p.segmentSizes, plan.audio, [&](std::uint32_t size) {
    out.U32(size);
    out.U32(out.position() + 4);
    while (size > 0) {
      const auto& bytes = p.frames[frame];
      const std::size_t n = std::min<std::size_t>(size, bytes.size() - inFrame);
      out.Bytes(std::span(bytes).subspan(inFrame, n));
      size -= std::uint32_t(n);
      inFrame += n;
      if (inFrame == bytes.size()) {
        ++frame;
        inFrame = 0;
      }
    }
  });
}

}  // namespace

std::uint32_t LegacyFrameSize(std::uint16_t codecId) noexcept {
  switch (codecId) {
    case kLegacyCodecMp3: return 104;
    case kLegacyCodecSpeech16: return 20;
    case kLegacyCodecSpeech8: return 19;
    default: return 0;
  }
}

std::int32_t WriteLegacyProgramme(const LegacyProgramme& p, TMXStream* stream,
                                  LegacyLayout* layout) noexcept {
  if (!stream) return TMX_ERR_ARGUMENT;
  Plan plan;
  TMX_RETURN_IF_ERROR(CheckAndPlan(p, &plan));
  Output out;
  TMX_RETURN_IF_ERROR(out.Start(stream));
  WriteHeader(out, p, plan);
  WriteRecords(out, p, plan);
  WriteSegments(out, p, plan);
  TMX_RETURN_IF_ERROR(out.Flush());
  if (layout) *layout = plan.layout;
  return TMX_OK;
}

std::int32_t EncodeSpeech(std::uint16_t codecId, const std::vector<std::int16_t>& pcm,
                          LegacyProgramme* programme) noexcept {
  const int mode = codecId == kLegacyCodecSpeech8 ? 3 : codecId == kLegacyCodecSpeech16 ? 4 : 0;
  if (mode == 0) return TMX_ERR_ARGUMENT;
  speech::Encoder* encoder = speech::CreateEncoder(mode);
  if (!encoder) return TMX_ERR_MEMORY;
  const auto samples = std::size_t(speech::PacketSamples(encoder));
  const auto bytes = std::size_t(speech::PacketBytes(encoder));
  std::vector<std::int16_t> packetPcm(samples);
  try {
    programme->codecId = codecId;
    programme->frames.clear();
    for (std::size_t at = 0; at < pcm.size(); at += samples) {
      const std::size_t n = std::min(samples, pcm.size() - at);
      std::copy_n(pcm.begin() + std::ptrdiff_t(at), n, packetPcm.begin());
      std::fill(packetPcm.begin() + std::ptrdiff_t(n), packetPcm.end(), std::int16_t(0));
      std::vector<std::uint8_t> packet(bytes);
      speech::EncodePacket(encoder, packetPcm.data(), packet.data());
      programme->frames.push_back(std::move(packet));
    }
  } catch (const std::bad_alloc&) {
    speech::DestroyEncoder(encoder);
    return TMX_ERR_MEMORY;
  }
  speech::DestroyEncoder(encoder);
  return TMX_OK;
}

}  // namespace tmx::writer
