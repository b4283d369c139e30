// What a format handler works on: the container stream, the handler's own
// state, what it found at open, the reader's place and the few options that
// change what the reader delivers. The per-file record embeds one; the
// handlers see nothing else of it.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

namespace tmx {

// Decoder configuration bytes a handler can report (the MP4 reader's
// DecoderConfigDescriptor up to the first two AudioSpecificConfig bytes).
inline constexpr std::uint32_t kMaxCodecConfig = 32;

// The programme as the handler found it at open; fixed from then on.
struct ProgrammeInfo {
  std::uint32_t audioTrackType;  // sample type of the audio frames
  std::uint32_t duration;        // milliseconds
  std::uint32_t avgBitrate;      // as the container states it
  std::uint32_t maxBitrate;
  std::uint32_t channelCount;
  std::uint32_t sampleRate;       // also the time scale of samplesPerFrame
  std::uint32_t samplesPerFrame;  // 0 when unknown
  std::uint32_t frameCount;
  std::uint32_t* chapterStartFrames;  // chapterCount entries, owned by the handler
  std::uint32_t chapterCount;
  std::uint32_t imageCount;
  std::uint32_t linkCount;
  std::int32_t positionSaveInterval;  // frames between periodic saves
  std::uint32_t originalTitle[7];     // first word 0 when there is none
  std::uint8_t codecConfig[kMaxCodecConfig];
  std::uint32_t codecConfigLength;
};

struct Container {
  TMXStream* stream;
  std::uint32_t fileType;
  void* state;  // the handler's own, owned by it
  ProgrammeInfo info;

  // The reader's place: the next audio frame and the sample it stands on.
  std::uint32_t currentFrame;
  TMXFrameInfo currentFrameInfo;
  // Set when the reader moved other than by one frame; the next decode
  // starts the decoder afresh.
  std::uint32_t decoderResetPending;  // bool

  // Options the player sets on the file (see the option exports).
  std::uint32_t adtsHeadersEnabled;  // bool
  std::uint32_t imageQuality;
  std::uint32_t unicodeFormat;
};

}  // namespace tmx
