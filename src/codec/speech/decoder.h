// The speech frame decoder: code-excited linear prediction on the
// fixed-point operators of basicop.h.
//
// Per frame: a ten-LSF envelope from a two-stage quantiser, interpolated
// towards the new frame across the subframes and turned into a 10th-order
// synthesis filter. Per subframe: an adaptive-codebook vector at the coded
// pitch delay (half-sample resolution), an algebraic fixed-codebook vector
// of signed pulses on interleaved tracks, sharpened by a pitch comb of
// factor 0.8, both scaled by a jointly quantised gain pair, then the
// synthesis filter and a formant post-filter.
//
// Mode 4 (16 kHz) runs the same decoder on the whole band: the band above
// 4 kHz is not extended from the lower band but synthesised with it, from
// the same excitation and a full-band envelope, so the encoder matches its
// waveform like the rest of the signal.
//
// The functions below the decoder state are the steps the encoder shares,
// so that its local decoder follows the real one bit for bit.
#pragma once

#include "codec/basicop.h"
#include "codec/speech/tables.h"

namespace tmx::speech {

inline constexpr int kMaxSubframe = 80;
inline constexpr int kMaxSubframes = 5;
inline constexpr int kMaxFrame = 240;
inline constexpr int kMaxTracks = 5;
// Excitation history: the longest delay (289.5 samples) plus the
// interpolator's reach.
inline constexpr int kExcHistory = 300;

// What the frame decoder needs to know about a layout.
struct FrameShape {
  int mode;
  int subframes;
  int subframeLength;
  int envelopeFields;    // 5, or 6 with mode 4's prediction flag first
  bool wide;             // wide-band tables and pitch range
  int pitchFirstBits;    // absolute delay field
  int pitchOtherBits;    // relative delay field
  int minLag2, maxLag2;  // delay range in half samples
  int tracks;            // interleaved pulse tracks
  int trackStride;       // distance between positions of one track
  int pulsesPerTrack;    // 1 or 2
  Word16 lsfMinGap;      // Q15
  Word16 postNum;        // Q15, post-filter numerator bandwidth factor
  Word16 postDen;        // Q15, denominator factor
  Word16 postTilt;       // Q15, tilt compensation strength
};

// The shape of mode 1, 2, 3 or 4 (the three-subframe decoder with flag 1 or
// 0 for modes 2 and 3); null for other numbers.
const FrameShape* ShapeForMode(int mode) noexcept;

struct DecoderState {
  const FrameShape* shape;
  const Tables* tables;
  Word16 prevLsf[kOrder];                     // Q15, last frame's quantised LSFs
  Word16 excBuffer[kExcHistory + kMaxFrame];  // Q0, excitation history then frame
  Word16 synMem[kOrder];                      // Q0, synthesis filter outputs
  Word16 gainMem[4];                          // Q10, past log-energy deviations
  Word16 postRes[kOrder];                     // Q0, post-filter input history
  Word16 postSyn[kOrder];                     // Q0, post-filter synthesis memory
  Word16 postTiltMem;                         // Q0, last tilt filter input
  Word16 postGain;                            // Q12, smoothed output gain
  Word16 lowPassMem[8];                       // Q0, mode 4's output low-pass
};

// Sets the state to its start: flat envelope, silent history.
void InitDecoder(DecoderState* state, int mode, const Tables* tables = &kTrainedTables) noexcept;

// Decodes one frame from its parameter list (as ReadFrameParams gives it)
// into shape.subframes * shape.subframeLength samples.
void DecodeFrame(DecoderState* state, const Word16* params, Word16* pcm) noexcept;

// ---- Steps shared with the encoder ----

// Parameters of one subframe, picked out of the list.
struct SubframeParams {
  int pitch;
  int fcb[kMaxTracks];  // one entry per track
  int gain;
};
// The envelope fields and subframe groups of a parameter list (after the
// leading word, if any).
void SplitParams(const FrameShape& shape, const Word16* params, Word16* envelope,
                 SubframeParams* sub) noexcept;
// Writes them back in field order (leading word included).
int JoinParams(const FrameShape& shape, const Word16* envelope, const SubframeParams* sub,
               Word16* params) noexcept;

// Quantised LSFs (Q15) from the envelope fields and the previous frame's.
void DecodeLsf(const FrameShape& shape, const Tables& tables, const Word16* envelope,
               const Word16* prevLsf, Word16* lsf) noexcept;
// LSFs of subframe `s`: (s + 1) / subframes of the way from prev to cur.
void InterpolateLsf(const FrameShape& shape, const Word16* prevLsf, const Word16* curLsf, int s,
                    Word16* out) noexcept;
// Delay in half samples from the pitch field; `prevLag2` is the previous
// subframe's (used by the relative fields).
int DecodeLag2(const FrameShape& shape, int subframe, int field, int prevLag2) noexcept;
// The integer delay the pitch sharpening uses.
inline int SharpeningLag(int lag2) noexcept { return (lag2 + 1) >> 1; }
// Fixed-codebook vector (Q12) of the track fields, pitch-sharpened at lag.
void FixedVector(const FrameShape& shape, const int* fcb, int lag, Word16* code) noexcept;
// log2 of the predicted fixed-codebook gain for a code vector, Q10.
Word16 PredictedLogGain(const FrameShape& shape, const GainQuantizer& gq, const Word16* gainMem,
                        const Word16* code) noexcept;
// The gains of entry `index`: pitch gain Q14, fixed gain Q16.
void DecodeGains(const GainQuantizer& gq, int index, Word16 logGainPred, Word16* pitchGain,
                 Word32* fixedGain) noexcept;
// Shifts the gain predictor's memory after a subframe decoded with entry
// `index`.
void UpdateGainMemory(const GainQuantizer& gq, int index, const Word16* gainMem,
                      Word16* newMem) noexcept;
// exc[i] = pitchGain v[i] + fixedGain code[i] over n samples (v read from
// exc itself, which holds the adaptive vector).
void MixExcitation(Word16* exc, const Word16* code, Word16 pitchGain, Word32 fixedGain,
                   int n) noexcept;
// Decodes subframe `s` of the frame in progress into the excitation buffer
// and `syn` (synthesis before the post-filter) with filter a (Q12); returns
// the delay in half samples.
int DecodeSubframe(DecoderState* state, int s, const Word16* a, const SubframeParams& params,
                   int prevLag2, Word16* syn) noexcept;
// Moves the excitation history past a decoded frame and keeps its LSFs.
void FinishFrame(DecoderState* state, const Word16* lsf) noexcept;
// The gain table of a shape.
const GainQuantizer& GainTable(const FrameShape& shape, const Tables& tables) noexcept;

}  // namespace tmx::speech
