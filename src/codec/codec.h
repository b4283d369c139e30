// The table of decoder operations a file type is served by.
#pragma once

#include <cstdint>

namespace tmx {

struct Codec {
  // Builds a decoder from its configuration bytes into *instance.
  std::int32_t (*CreateDecoder)(void** instance, const std::uint8_t* config, std::uint32_t length);
  // Frees the decoder and clears *instance.
  std::int32_t (*DestroyDecoder)(void** instance);
  // Returns the decoder to its initial state.
  std::int32_t (*ResetDecoder)(void* instance);
  // Decodes one frame into 16-bit PCM; *produced receives the PCM length.
  std::int32_t (*DecodeFrame)(void* instance, const std::uint8_t* data, std::uint32_t length,
                              std::int16_t* pcm, std::uint32_t capacity, std::uint32_t* produced);
};

// Every operation answers -22.
extern const Codec kNullCodec;

// The codec for a detected file type; the null codec for types without one.
const Codec* CodecForFileType(std::uint32_t fileType) noexcept;

}  // namespace tmx
