// Speech clips, packets, programmes and quality measures of the speech codec tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tmx::speech::test {

// The first `count` samples (0: all) of the clip of tests/codec/speech/data
// that suits `mode`: 16000 Hz for mode 4, 8000 Hz for the others.
std::vector<std::int16_t> Clip(int mode, std::size_t count = 0);

// The whole packets of `pcm` encoded in `mode`, back to back.
std::vector<std::uint8_t> Encode(int mode, const std::vector<std::int16_t>& pcm);

// What the frame decoder makes of whole packets, from a fresh state.
std::vector<std::int16_t> DecodeAll(int mode, const std::vector<std::uint8_t>& packets);

std::vector<std::uint8_t> RandomBytes(std::size_t n, unsigned seed);

// A programme of the older container holding `packets` of mode 3 or 4.
std::vector<std::uint8_t> LegacyProgramme(int mode, const std::vector<std::uint8_t>& packets);

// Segmental SNR in dB over 20 ms segments: segments under -50 dBFS in the
// reference are left out, each segment's figure is clamped to -10..35 dB.
double SegmentalSnr(const std::vector<std::int16_t>& ref, const std::vector<std::int16_t>& out,
                    int sampleRate);

}  // namespace tmx::speech::test
