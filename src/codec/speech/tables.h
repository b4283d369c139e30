// Quantiser tables of the speech codec. The trained ones (LSF and gain
// codebooks, gain predictor) live in speech_tables.cc, which
// tools/speech_training writes; the decoder and encoder reach them through a
// Tables record so that the training tool can run the codec on tables it is
// still building.
#pragma once

#include "codec/basicop.h"

namespace tmx::speech {

inline constexpr int kOrder = 10;
inline constexpr int kLsfSplits = 4;

// Two-stage LSF quantiser: mean + first stage (all ten LSFs) + four split
// second stages, with an optional prediction from the previous frame.
struct LsfQuantizer {
  int stage1Size;
  const Word16* mean;       // [10] Q15, LSF as a fraction of the Nyquist frequency
  const Word16* stage1[2];  // [stage1Size][10] Q15: [0] memoryless, [1] predicted residual
  Word16 prediction;        // Q15: weight of the previous frame's LSF deviation from the mean
  int splitStart[kLsfSplits];
  int splitDim[kLsfSplits];
  int splitSize[kLsfSplits];
  const Word16* split[kLsfSplits];  // [splitSize][splitDim] Q15
};

// Joint gain quantiser: each entry is a pitch gain and the log2 of the
// correction applied to the predicted fixed-codebook gain. The prediction
// is the mean log energy plus a weighted sum of the last four deviations.
struct GainQuantizer {
  int size;
  const Word16* pitchGain;  // [size] Q14
  const Word16* logGamma;   // [size] Q10, log2 of the fixed-gain correction
  Word16 meanEnergy;        // Q10, log2 of the mean fixed-excitation energy per sample
  Word16 predictor[4];      // Q15
};

struct Tables {
  LsfQuantizer narrowLsf;    // modes 1 to 3
  LsfQuantizer wideLsf;      // mode 4
  GainQuantizer narrowGain;  // modes 1 to 3
  GainQuantizer wideGain;    // mode 4
};

// The trained tables the library ships.
extern const Tables kTrainedTables;

}  // namespace tmx::speech
