// Chapter titles, links and pictures: their samples, placed in the media
// data in time order between the audio chunks, and their tracks in "moov".
#include <algorithm>
#include <string>
#include <vector>

#include "io/stream_io.h"
#include "writer/programme_state.h"

namespace tmx::writer {
namespace {

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

}  // namespace

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

}  // namespace tmx::writer
