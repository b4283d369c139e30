// The table of decoder operations a file type is served by.
#pragma once

#include <cstdint>

namespace tmx {

struct Codec {
  // Builds a decoder from its configuration bytes into *instance; -23 when
  // the configuration is refused.
  std::int32_t (*CreateDecoder)(void** instance, const std::uint8_t* config, std::uint32_t length,
                                const Codec* codec);
  // Frees the decoder and clears *instance; -18 when there is none.
  std::int32_t (*DestroyDecoder)(void** instance);
  // Returns the decoder to its state after creation (called after a seek
  // with the next encoded bytes and a length of 0).
  std::int32_t (*ResetDecoder)(void* instance, const std::uint8_t* encoded, std::uint32_t zero,
                               const Codec* codec);
  // Decodes one frame into 16-bit PCM; capacity and *produced count bytes.
  std::int32_t (*DecodeFrame)(void* instance, const std::uint8_t* data, std::uint32_t length,
                              std::int16_t* pcm, std::uint32_t capacity, std::uint32_t* produced);
};

// Every operation answers -22.
extern const Codec kNullCodec;
// The fixed-point AAC-LC decoder.
extern const Codec kAacCodec;

// The codec for a detected file type; the null codec for types without one.
const Codec* CodecForFileType(std::uint32_t fileType) noexcept;

}  // namespace tmx
