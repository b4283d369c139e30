// The table of container operations a file type is served by.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

namespace tmx {

struct FormatHandler {
  // Parses the container and fills the file's properties; on failure it
  // releases what it allocated (CloseContainer is not called then).
  std::int32_t (*OpenContainer)(TMXFile* file, TMXStream* stream);
  // Releases the handler's state and the decoder instance.
  std::int32_t (*CloseContainer)(TMXFile* file);
  // Distinct metadata locales; *count is the capacity in, the number out.
  std::int32_t (*GetMetadataLocaleList)(TMXFile* file, std::uint32_t* locales,
                                        std::uint32_t* count);
  // Locates a metadata value (chapter 0xFFFFFFFF for the file level).
  std::int32_t (*GetMetadataItem)(TMXFile* file, std::uint32_t chapter, std::uint32_t key,
                                  std::uint32_t* locale, std::uint32_t* kind, std::uint32_t* offset,
                                  std::uint32_t* size);
  // Places the reader so that the next audio frame delivered is `frame`.
  std::int32_t (*SeekToFrame)(TMXFile* file, std::uint32_t frame);
  // Steps past the current sample and describes the next one.
  std::int32_t (*AdvanceFrame)(TMXFile* file);
  // Copies the next audio frame (ADTS-prefixed when enabled) and advances.
  std::int32_t (*ReadEncodedFrame)(TMXFile* file, std::uint8_t* buffer, std::uint32_t size,
                                   std::uint32_t* length);
  // Decodes one encoded frame to PCM, creating the decoder on first use.
  std::int32_t (*DecodeFrame)(TMXFile* file, const std::uint8_t* data, std::uint32_t length,
                              std::int16_t* pcm, std::uint32_t capacity, std::uint32_t* pcmLength);
  // Describes sample `index` of the track of type `trackType`.
  std::int32_t (*GetSampleInfo)(TMXFile* file, std::uint32_t trackType, std::uint32_t index,
                                TMXFrameInfo* info);
};

// Every operation answers -8.
extern const FormatHandler kNullHandler;

// The handler for a detected file type; the null handler for types without one.
const FormatHandler* HandlerForFileType(std::uint32_t fileType) noexcept;

#ifdef TMX_TEST_HOOKS
namespace testing {
// Serves every file type from `handler` until called again with null.
void OverrideHandler(const FormatHandler* handler) noexcept;
}  // namespace testing
#endif

}  // namespace tmx
