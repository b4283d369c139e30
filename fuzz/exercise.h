// The fuzz targets' work, shared with the suite that replays their findings:
// a stream over fuzzed bytes, what a player does with an open programme, and
// the decoders on raw frames. Results are not checked here; the sanitizers
// and the callers' bounds are.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "codec/codec.h"
#include "codec/speech/speech_codec.h"
#include "metadata/key_table.h"
#include "support/memory_stream.h"
#include "tmxsdk.h"

namespace tmx::fuzz {

// A stream over the bytes that grows by writes up to 1 MiB, as a small device.
struct ByteStream : test::MemoryStream {
  explicit ByteStream(std::vector<std::uint8_t> bytes) : MemoryStream(std::move(bytes)) {
    set_capacity(1u << 20);
  }
};

// Every metadata and chapter-metadata query in every text format and locale,
// then chapter titles, links and pictures, into a heap block of exactly
// `capacity` bytes, so that the sanitizer sees a write past it.
inline void QueryEverything(TMXFile* f, std::uint32_t capacity) {
  std::vector<std::uint8_t> out(capacity);
  std::uint8_t* buffer = capacity ? out.data() : nullptr;
  std::uint32_t chapters = 0, size = 0, locales[8];
  std::uint32_t localeCount = 8;
  TMXGetChapterCount(f, &chapters);
  if (TMXGetMetadataLocaleList(f, locales, &localeCount) != TMX_OK) localeCount = 0;
  for (std::uint32_t format : {0u, 1u, 2u, 3u}) {
    TMXSetUnicodeFormat(f, format);
    for (std::uint32_t l = 0; l <= localeCount && l <= 8; ++l) {
      const std::uint32_t locale = l < localeCount ? locales[l] : 0;
      TMXSetMetadataLocale(f, locale);
      for (const tmx::MetadataKey& key : tmx::MetadataKeys()) {
        TMXGetMetadataInfo(f, key.key, locale, &size);
        TMXGetMetadata(f, key.key, buffer, capacity);
        for (std::uint32_t c = 0; c < chapters && c < 4; ++c) {
          TMXGetChapterMetadataInfo(f, c, key.key, locale, &size);
          TMXGetChapterMetadata(f, c, key.key, buffer, capacity);
        }
      }
      size = capacity;
      TMXGetUseralias(f, buffer, &size);
    }
  }
  TMXFrameInfo info{};
  for (std::uint32_t c = 0; c < chapters && c < 16; ++c)
    if (TMXGetChapterInfo(f, c, &info) == TMX_OK) TMXGetChapterText(f, &info, buffer, capacity);
  std::uint32_t links = 0, images = 0;
  TMXGetLinkCount(f, &links);
  for (std::uint32_t l = 0; l < links && l < 16; ++l)
    if (TMXGetLinkInfo(f, l, &info) == TMX_OK) TMXGetLink(f, &info, buffer, capacity);
  TMXGetImageCount(f, &images);
  for (std::uint32_t i = 0; i < images && i < 4; ++i)
    if (TMXGetImageInfo(f, i, &info) == TMX_OK)
      for (std::uint32_t start : {0u, capacity, 4000u})
        TMXGetEncodedImage(f, &info, start, buffer, capacity, &size);
}

inline void ExerciseProgramme(TMXFile* f) {
  std::vector<std::uint8_t> buffer(1 << 16);
  std::int16_t pcm[4096];
  std::uint32_t v = 0, n = 0;
  TMXEnableChapterText(f);
  TMXEnableChapterLinks(f);
  TMXEnableChapterImages(f);
  TMXFrameInfo info{};
  for (int i = 0; i < 400 && TMXGetNextFrameInfo(f, &info) == TMX_OK; ++i) {
    if (info.type == 0x74657874) TMXGetChapterText(f, &info, buffer.data(), 64);
    if (info.type == 0x74783367) TMXGetLink(f, &info, buffer.data(), 300);
    if (info.type == 0x6A706567) TMXGetEncodedImage(f, &info, 0, buffer.data(), 100, &n);
    if (TMXSkipNextFrame(f) != TMX_OK) break;
  }
  TMXEnableADTSHeaders(f);
  for (int i = 0; i < 400; ++i) {
    if (TMXGetEncodedAudio(f, buffer.data(), std::int32_t(buffer.size()), &n) != TMX_OK) break;
    TMXDecodePCMFrame(f, buffer.data() + 7, n > 7 ? n - 7 : 0, pcm, sizeof pcm, &v);
  }
  TMXGetChapterCount(f, &n);
  for (std::uint32_t c = 0; c < n && c < 50; ++c) TMXGetChapterStartTime(f, c, &v);
  for (std::uint32_t q = 0; q < 5; ++q) {
    TMXSetImageQuality(f, q);
    if (TMXGetImageInfo(f, 0, &info) == TMX_OK)
      TMXGetEncodedImage(f, &info, 0, buffer.data(), 4096, &n);
  }
  QueryEverything(f, 512);
  TMXGetDuration(f, &v);
  TMXSeek(f, v / 2);
  TMXSeekToChapter(f, 0);
  TMXGetCurrentChapter(f, &v);
  TMXGetPlaybackPosition(f, &v);
}

// Opens the bytes as a programme and, when that works, plays it.
inline void OpenAndPlay(std::vector<std::uint8_t> bytes) {
  ByteStream in(std::move(bytes));
  TMXFile* f = nullptr;
  if (TMXOpenFile(&f, in.stream(), nullptr) != TMX_OK) return;
  ExerciseProgramme(f);
  TMXCloseFile(f);
}

// A decoder made from a two-byte AudioSpecificConfig (ignored by the speech
// codecs) and fed frames cut from `data` at the lengths its bytes give.
inline void DecodeFrames(const tmx::Codec& codec, std::uint8_t config0, std::uint8_t config1,
                         const std::uint8_t* data, std::size_t size) {
  // The AAC decoder reads its configuration 23 bytes into the block the MP4
  // reader hands over.
  std::uint8_t config[25] = {};
  config[23] = config0;
  config[24] = config1;
  void* instance = nullptr;
  if (codec.CreateDecoder(&instance, config, sizeof config, &codec) != 0) return;
  std::int16_t pcm[4096];
  std::size_t at = 0;
  while (at < size) {
    const std::size_t wanted = data[at] * 4u;
    ++at;
    const std::size_t length = std::min(wanted, size - at);
    std::uint32_t produced = 0;
    // Now and then a buffer too small for a frame, and a reset as after a seek.
    const std::uint32_t capacity = (length & 7) == 1 ? 100 : sizeof pcm;
    codec.DecodeFrame(instance, data + at, std::uint32_t(length), pcm, capacity, &produced);
    if ((length & 15) == 2) codec.ResetDecoder(instance, data + at, 0, &codec);
    at += length;
  }
  codec.DestroyDecoder(&instance);
}

// The decoders on raw input: the first byte picks the codec (AAC, speech
// mode 3 or 4), the next two are the AudioSpecificConfig, the rest frames.
inline void DecodeRawInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return;
  const tmx::Codec* codecs[] = {&tmx::kAacCodec, &tmx::kSpeechMode3Codec, &tmx::kSpeechMode4Codec};
  DecodeFrames(*codecs[data[0] % 3], data[1], data[2], data + 3, size - 3);
}

}  // namespace tmx::fuzz
