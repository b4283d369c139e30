// The audio track's sample description: decoder configuration, channels,
// bit rates and the ADTS header template.
#pragma once

#include <cstdint>

#include "codec/codec.h"
#include "container/container.h"
#include "container/mp4/atom.h"

namespace tmx::mp4 {

// Reads "stsd" whose payload is `stsd`; fills the description fields of the
// file and its MP4 state. Stream errors are returned unchanged.
std::int32_t ReadSampleDescription(Container* file, AtomRange stsd) noexcept;

// The 7-byte ADTS header template for an AudioSpecificConfig's first two
// bytes (read big-endian): no CRC, frame length left 0.
void MakeAdtsTemplate(std::uint16_t audioSpecificConfig, std::uint8_t out[7]) noexcept;

// Copies the template into `out` with the 13-bit frame length merged in.
void WriteAdtsHeader(const std::uint8_t adtsTemplate[7], std::uint32_t frameLength,
                     std::uint8_t out[7]) noexcept;

// Handler operation: decodes one frame through the caller's decoder.
std::int32_t DecodeFrame(Container* file, const Codec* codec, void* instance,
                         const std::uint8_t* data, std::uint32_t length, std::int16_t* pcm,
                         std::uint32_t capacity, std::uint32_t* pcmLength) noexcept;

}  // namespace tmx::mp4
