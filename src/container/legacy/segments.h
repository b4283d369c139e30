// The audio of the older container: a chain of segments, each an 8-byte
// header (data size, data position) followed by its data, followed lazily;
// and the frame reader that walks it. Frames are of constant size and may
// run across the end of a segment.
#pragma once

#include <cstdint>

#include "container/legacy/legacy_state.h"

namespace tmx::legacy {

// Loads the segment after the last one loaded (the first one: record 10).
std::int32_t LoadNextSegment(Container* file) noexcept;

// Handler operations.
std::int32_t SeekToFrame(Container* file, std::uint32_t frame) noexcept;
std::int32_t AdvanceFrame(Container* file) noexcept;
std::int32_t ReadEncodedFrame(Container* file, std::uint8_t* buffer, std::uint32_t size,
                              std::uint32_t* length) noexcept;

}  // namespace tmx::legacy
