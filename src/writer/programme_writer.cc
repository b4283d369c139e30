// The streaming programme writer: "ftyp", the media data with its chunk
// headers, and at the end "moov" with the sample tables and metadata.
#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "io/stream_io.h"
#include "writer/output.h"
#include "writer/writer.h"

namespace tmx::writer {
namespace {

constexpr std::uint32_t kSamplesPerFrame = 1024;
constexpr std::uint32_t kMaxFramesPerChunk = 4096;
constexpr std::uint32_t kMaxFrameSize = 1u << 20;
constexpr std::uint32_t kAudioTrackId = 1;
constexpr std::uint32_t kMovieTimescale = 1000;
constexpr std::uint32_t kLanguageUnd = 0x55C4;  // "und", packed 5 bits a letter

// "tkhd" flags: enabled, in the movie, and the main track of its kind.
constexpr std::uint32_t kTrackEnabled = 0x1;
constexpr std::uint32_t kTrackInMovie = 0x2;
constexpr std::uint32_t kMainTrack = 0x1000;

// The "encd" box closing a chapter title: text encoding UTF-8. Its first
// byte is zero, which also ends a title read one byte too far.
constexpr std::uint32_t kEncdBoxSize = 12;
// An "href" box without the address: size, type, start and end character,
// address length, and after the address the length of an empty alternate
// text.
constexpr std::uint32_t kHrefBoxFixedSize = 14;
constexpr std::uint32_t kSideChunkHeaderSize = 32;

// Milliseconds of a frame count, truncating the rate to a multiple of 25 as
// the reader does, so that chunk headers agree with what it reports.
std::uint32_t FramesToMs(std::uint64_t frames, std::uint32_t sampleRate) {
  const std::uint64_t d = sampleRate / 25;
  return d == 0 ? 0 : std::uint32_t(frames * kSamplesPerFrame * 40 / d);
}

// The audio frame nearest to a time.
std::uint64_t MsToFrame(std::uint32_t ms, std::uint32_t sampleRate) {
  const std::uint64_t unit = std::uint64_t(kSamplesPerFrame) * 1000;
  return (std::uint64_t(ms) * sampleRate + unit / 2) / unit;
}

std::uint32_t Utf8Length(const std::string& s) {
  return std::uint32_t(std::count_if(
      s.begin(), s.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::span<const std::uint8_t> AsBytes(const std::string& s) {
  return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()};
}

// Width and height from the first start-of-frame marker of a JPEG; zeros
// when none is found.
void JpegSize(const std::vector<std::uint8_t>& jpeg, std::uint32_t* width, std::uint32_t* height) {
  *width = *height = 0;
  std::size_t i = 2;
  while (i + 9 <= jpeg.size()) {
    if (jpeg[i] != 0xFF) return;
    const std::uint8_t marker = jpeg[i + 1];
    if (marker == 0xFF) {
      ++i;
      continue;
    }
    const std::size_t length = LoadBE16(&jpeg[i + 2]);
    const bool startOfFrame =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (startOfFrame) {
      *height = LoadBE16(&jpeg[i + 5]);
      *width = LoadBE16(&jpeg[i + 7]);
      return;
    }
    i += 2 + length;
  }
}

enum class SideKind { kText, kLink, kPicture };

// A chapter-title, link or picture track being written: which list entries
// it takes, how far it got, and where its samples went.
struct SideTrack {
  SideKind kind = SideKind::kText;
  std::uint32_t entryType = 0;
  std::uint32_t trackId = 0;
  std::uint32_t quality = 0;  // pictures: 0..3
  bool main = false;
  std::uint32_t count = 0;    // samples
  std::uint32_t written = 0;  // samples written so far
  std::size_t cursor = 0;     // list index of the next sample
  Block<std::uint32_t> offsets;
};

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

struct ProgrammeWriter::State {
  Output out;
  Spool spool;  // per audio chunk: its offset, then the sizes of its frames
  AudioConfig audio;
  const SideTracks* side = nullptr;
  WriterOptions options;

  std::array<SideTrack, 6> tracks;  // chapter titles, links, four picture levels
  std::uint32_t trackCount = 0;

  // The audio chunk being gathered.
  Block<std::uint8_t> chunk;
  std::size_t chunkUsed = 0;
  Block<std::uint32_t> chunkSizes;
  std::uint32_t chunkFrames = 0;

  std::uint64_t frames = 0;
  std::uint32_t chunks = 0;
  std::uint32_t lastChunkFrames = 0;
  std::uint32_t penultimateChunkFrames = 0;  // 0 when it holds framesPerChunk
  std::uint64_t audioBytes = 0;
  std::uint32_t largestFrame = 0;

  // Frame sizes of the last second, for the peak bit rate.
  std::array<std::uint32_t, 128> window{};
  std::uint32_t windowLength = 1;
  std::uint64_t windowBytes = 0;
  std::uint64_t peakWindowBytes = 0;

  std::uint32_t mdatStart = 0;
  // The first failure to read the spool back while "moov" is written.
  std::int32_t spoolStatus = 0;

  std::int32_t Begin(TMXStream* stream);
  std::int32_t Add(std::span<const std::uint8_t> frame);
  std::int32_t Finish();
  std::int32_t SplitOffLastFrame();
  std::uint32_t FramesInChunk(std::uint32_t c) const;

  // Media data.
  void AddSideTrack(SideKind kind, std::uint32_t entryType, std::uint32_t quality,
                    std::uint32_t count, bool main);
  std::uint64_t SampleFrame(const SideTrack& t, std::size_t listIndex) const;
  std::uint32_t SampleSize(const SideTrack& t, std::size_t listIndex) const;
  std::size_t NextIndex(const SideTrack& t, std::size_t from) const;
  std::size_t ListSize(const SideTrack& t) const;
  std::int32_t WriteSideSamples(std::uint64_t upToFrame, bool all);
  void WriteSideSample(SideTrack& t);
  std::int32_t WriteChunk(bool last);

  // Movie atom.
  void WriteFileType();
  void WriteMovie();
  void WriteMovieHeader();
  void WriteTrackHeader(std::uint32_t id, std::uint32_t flags, std::uint32_t alternateGroup,
                        std::uint32_t volume, std::uint32_t width, std::uint32_t height);
  void WriteMediaHeader(std::uint64_t duration, std::uint32_t quality);
  void WriteHandler(std::uint32_t type, const char* name);
  void WriteDataInformation();
  void WriteAudioTrack();
  void WriteAudioSampleEntry();
  void WriteEsds();
  void WriteAudioTables();
  void WriteSideTrack(const SideTrack& t);
  void WriteSideSampleEntry(const SideTrack& t);
  void WriteSideTables(const SideTrack& t);
  void WriteMetadata();

  std::uint64_t AudioDuration() const { return frames * kSamplesPerFrame; }
  std::uint32_t DurationMs() const {
    return std::uint32_t(AudioDuration() * kMovieTimescale / audio.sampleRate);
  }
};

void ProgrammeWriter::State::AddSideTrack(SideKind kind, std::uint32_t entryType,
                                          std::uint32_t quality, std::uint32_t count, bool main) {
  SideTrack& t = tracks[trackCount++];
  t.kind = kind;
  t.entryType = entryType;
  t.trackId = kAudioTrackId + trackCount;
  t.quality = quality;
  t.count = count;
  t.main = main;
  t.cursor = NextIndex(t, 0);
}

// The list index of the track's first sample at or after `from`.
std::size_t ProgrammeWriter::State::NextIndex(const SideTrack& t, std::size_t from) const {
  if (t.kind != SideKind::kPicture) return from;
  const auto& pictures = side->pictures;
  while (from < pictures.size() && pictures[from].quality != t.quality) ++from;
  return from;
}

std::size_t ProgrammeWriter::State::ListSize(const SideTrack& t) const {
  switch (t.kind) {
    case SideKind::kText: return side->chapters.size();
    case SideKind::kLink: return side->links.size();
    case SideKind::kPicture: return side->pictures.size();
  }
  return 0;
}

std::uint64_t ProgrammeWriter::State::SampleFrame(const SideTrack& t, std::size_t listIndex) const {
  if (listIndex == NextIndex(t, 0)) return 0;  // each time line starts with its first sample
  std::uint32_t ms = 0;
  switch (t.kind) {
    case SideKind::kText: ms = side->chapters[listIndex].startMs; break;
    case SideKind::kLink: ms = side->links[listIndex].startMs; break;
    case SideKind::kPicture: ms = side->pictures[listIndex].startMs; break;
  }
  return MsToFrame(ms, audio.sampleRate);
}

std::uint32_t ProgrammeWriter::State::SampleSize(const SideTrack& t, std::size_t listIndex) const {
  switch (t.kind) {
    case SideKind::kText:
      return 2 + std::uint32_t(side->chapters[listIndex].title.size()) + kEncdBoxSize;
    case SideKind::kLink: {
      const Link& l = side->links[listIndex];
      return 2 + std::uint32_t(l.caption.size() + kHrefBoxFixedSize + l.url.size());
    }
    case SideKind::kPicture: return std::uint32_t(side->pictures[listIndex].jpeg.size());
  }
  return 0;
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

std::int32_t ProgrammeWriter::State::Add(std::span<const std::uint8_t> frame) {
  if (frame.empty() || frame.size() > kMaxFrameSize) return TMX_ERR_ARGUMENT;
  if (frames >= 0xFFFFFFFFu) return TMX_ERR_ARGUMENT;
  // A full chunk is written only when the next frame comes, so that the
  // last chunk is still pending when Finish places the remaining side
  // samples.
  if (chunkFrames == options.framesPerChunk) TMX_RETURN_IF_ERROR(WriteChunk(false));
  if (chunkUsed + frame.size() > chunk.size() &&
      !chunk.Grow(std::max(chunkUsed + frame.size(), chunk.size() * 2))) {
    return TMX_ERR_MEMORY;
  }
  std::memcpy(chunk.get() + chunkUsed, frame.data(), frame.size());
  chunkUsed += frame.size();
  const auto size = std::uint32_t(frame.size());
  chunkSizes.get()[chunkFrames++] = size;

  std::uint32_t& slot = window[frames % windowLength];
  windowBytes += size;
  windowBytes -= slot;
  slot = size;
  ++frames;
  if (frames >= windowLength) peakWindowBytes = std::max(peakWindowBytes, windowBytes);
  audioBytes += size;
  largestFrame = std::max(largestFrame, size);
  return TMX_OK;
}

// Side samples go in front of the first audio chunk that starts at or after
// them, so that the file runs in time order; the last audio chunk takes all
// that remain, since a reader stops at the end of the audio.
std::int32_t ProgrammeWriter::State::WriteSideSamples(std::uint64_t upToFrame, bool all) {
  for (;;) {
    SideTrack* next = nullptr;
    std::uint64_t nextFrame = 0;
    for (std::uint32_t i = 0; i < trackCount; ++i) {
      SideTrack& t = tracks[i];
      if (t.written == t.count) continue;
      const std::uint64_t f = SampleFrame(t, t.cursor);
      if ((all || f <= upToFrame) && (!next || f < nextFrame)) {
        next = &t;
        nextFrame = f;
      }
    }
    if (!next) return out.status();
    WriteSideSample(*next);
  }
}

void ProgrammeWriter::State::WriteSideSample(SideTrack& t) {
  const std::size_t i = t.cursor;
  const std::uint32_t size = SampleSize(t, i);
  if (options.chunkHeaders) {
    out.U32(kSideChunkHeaderSize);
    out.U32(t.entryType);
    out.U32(FramesToMs(SampleFrame(t, i), audio.sampleRate));
    out.U32(t.written);
    out.U32(t.trackId);
    out.U32(size);
    out.U32(1);
    out.U32(size);
  }
  t.offsets.get()[t.written] = out.position();
  switch (t.kind) {
    case SideKind::kText: {
      const std::string& title = side->chapters[i].title;
      out.U16(std::uint32_t(title.size()));
      out.Bytes(AsBytes(title));
      out.U32(kEncdBoxSize);
      out.U32(FourCC("encd"));
      out.U32(0x00000100);
      break;
    }
    case SideKind::kLink: {
      const Link& l = side->links[i];
      out.U16(std::uint32_t(l.caption.size()));
      out.Bytes(AsBytes(l.caption));
      out.U32(kHrefBoxFixedSize + std::uint32_t(l.url.size()));
      out.U32(FourCC("href"));
      out.U16(0);
      out.U16(Utf8Length(l.caption));
      out.U8(std::uint32_t(l.url.size()));
      out.Bytes(AsBytes(l.url));
      out.U8(0);
      break;
    }
    case SideKind::kPicture: out.Bytes(side->pictures[i].jpeg); break;
  }
  ++t.written;
  t.cursor = NextIndex(t, i + 1);
}

std::int32_t ProgrammeWriter::State::WriteChunk(bool last) {
  const std::uint64_t firstFrame = frames - chunkFrames;
  TMX_RETURN_IF_ERROR(WriteSideSamples(firstFrame, last));
  const std::uint32_t* sizes = chunkSizes.get();
  if (options.chunkHeaders) {
    out.U32((chunkFrames + 7) * 4);
    out.U32(FourCC("mp4a"));
    out.U32(FramesToMs(firstFrame, audio.sampleRate));
    out.U32(std::uint32_t(firstFrame));
    out.U32(kAudioTrackId);
    out.U32(std::uint32_t(chunkUsed));
    out.U32(chunkFrames);
    for (std::uint32_t i = 0; i < chunkFrames; ++i) out.U32(sizes[i]);
  }
  TMX_RETURN_IF_ERROR(spool.Append(out.position()));
  for (std::uint32_t i = 0; i < chunkFrames; ++i) TMX_RETURN_IF_ERROR(spool.Append(sizes[i]));
  out.Bytes({chunk.get(), chunkUsed});
  ++chunks;
  lastChunkFrames = chunkFrames;
  chunkFrames = 0;
  chunkUsed = 0;
  return out.status();
}

// Writes all pending frames but the last as a chunk of their own and keeps
// the last one pending.
std::int32_t ProgrammeWriter::State::SplitOffLastFrame() {
  const std::uint32_t lastSize = chunkSizes.get()[chunkFrames - 1];
  const std::size_t lastAt = chunkUsed - lastSize;
  --chunkFrames;
  chunkUsed = lastAt;
  --frames;
  const std::int32_t rc = WriteChunk(false);
  ++frames;
  TMX_RETURN_IF_ERROR(rc);
  if (lastChunkFrames != options.framesPerChunk) penultimateChunkFrames = lastChunkFrames;
  std::memmove(chunk.get(), chunk.get() + lastAt, lastSize);
  chunkSizes.get()[0] = lastSize;
  chunkFrames = 1;
  chunkUsed = lastSize;
  return TMX_OK;
}

std::uint32_t ProgrammeWriter::State::FramesInChunk(std::uint32_t c) const {
  if (c + 1 == chunks) return lastChunkFrames;
  if (c + 2 == chunks && penultimateChunkFrames != 0) return penultimateChunkFrames;
  return options.framesPerChunk;
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

// ---- "moov" ----

static void WriteMatrix(Output& out) {
  static constexpr std::uint32_t kIdentity[9] = {0x00010000, 0, 0, 0,         0x00010000,
                                                 0,          0, 0, 0x40000000};
  for (std::uint32_t v : kIdentity) out.U32(v);
}

void ProgrammeWriter::State::WriteMovie() {
  const std::uint32_t moov = out.Atom(FourCC("moov"));
  WriteMovieHeader();
  WriteAudioTrack();
  for (std::uint32_t i = 0; i < trackCount; ++i) WriteSideTrack(tracks[i]);
  if (!side->metadata.empty()) WriteMetadata();
  out.EndAtom(moov);
}

void ProgrammeWriter::State::WriteMovieHeader() {
  const std::uint32_t start = out.FullAtom(FourCC("mvhd"), 0, 0);
  out.U32(0);  // creation time
  out.U32(0);  // modification time
  out.U32(kMovieTimescale);
  out.U32(DurationMs());
  out.U32(0x00010000);  // rate 1.0
  out.U16(0x0100);      // volume 1.0
  out.Zeros(10);
  WriteMatrix(out);
  out.Zeros(24);  // pre-defined
  out.U32(kAudioTrackId + trackCount + 1);
  out.EndAtom(start);
}

void ProgrammeWriter::State::WriteTrackHeader(std::uint32_t id, std::uint32_t flags,
                                              std::uint32_t alternateGroup, std::uint32_t volume,
                                              std::uint32_t width, std::uint32_t height) {
  const std::uint32_t start = out.FullAtom(FourCC("tkhd"), 0, flags);
  out.U32(0);  // creation time
  out.U32(0);  // modification time
  out.U32(id);
  out.U32(0);
  out.U32(DurationMs());
  out.Zeros(8);
  out.U16(0);  // layer
  out.U16(alternateGroup);
  out.U16(volume);
  out.U16(0);
  WriteMatrix(out);
  out.U32(width << 16);
  out.U32(height << 16);
  out.EndAtom(start);
}

// The 16-bit field after the language code carries a picture track's
// quality level in its bits 0xC0.
void ProgrammeWriter::State::WriteMediaHeader(std::uint64_t duration, std::uint32_t quality) {
  const bool wide = duration > 0xFFFFFFFFu;
  const std::uint32_t start = out.FullAtom(FourCC("mdhd"), wide ? 1 : 0, 0);
  if (wide) {
    out.U64(0);
    out.U64(0);
    out.U32(audio.sampleRate);
    out.U64(duration);
  } else {
    out.U32(0);
    out.U32(0);
    out.U32(audio.sampleRate);
    out.U32(std::uint32_t(duration));
  }
  out.U16(kLanguageUnd);
  out.U16(quality << 6);
  out.EndAtom(start);
}

void ProgrammeWriter::State::WriteHandler(std::uint32_t type, const char* name) {
  const std::uint32_t start = out.FullAtom(FourCC("hdlr"), 0, 0);
  out.U32(0);
  out.U32(type);
  out.Zeros(12);
  out.CString(name);
  out.EndAtom(start);
}

void ProgrammeWriter::State::WriteDataInformation() {
  const std::uint32_t dinf = out.Atom(FourCC("dinf"));
  const std::uint32_t dref = out.FullAtom(FourCC("dref"), 0, 0);
  out.U32(1);
  out.EndAtom(out.FullAtom(FourCC("url "), 0, 1));  // media in this file
  out.EndAtom(dref);
  out.EndAtom(dinf);
}

void ProgrammeWriter::State::WriteAudioTrack() {
  const std::uint32_t trak = out.Atom(FourCC("trak"));
  WriteTrackHeader(kAudioTrackId, kMainTrack | kTrackEnabled | kTrackInMovie, 0, 0x0100, 0, 0);
  if (trackCount > 0) {
    const std::uint32_t tref = out.Atom(FourCC("tref"));
    const std::uint32_t chap = out.Atom(FourCC("chap"));
    for (std::uint32_t i = 0; i < trackCount; ++i) out.U32(tracks[i].trackId);
    out.EndAtom(chap);
    out.EndAtom(tref);
  }
  const std::uint32_t mdia = out.Atom(FourCC("mdia"));
  WriteMediaHeader(AudioDuration(), 0);
  WriteHandler(FourCC("soun"), "SoundHandler");
  const std::uint32_t minf = out.Atom(FourCC("minf"));
  const std::uint32_t smhd = out.FullAtom(FourCC("smhd"), 0, 0);
  out.U16(0);  // balance
  out.U16(0);
  out.EndAtom(smhd);
  WriteDataInformation();
  WriteAudioTables();
  out.EndAtom(minf);
  out.EndAtom(mdia);
  out.EndAtom(trak);
}

void ProgrammeWriter::State::WriteAudioSampleEntry() {
  const std::uint32_t entry = out.Atom(FourCC("mp4a"));
  out.Zeros(6);
  out.U16(1);  // data reference index
  out.Zeros(8);
  out.U16(audio.channelConfig == 7 ? 8 : audio.channelConfig);
  out.U16(16);  // sample size
  out.U16(0);
  out.U16(0);
  out.U32(std::min<std::uint32_t>(audio.sampleRate, 0xFFFF) << 16);
  WriteEsds();
  out.EndAtom(entry);
}

// Descriptor lengths always take the four-byte form, and the ES descriptor
// carries no optional fields: the reader takes the fields at fixed offsets.
void ProgrammeWriter::State::WriteEsds() {
  auto length = [this](std::uint32_t n) {
    out.U8(0x80 | ((n >> 21) & 0x7F));
    out.U8(0x80 | ((n >> 14) & 0x7F));
    out.U8(0x80 | ((n >> 7) & 0x7F));
    out.U8(n & 0x7F);
  };
  const std::uint32_t decSpecificLength = audio.ascSize;
  const std::uint32_t decConfigLength = 13 + 5 + decSpecificLength;
  const std::uint32_t slConfigLength = 1;
  const std::uint32_t esLength = 3 + 5 + decConfigLength + 5 + slConfigLength;

  const auto avgBitrate = std::uint32_t(audioBytes * 8 * audio.sampleRate /
                                        std::max<std::uint64_t>(AudioDuration(), 1));
  const std::uint64_t peakFrames = std::min<std::uint64_t>(frames, windowLength);
  const std::uint64_t peakBytes = frames >= windowLength ? peakWindowBytes : audioBytes;
  const auto maxBitrate = std::uint32_t(std::max<std::uint64_t>(
      avgBitrate, peakBytes * 8 * audio.sampleRate / (peakFrames * kSamplesPerFrame)));

  const std::uint32_t start = out.FullAtom(FourCC("esds"), 0, 0);
  out.U8(0x03);  // ES descriptor
  length(esLength);
  out.U16(0);    // ES_ID
  out.U8(0);     // no dependency, URL or OCR stream
  out.U8(0x04);  // decoder configuration
  length(decConfigLength);
  out.U8(0x40);  // MPEG-4 audio
  out.U8(0x15);  // audio stream
  out.U24(largestFrame);
  out.U32(maxBitrate);
  out.U32(avgBitrate);
  out.U8(0x05);  // decoder-specific information: the AudioSpecificConfig
  length(decSpecificLength);
  out.Bytes(audio.audioSpecificConfig());
  out.U8(0x06);  // sync layer configuration
  length(slConfigLength);
  out.U8(0x02);  // predefined for MP4 files
  out.EndAtom(start);
}

void ProgrammeWriter::State::WriteAudioTables() {
  const std::uint32_t stbl = out.Atom(FourCC("stbl"));

  const std::uint32_t stsd = out.FullAtom(FourCC("stsd"), 0, 0);
  out.U32(1);
  WriteAudioSampleEntry();
  out.EndAtom(stsd);

  const std::uint32_t stts = out.FullAtom(FourCC("stts"), 0, 0);
  out.U32(1);
  out.U32(std::uint32_t(frames));
  out.U32(kSamplesPerFrame);
  out.EndAtom(stts);

  // One "stsc" run per change of the frames a chunk holds (at most three:
  // the full chunks, a shorter one, the single-frame end).
  const std::uint32_t stsc = out.FullAtom(FourCC("stsc"), 0, 0);
  std::uint32_t runs = 0;
  for (std::uint32_t c = 0; c < chunks; ++c)
    if (c == 0 || FramesInChunk(c) != FramesInChunk(c - 1)) ++runs;
  out.U32(runs);
  for (std::uint32_t c = 0; c < chunks; ++c) {
    if (c != 0 && FramesInChunk(c) == FramesInChunk(c - 1)) continue;
    out.U32(c + 1);
    out.U32(FramesInChunk(c));
    out.U32(1);
  }
  out.EndAtom(stsc);

  // Both tables come from the spool, one pass each.
  auto framesIn = [&](std::uint32_t c) { return FramesInChunk(c); };
  std::uint32_t value = 0;
  const std::uint32_t stsz = out.FullAtom(FourCC("stsz"), 0, 0);
  out.U32(0);  // sizes differ
  out.U32(std::uint32_t(frames));
  std::int32_t rc = spool.Rewind();
  for (std::uint32_t c = 0; c < chunks && rc == 0; ++c) {
    rc = spool.Next(&value);  // the chunk's offset
    for (std::uint32_t i = 0; i < framesIn(c) && rc == 0; ++i) {
      rc = spool.Next(&value);
      out.U32(value);
    }
  }
  out.EndAtom(stsz);

  const std::uint32_t stco = out.FullAtom(FourCC("stco"), 0, 0);
  out.U32(chunks);
  if (rc == 0) rc = spool.Rewind();
  for (std::uint32_t c = 0; c < chunks && rc == 0; ++c) {
    rc = spool.Next(&value);
    out.U32(value);
    for (std::uint32_t i = 0; i < framesIn(c) && rc == 0; ++i) rc = spool.Next(&value);
  }
  out.EndAtom(stco);
  if (rc != 0 && spoolStatus == 0) spoolStatus = rc;
  out.EndAtom(stbl);
}

void ProgrammeWriter::State::WriteSideTrack(const SideTrack& t) {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t handler = FourCC("text");
  const char* handlerName = "TextHandler";
  std::uint32_t flags = kTrackEnabled;
  std::uint32_t group = 0;
  if (t.kind == SideKind::kPicture) {
    JpegSize(side->pictures[NextIndex(t, 0)].jpeg, &width, &height);
    handler = FourCC("vide");
    handlerName = "VideoHandler";
    // Renditions of the same pictures are alternatives to one another.
    const bool several =
        std::count_if(tracks.begin(), tracks.begin() + trackCount,
                      [](const SideTrack& o) { return o.kind == SideKind::kPicture; }) > 1;
    group = several ? 1 : 0;
  }
  if (t.main) flags |= kMainTrack;

  const std::uint32_t trak = out.Atom(FourCC("trak"));
  WriteTrackHeader(t.trackId, flags, group, 0, width, height);
  const std::uint32_t mdia = out.Atom(FourCC("mdia"));
  // Side tracks share the audio time scale: the reader takes their sample
  // durations as audio time.
  WriteMediaHeader(AudioDuration(), t.kind == SideKind::kPicture ? t.quality : 0);
  WriteHandler(handler, handlerName);
  const std::uint32_t minf = out.Atom(FourCC("minf"));
  if (t.kind == SideKind::kPicture) {
    const std::uint32_t vmhd = out.FullAtom(FourCC("vmhd"), 0, 1);
    out.Zeros(8);  // graphics mode and colour
    out.EndAtom(vmhd);
  } else {
    out.EndAtom(out.FullAtom(FourCC("nmhd"), 0, 0));
  }
  WriteDataInformation();
  WriteSideTables(t);
  out.EndAtom(minf);
  out.EndAtom(mdia);
  out.EndAtom(trak);
}

void ProgrammeWriter::State::WriteSideSampleEntry(const SideTrack& t) {
  const std::uint32_t entry = out.Atom(t.entryType);
  out.Zeros(6);
  out.U16(1);  // data reference index
  switch (t.kind) {
    case SideKind::kText:
      // Display flags, justification, background colour, text box,
      // reserved, font number and face, reserved, foreground colour, and
      // an empty font name.
      out.Zeros(4 + 4 + 6 + 8 + 8 + 2 + 2 + 1 + 2 + 6 + 1);
      break;
    case SideKind::kLink:
      out.U32(0);    // display flags
      out.U8(1);     // centred
      out.U8(0xFF);  // at the bottom
      out.U32(0);    // transparent background
      out.Zeros(8);  // default text box
      out.U16(0);    // style record: characters 0 to 0
      out.U16(0);
      out.U16(1);           // font 1
      out.U8(0);            // plain
      out.U8(18);           // size
      out.U32(0xFFFFFFFF);  // white
      {
        const std::uint32_t ftab = out.Atom(FourCC("ftab"));
        out.U16(1);
        out.U16(1);
        out.U8(5);
        out.Bytes(AsBytes("Serif"));
        out.EndAtom(ftab);
      }
      break;
    case SideKind::kPicture: {
      std::uint32_t width = 0;
      std::uint32_t height = 0;
      JpegSize(side->pictures[NextIndex(t, 0)].jpeg, &width, &height);
      out.Zeros(16);  // pre-defined and reserved
      out.U16(width);
      out.U16(height);
      out.U32(0x00480000);  // 72 dpi
      out.U32(0x00480000);
      out.U32(0);
      out.U16(1);       // one picture per sample
      out.Zeros(32);    // compressor name
      out.U16(0x0018);  // colour
      out.U16(0xFFFF);
      break;
    }
  }
  out.EndAtom(entry);
}

void ProgrammeWriter::State::WriteSideTables(const SideTrack& t) {
  const std::uint32_t stbl = out.Atom(FourCC("stbl"));

  const std::uint32_t stsd = out.FullAtom(FourCC("stsd"), 0, 0);
  out.U32(1);
  WriteSideSampleEntry(t);
  out.EndAtom(stsd);

  // Durations in audio samples: from each sample's start to the next one's,
  // and for the last to the end of the audio. Equal neighbours share an
  // entry.
  const std::uint32_t stts = out.FullAtom(FourCC("stts"), 0, 0);
  const std::uint32_t countAt = out.position();
  out.U32(0);
  std::uint32_t entries = 0;
  std::uint32_t runCount = 0;
  std::uint64_t runDelta = 0;
  std::size_t i = NextIndex(t, 0);
  for (std::uint32_t k = 0; k < t.count; ++k) {
    const std::size_t next = NextIndex(t, i + 1);
    const std::uint64_t from = SampleFrame(t, i);
    const std::uint64_t to = k + 1 < t.count ? SampleFrame(t, next) : std::max(frames, from);
    const std::uint64_t delta = (to - from) * kSamplesPerFrame;
    if (runCount > 0 && delta != runDelta) {
      out.U32(runCount);
      out.U32(std::uint32_t(runDelta));
      ++entries;
      runCount = 0;
    }
    runDelta = delta;
    ++runCount;
    i = next;
  }
  out.U32(runCount);
  out.U32(std::uint32_t(runDelta));
  out.PatchU32(countAt, entries + 1);
  out.EndAtom(stts);

  const std::uint32_t stsc = out.FullAtom(FourCC("stsc"), 0, 0);
  out.U32(1);
  out.U32(1);  // from the first chunk on, one sample a chunk
  out.U32(1);
  out.U32(1);
  out.EndAtom(stsc);

  const std::uint32_t stsz = out.FullAtom(FourCC("stsz"), 0, 0);
  out.U32(0);
  out.U32(t.count);
  for (std::size_t j = NextIndex(t, 0); j < ListSize(t); j = NextIndex(t, j + 1)) {
    out.U32(SampleSize(t, j));
  }
  out.EndAtom(stsz);

  const std::uint32_t stco = out.FullAtom(FourCC("stco"), 0, 0);
  out.U32(t.count);
  for (std::uint32_t k = 0; k < t.count; ++k) out.U32(t.offsets.get()[k]);
  out.EndAtom(stco);

  out.EndAtom(stbl);
}

void ProgrammeWriter::State::WriteMetadata() {
  const std::uint32_t udta = out.Atom(FourCC("udta"));
  const std::uint32_t meta = out.FullAtom(FourCC("meta"), 0, 0);
  const std::uint32_t hdlr = out.FullAtom(FourCC("hdlr"), 0, 0);
  out.U32(0);
  out.U32(FourCC("mdir"));
  out.U32(FourCC("appl"));
  out.Zeros(8);
  out.U8(0);  // empty name
  out.EndAtom(hdlr);
  const std::uint32_t ilst = out.Atom(FourCC("ilst"));
  for (const MetadataItem& item : side->metadata) {
    const std::uint32_t atom = out.Atom(item.type);
    for (const MetadataVariant& v : item.variants) {
      // Version 0, then the value type in the 24-bit flags.
      const std::uint32_t data = out.FullAtom(FourCC("data"), 0, v.dataType);
      out.U32(v.locale);
      out.Bytes(v.value);
      out.EndAtom(data);
    }
    out.EndAtom(atom);
  }
  out.EndAtom(ilst);
  out.EndAtom(meta);
  out.EndAtom(udta);
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
