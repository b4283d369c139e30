// Sample positions and sizes: the audio reader that walks the media data
// chunk by chunk, and lookups of single samples of the other tracks.
#pragma once

#include <cstdint>

#include "container/container.h"

namespace tmx::mp4 {

// Reads the audio track's table positions, timing and sample description.
std::int32_t SetUpAudioTables(Container* file) noexcept;

// Handler operations.
std::int32_t SeekToFrame(Container* file, std::uint32_t frame) noexcept;
std::int32_t AdvanceFrame(Container* file) noexcept;
std::int32_t ReadEncodedFrame(Container* file, std::uint8_t* buffer, std::uint32_t size,
                              std::uint32_t* length) noexcept;
std::int32_t GetSampleInfo(Container* file, std::uint32_t trackType, std::uint32_t index,
                           TMXFrameInfo* info) noexcept;

// Frees the current chunk's size list.
void ReleaseChunk(Container* file) noexcept;

}  // namespace tmx::mp4
