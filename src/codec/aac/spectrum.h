// Spectral tools between parsing and the filterbank: inverse quantisation,
// noise substitution, M/S and intensity stereo, temporal noise shaping.
// Spectra are Q3 coefficients in the standard's scale (an IMDCT with the 2/N
// factor gives 16-bit sample units), one int32 per line, saturated.
#pragma once

#include <cstdint>

#include "codec/aac/syntax.h"

namespace tmx::aac {

// Per-band generator states of the left channel's noise bands, so that the
// right channel can reuse them where both channels are noise and M/S is on.
struct NoiseSeeds {
  std::uint32_t seed[8][kMaxBands];
};

// Quantised values in coef become Q3 coefficients:
// sign(q) |q|^(4/3) 2^((sf - 100) / 4).
void Dequantize(const ChannelStream& cs, std::int32_t* coef) noexcept;

// Fills the noise bands of one channel from the running generator *state. For
// the right channel of a pair, pass the left channel, the pair information
// and the seeds recorded while filling the left one; otherwise left is null.
void ApplyNoise(const ChannelStream& cs, std::int32_t* coef, std::uint32_t* state,
                NoiseSeeds* seeds, const ChannelStream* left, const PairInfo* pair) noexcept;

// M/S: left = mid + side, right = mid - side in the bands marked in the pair.
void ApplyMidSide(const ChannelStream& left, const ChannelStream& right, const PairInfo& pair,
                  std::int32_t* l, std::int32_t* r) noexcept;

// Intensity bands of the right channel: the left spectrum scaled by
// 2^(-position / 4), with the sign of the band type, inverted by ms_used
// only when ms_mask_present is 1.
void ApplyIntensity(const ChannelStream& right, const PairInfo& pair, const std::int32_t* l,
                    std::int32_t* r) noexcept;

// Temporal noise shaping: the all-pole filters of each window.
void ApplyTns(const ChannelStream& cs, std::int32_t* coef) noexcept;

// |q|^(4/3) for q <= 8206 as a mantissa with *fracBits fractional bits.
std::uint32_t Pow43(std::uint32_t q, int* fracBits) noexcept;

}  // namespace tmx::aac
