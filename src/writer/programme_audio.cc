// The audio of a programme: frames gathered into chunks, each written with
// its chunk header, and the audio track of "moov" with its sample entry and
// the sample tables read back from the spool.
#include <algorithm>
#include <cstring>

#include "writer/programme_state.h"

namespace tmx::writer {

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

}  // namespace tmx::writer
