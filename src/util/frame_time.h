// Conversions between audio frame indices and milliseconds. Every time the
// library reports goes through FramesToMs.
#pragma once

#include <cstdint>

namespace tmx {

// floor(frames * samplesPerFrame * 40 / (sampleRate / 25)), computed in
// 32-bit arithmetic as a long division in two 16-bit halves; 0 when
// sampleRate / 25 is 0. The rate is truncated to a multiple of 25 on
// purpose: at 22050 Hz a 1024-sample frame lasts 40960 / 882 = 46 ms.
std::uint32_t FramesToMs(std::uint32_t frames, std::uint32_t sampleRate,
                         std::uint32_t samplesPerFrame) noexcept;

// The inverse: floor(ms * (sampleRate / 25) / (samplesPerFrame * 40)); 0
// when samplesPerFrame * 40 is 0.
std::uint32_t TimeToFrame(std::uint32_t ms, std::uint32_t sampleRate,
                          std::uint32_t samplesPerFrame) noexcept;

}  // namespace tmx
