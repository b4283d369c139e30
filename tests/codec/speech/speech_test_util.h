// Speech clips and quality measures shared by the speech codec tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tmx::speech::test {

// A clip of tests/codec/speech/data as samples ("speech8k", "speech16k").
std::vector<std::int16_t> LoadClip(const std::string& name);

// Encodes whole packets of `pcm` in `mode` and returns the packets back to
// back.
std::vector<std::uint8_t> Encode(int mode, const std::vector<std::int16_t>& pcm);

// Segmental SNR in dB over 20 ms segments: segments under -50 dBFS in the
// reference are left out, each segment's figure is clamped to -10..35 dB.
double SegmentalSnr(const std::vector<std::int16_t>& ref, const std::vector<std::int16_t>& out,
                    int sampleRate);

}  // namespace tmx::speech::test
