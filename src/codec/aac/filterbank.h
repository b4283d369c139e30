// Synthesis filterbank: IMDCT through a complex FFT, windows (sine and KBD,
// long, start, short and stop), overlap-add and rounding to 16 bits.
#pragma once

#include <cstdint>

#include "codec/aac/syntax.h"

namespace tmx::aac {

// What the filterbank keeps of one channel between frames.
struct ChannelHistory {
  std::int32_t overlap[1024];  // Q12 samples: second half of the last windowed output
  std::uint8_t previousShape;  // window shape of the last frame
};

// Scratch space of the filterbank, part of the decoder instance.
struct FilterbankWork {
  std::int32_t fft[1024];   // 512 complex values: Q3 (long) or Q5 (short) coefficients
  std::int32_t time[2048];  // Q12 windowed output of one frame
};

// Inverse MDCT of m = 1024 or 128 coefficients (Q3, the standard's scale)
// into 2m samples in Q12 (16-bit sample units with 12 fractional bits),
// including the 2/N factor. coef is used as scratch.
void InverseMdct(std::int32_t* coef, int m, std::int32_t* out, std::int32_t* fft) noexcept;

// One channel of one frame: coef (1024 Q3 coefficients, destroyed) to 1024
// samples written to pcm[0], pcm[stride], ...
void SynthesizeChannel(const IcsInfo& ics, std::int32_t* coef, ChannelHistory* history,
                       FilterbankWork* work, std::int16_t* pcm, int stride) noexcept;

}  // namespace tmx::aac
