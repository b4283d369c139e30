// The audio track's sample description: decoder configuration, channels,
// bit rates and the ADTS header template.
#pragma once

#include <cstdint>

#include "api/file.h"
#include "container/mp4/atom.h"

namespace tmx::mp4 {

// Reads "stsd" whose payload is `stsd`; fills the description fields of the
// file and its MP4 state. Stream errors are returned unchanged.
std::int32_t ReadSampleDescription(TMXFile* file, AtomRange stsd) noexcept;

// The 7-byte ADTS header template for an AudioSpecificConfig's first two
// bytes (read big-endian): no CRC, frame length left 0.
void MakeAdtsTemplate(std::uint16_t audioSpecificConfig, std::uint8_t out[7]) noexcept;

// Copies the template into `out` with the 13-bit frame length merged in.
void WriteAdtsHeader(const std::uint8_t adtsTemplate[7], std::uint32_t frameLength,
                     std::uint8_t out[7]) noexcept;

// Handler operation: decodes a frame, creating the decoder from the stored
// configuration on first use.
std::int32_t DecodeFrame(TMXFile* file, const std::uint8_t* data, std::uint32_t length,
                         std::int16_t* pcm, std::uint32_t capacity,
                         std::uint32_t* pcmLength) noexcept;

}  // namespace tmx::mp4
