// The streaming programme writer: its checks of what it is given, the start
// ("ftyp" and the opening of "mdat") and the finish (the last chunk, the
// "mdat" size and "moov"), and the public interface. The parts of the file
// are written in programme_audio.cc, programme_side.cc and programme_movie.cc.
#include <algorithm>
#include <new>

#include "writer/programme_state.h"

namespace tmx::writer {
namespace {

bool TimesAscend(auto begin, auto end) {
  return std::is_sorted(begin, end,
                        [](const auto& a, const auto& b) { return a.startMs < b.startMs; });
}

std::int32_t CheckSideTracks(const SideTracks& side) {
  if (!TimesAscend(side.chapters.begin(), side.chapters.end()) ||
      !TimesAscend(side.links.begin(), side.links.end())) {
    return TMX_ERR_ARGUMENT;
  }
  for (const Chapter& c : side.chapters) {
    if (c.title.size() > 0xFFFF) return TMX_ERR_ARGUMENT;
  }
  for (const Link& l : side.links) {
    if (l.caption.size() > 0xFFFF || l.url.size() > 0xFF) return TMX_ERR_ARGUMENT;
  }
  std::uint32_t last[4] = {};
  for (const Picture& p : side.pictures) {
    if (p.quality > 3 || p.jpeg.empty() || p.jpeg.size() > 0x7FFFFFFF) return TMX_ERR_ARGUMENT;
    if (p.startMs < last[p.quality]) return TMX_ERR_ARGUMENT;
    last[p.quality] = p.startMs;
  }
  for (const MetadataItem& item : side.metadata) {
    for (const MetadataVariant& v : item.variants) {
      if (v.dataType > 0xFFFFFF || v.value.size() > 0x7FFFFFFF) return TMX_ERR_ARGUMENT;
    }
  }
  return TMX_OK;
}

}  // namespace

MetadataItem TextItem(std::uint32_t type, const std::string& text, std::uint32_t locale) {
  MetadataItem item;
  item.type = type;
  item.variants.push_back({kDataUtf8, locale, std::vector<std::uint8_t>(text.begin(), text.end())});
  return item;
}

std::int32_t ProgrammeWriter::State::Begin(TMXStream* stream) {
  TMX_RETURN_IF_ERROR(out.Start(stream));
  TMX_RETURN_IF_ERROR(spool.Start(options.scratch));
  if (!chunkSizes.Allocate(options.framesPerChunk)) return TMX_ERR_MEMORY;

  if (!side->chapters.empty()) {
    AddSideTrack(SideKind::kText, FourCC("text"), 0, std::uint32_t(side->chapters.size()), true);
  }
  if (!side->links.empty()) {
    AddSideTrack(SideKind::kLink, FourCC("tx3g"), 0, std::uint32_t(side->links.size()), true);
  }
  // One picture track per quality level, in the order the levels first
  // appear; the first is the main one.
  bool seen[4] = {};
  for (const Picture& p : side->pictures) {
    if (seen[p.quality]) continue;
    seen[p.quality] = true;
    const auto count = std::count_if(side->pictures.begin(), side->pictures.end(),
                                     [&](const Picture& q) { return q.quality == p.quality; });
    AddSideTrack(SideKind::kPicture, FourCC("jpeg"), p.quality, std::uint32_t(count),
                 trackCount == 0 || tracks[trackCount - 1].kind != SideKind::kPicture);
  }
  for (std::uint32_t i = 0; i < trackCount; ++i) {
    if (!tracks[i].offsets.Allocate(tracks[i].count)) return TMX_ERR_MEMORY;
  }
  std::uint32_t rate = audio.sampleRate;
  windowLength = std::clamp<std::uint32_t>((rate + kSamplesPerFrame - 1) / kSamplesPerFrame, 1,
                                           std::uint32_t(window.size()));

  WriteFileType();
  mdatStart = out.Atom(FourCC("mdat"));
  return out.status();
}

void ProgrammeWriter::State::WriteFileType() {
  std::uint32_t brand = FourCC("tmx ");
  if (options.brand == Brand::kM4b) brand = FourCC("m4b ");
  if (options.brand == Brand::kMp4) brand = FourCC("mp42");
  const std::uint32_t start = out.Atom(FourCC("ftyp"));
  out.U32(brand);
  out.U32(options.minorVersion);
  out.U32(brand);
  out.U32(FourCC("isom"));
  if (brand != FourCC("mp42")) out.U32(FourCC("mp42"));
  out.EndAtom(start);
}

std::int32_t ProgrammeWriter::State::Finish() {
  if (frames == 0) return TMX_ERR_INCONSISTENT;
  // Readers that place a chunk through the tables reach the frames of the
  // last chunk only by reading on, so the audio ends with a chunk of one
  // frame: every other frame can be sought, and a short programme still has
  // a first chunk to start playing from.
  if (chunkFrames > 1) TMX_RETURN_IF_ERROR(SplitOffLastFrame());
  TMX_RETURN_IF_ERROR(WriteChunk(true));
  out.PatchU32(mdatStart, out.position() - mdatStart);
  WriteMovie();
  TMX_RETURN_IF_ERROR(spoolStatus);
  return out.Flush();
}

// ---- public interface ----

ProgrammeWriter::ProgrammeWriter() noexcept = default;

ProgrammeWriter::~ProgrammeWriter() {
  if (state_) {
    state_->~State();
    Free(state_);
  }
}

std::int32_t ProgrammeWriter::Begin(TMXStream* out, const AudioConfig& audio,
                                    const SideTracks& side, const WriterOptions& options) noexcept {
  if (failed_ != 0) return failed_;
  if (state_ || !out) return TMX_ERR_ARGUMENT;
  if (options.framesPerChunk == 0 || options.framesPerChunk > kMaxFramesPerChunk ||
      audio.sampleRate == 0 || audio.ascSize < 2 || audio.ascSize > audio.asc.size()) {
    return TMX_ERR_ARGUMENT;
  }
  if (std::int32_t rc = CheckSideTracks(side); rc != 0) return rc;
  void* memory = Alloc(sizeof(State));
  if (!memory) return failed_ = TMX_ERR_MEMORY;
  state_ = new (memory) State();
  state_->audio = audio;
  state_->side = &side;
  state_->options = options;
  failed_ = state_->Begin(out);
  return failed_;
}

std::int32_t ProgrammeWriter::AddFrame(std::span<const std::uint8_t> frame) noexcept {
  if (failed_ != 0) return failed_;
  if (!state_) return TMX_ERR_ARGUMENT;
  std::int32_t rc = state_->Add(frame);
  if (rc != 0 && rc != TMX_ERR_ARGUMENT) failed_ = rc;
  return rc;
}

std::int32_t ProgrammeWriter::Finish() noexcept {
  if (failed_ != 0) return failed_;
  if (!state_) return TMX_ERR_ARGUMENT;
  failed_ = state_->Finish();
  return failed_;
}

std::int32_t WriteProgrammeFromAdts(TMXStream* adts, const SideTracks& side,
                                    const WriterOptions& options, TMXStream* out) noexcept {
  if (!adts || !adts->ops || !adts->ops->Read || !adts->ops->GetSize || !adts->ops->Tell) {
    return TMX_ERR_STREAM_OPS;
  }
  AdtsReader reader(adts);
  std::span<const std::uint8_t> frame;
  std::int32_t rc = reader.Next(&frame);
  if (rc == TMX_ERR_END) return TMX_ERR_INCONSISTENT;  // no audio at all
  if (rc != 0) return rc;
  ProgrammeWriter writer;
  TMX_RETURN_IF_ERROR(writer.Begin(out, reader.config(), side, options));
  for (;;) {
    TMX_RETURN_IF_ERROR(writer.AddFrame(frame));
    rc = reader.Next(&frame);
    if (rc == TMX_ERR_END) break;
    if (rc != 0) return rc;
  }
  return writer.Finish();
}

std::int32_t WriteProgramme(const ProgrammeSpec& plan, TMXStream* out) noexcept {
  if (plan.frames.empty()) {
    SpanStream adts(plan.adts);
    return WriteProgrammeFromAdts(adts.stream(), plan.side, plan.options, out);
  }
  AudioConfig config;
  TMX_RETURN_IF_ERROR(ParseAudioSpecificConfig(plan.audioSpecificConfig, &config));
  ProgrammeWriter writer;
  TMX_RETURN_IF_ERROR(writer.Begin(out, config, plan.side, plan.options));
  for (const std::vector<std::uint8_t>& frame : plan.frames) {
    TMX_RETURN_IF_ERROR(writer.AddFrame(frame));
  }
  return writer.Finish();
}

}  // namespace tmx::writer
