#include "container/mp4/sample_description.h"

#include <algorithm>
#include <iterator>

#include "codec/codec.h"
#include "container/mp4/mp4_state.h"
#include "io/stream_io.h"
#include "util/alloc.h"

namespace tmx::mp4 {
namespace {

// AudioSampleEntry fields before its child atoms: reserved (6), data
// reference index (2), reserved (8), channel count, sample size,
// pre-defined, reserved (2 each), sample rate (4).
constexpr std::uint32_t kAudioEntryFields = 28;

// Reads "esds" with its fixed layout: four-byte descriptor lengths and no
// optional ES fields. Tags and lengths are read but not checked.
std::int32_t ReadEsds(Container* file, TMXStream* s) noexcept {
  Mp4State& st = State(file);
  // Version and flags, the ES descriptor's tag and length, ES_ID and the
  // stream flags.
  std::uint8_t esPrefix[12];
  TMX_RETURN_IF_ERROR(AtomReadBytes(s, esPrefix));
  // DecoderConfigDescriptor: tag, length, object type, stream type,
  // buffer size, max bitrate, avg bitrate; then the DecSpecificInfo tag,
  // its length and the first two AudioSpecificConfig bytes.
  std::uint8_t config[25];
  TMX_RETURN_IF_ERROR(AtomReadBytes(s, config));
  const std::uint32_t maxBitrate = LoadBE32(config + 10);
  const std::uint32_t avgBitrate = LoadBE32(config + 14);
  const std::uint16_t asc = LoadBE16(config + 23);
  // SLConfigDescriptor: tag, length, predefined.
  std::uint8_t sl[6];
  TMX_RETURN_IF_ERROR(AtomReadBytes(s, sl));

  // The decoder is made from these bytes when the first frame is decoded.
  static_assert(sizeof config <= kMaxCodecConfig);
  std::copy(std::begin(config), std::end(config), file->info.codecConfig);
  file->info.codecConfigLength = sizeof config;
  st.audioSpecificConfig = asc;
  file->info.channelCount = (asc >> 3) & 0x0F;
  file->info.maxBitrate = maxBitrate;
  file->info.avgBitrate = avgBitrate;
  MakeAdtsTemplate(asc, st.adtsTemplate);
  return TMX_OK;
}

// Reads one "mp4a" or "tmvd" entry whose payload starts at the stream's
// position and whose atom is `size` bytes long.
std::int32_t ReadAudioEntry(Container* file, TMXStream* s, std::uint32_t entryPos,
                            std::uint32_t size) noexcept {
  std::uint8_t fields[kAudioEntryFields];
  TMX_RETURN_IF_ERROR(AtomReadBytes(s, fields));
  const AtomRange children{entryPos + kAtomHeaderSize + kAudioEntryFields, entryPos + size};
  return ForEachBox(
      s, children,
      [&](const Box& child) -> std::int32_t {
        if (!AtomTypeMatches(child.type, FourCC("esds"))) return TMX_OK;
        return ReadEsds(file, s);
      },
      ShortTail::kIgnored);
}

}  // namespace

void MakeAdtsTemplate(std::uint16_t asc, std::uint8_t out[7]) noexcept {
  const std::uint32_t objectType = asc >> 11;
  const std::uint32_t frequencyIndex = (asc >> 7) & 0x0F;
  const std::uint32_t channels = (asc >> 3) & 0x0F;
  out[0] = 0xFF;
  out[1] = 0xF9;  // MPEG-2, layer 0, no CRC
  out[2] = std::uint8_t(((objectType - 1) << 6) | (frequencyIndex << 2) | ((channels >> 2) & 1));
  // Original/copy and home bits both set.
  out[3] = std::uint8_t(((channels & 3) << 6) | 0x30);
  out[4] = 0x00;
  out[5] = 0x1F;  // buffer fullness 0x7FF ...
  out[6] = 0xFC;  // ... and one raw data block
}

void WriteAdtsHeader(const std::uint8_t adtsTemplate[7], std::uint32_t frameLength,
                     std::uint8_t out[7]) noexcept {
  for (int i = 0; i < 7; ++i) out[i] = adtsTemplate[i];
  out[3] = std::uint8_t(out[3] + ((frameLength >> 11) & 3));
  out[4] = std::uint8_t(frameLength >> 3);
  out[5] = std::uint8_t(out[5] + ((frameLength & 7) << 5));
}

std::int32_t ReadSampleDescription(Container* file, AtomRange stsd) noexcept {
  TMXStream* s = file->stream;
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, stsd.begin));
  std::uint8_t version = 0;
  std::uint32_t flags = 0, count = 0;
  TMX_RETURN_IF_ERROR(AtomReadU24(s, &version, &flags));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &count));
  // At most `count` entries, each inside "stsd".
  std::uint32_t seen = 0;
  constexpr std::int32_t kDone = 2;
  const std::int32_t rc =
      ForEachBox(s, {stsd.begin + 8, stsd.end}, [&](const Box& entry) -> std::int32_t {
        if (seen++ == count) return kDone;
        if (!AtomTypeMatches(entry.type, FourCC("mp4a")) &&
            !AtomTypeMatches(entry.type, FourCC("tmvd")))
          return TMX_OK;
        return ReadAudioEntry(file, s, entry.pos, entry.size);
      });
  return rc == kDone ? TMX_OK : rc;
}

std::int32_t DecodeFrame(Container*, const Codec* codec, void* instance, const std::uint8_t* data,
                         std::uint32_t length, std::int16_t* pcm, std::uint32_t capacity,
                         std::uint32_t* pcmLength) noexcept {
  return codec->DecodeFrame(instance, data, length, pcm, capacity, pcmLength);
}

}  // namespace tmx::mp4
