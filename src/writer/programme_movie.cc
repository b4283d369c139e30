// "moov": the movie header, the boxes every track has (track, media and
// handler headers, data information) and the "ilst" metadata list.
#include "writer/programme_state.h"

namespace tmx::writer {

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

}  // namespace tmx::writer
