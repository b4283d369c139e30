// The table of container operations a file type is served by.
#pragma once

#include <cstdint>

#include "codec/codec.h"
#include "container/container.h"
#include "tmxsdk.h"

namespace tmx {

// Every operation works on the container record alone; the decoder is the
// caller's, handed to DecodeFrame.
struct FormatHandler {
  // Parses the container from `stream` and fills the record's info and the
  // handler's state; on failure it releases what it allocated
  // (CloseContainer is not called then).
  std::int32_t (*OpenContainer)(Container* file, TMXStream* stream);
  // Releases the handler's state.
  std::int32_t (*CloseContainer)(Container* file);
  // Distinct metadata locales; *count is the capacity in, the number out.
  std::int32_t (*GetMetadataLocaleList)(Container* file, std::uint32_t* locales,
                                        std::uint32_t* count);
  // Locates a metadata value (chapter 0xFFFFFFFF for the file level).
  std::int32_t (*GetMetadataItem)(Container* file, std::uint32_t chapter, std::uint32_t key,
                                  std::uint32_t* locale, std::uint32_t* kind, std::uint32_t* offset,
                                  std::uint32_t* size);
  // Places the reader so that the next audio frame delivered is `frame`.
  std::int32_t (*SeekToFrame)(Container* file, std::uint32_t frame);
  // Steps past the current sample and describes the next one.
  std::int32_t (*AdvanceFrame)(Container* file);
  // Copies the next audio frame (ADTS-prefixed when enabled) and advances.
  std::int32_t (*ReadEncodedFrame)(Container* file, std::uint8_t* buffer, std::uint32_t size,
                                   std::uint32_t* length);
  // Decodes encoded bytes to PCM through `codec` and its `instance`, which
  // the caller created from the info's configuration bytes and owns.
  std::int32_t (*DecodeFrame)(Container* file, const Codec* codec, void* instance,
                              const std::uint8_t* data, std::uint32_t length, std::int16_t* pcm,
                              std::uint32_t capacity, std::uint32_t* pcmLength);
  // Describes sample `index` of the track of type `trackType`.
  std::int32_t (*GetSampleInfo)(Container* file, std::uint32_t trackType, std::uint32_t index,
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
