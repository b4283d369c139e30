// The speech encoder: analysis by synthesis for the four packet layouts.
// Built into the writer library (tmx_writer), which the programme writer,
// tmxtool, the training tool and the tests use; the player library does not
// carry it.
//
// The analysis (LPC, LSF search, perceptual weighting, codebook searches) is
// in floating point; every choice is then decoded by the fixed-point
// decoder's own steps, so the encoder's memory of past excitation and
// synthesis is exactly the decoder's.
#pragma once

#include <cstdint>

#include "codec/speech/tables.h"

namespace tmx::speech {

struct Encoder;

// What the training tool learns from: the unquantised LSFs of each frame and
// the terms of each subframe's gain error
//   |x - gp y - gc z|^2 = xx - 2 gp xy - 2 gc xz + gp^2 yy + 2 gp gc yz + gc^2 zz
// with the predicted fixed gain and the code vector's log energy.
struct GainTerms {
  double xx, xy, xz, yy, yz, zz;
  double predictedGain;  // gc the predictor proposes
  double logCodeEnergy;  // log2 of the code vector's energy per sample
  double logPredMean;    // predictor output before the code energy, log2
};
struct EncoderObserver {
  void* context;
  void (*lsf)(void* context, const double* lsf);  // ten values, fractions of Nyquist
  void (*gains)(void* context, const GainTerms& terms);
};

// A new encoder for mode 1 to 4 (null for other modes or without memory).
Encoder* CreateEncoder(int mode, const Tables* tables = &kTrainedTables,
                       const EncoderObserver* observer = nullptr) noexcept;
void DestroyEncoder(Encoder* encoder) noexcept;

// Samples one packet takes (frames per packet x samples per frame) and its
// size in bytes.
int PacketSamples(const Encoder* encoder) noexcept;
int PacketBytes(const Encoder* encoder) noexcept;

// Encodes PacketSamples() samples into one packet of PacketBytes() bytes.
void EncodePacket(Encoder* encoder, const std::int16_t* pcm, std::uint8_t* packet) noexcept;

}  // namespace tmx::speech
