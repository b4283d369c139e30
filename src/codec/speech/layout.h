// Packet and frame layouts of the four speech modes, and the reader and
// writer of their bit fields.
//
// Bits are numbered from the least significant bit of byte 0 upwards; a
// field's first bit is its least significant one, and fields follow each
// other without gaps. Two-frame packets carry the second frame right behind
// the first (bit 148 in mode 1, bit 116 in mode 2).
//
// Bit allocation of one frame, field by field in bit order (mode 3: 144
// samples at 8000 Hz, 8444 bit/s; mode 4: 160 samples at 16000 Hz,
// 16000 bit/s):
//
//  mode | envelope (LSF)               | subframe group (repeated)        | frame
//  -----+------------------------------+----------------------------------+------
//   1   | s1:6 s2a:7 s2b:7 s2c:7 s2d:5 | pitch:8/5 fcb:10 gain:7   (x5)   | 148
//   2   | s1:6 s2a:7 s2b:7 s2c:7 s2d:5 | pitch:8/5 fcb:5 5 5 gain:7 (x3)  | 116
//   3   | s1:6 s2a:7 s2b:7 s2c:7 s2d:5 | pitch:8/5 fcb:9 9 9 gain:7 (x3)  | 152
//   4   | pred:1 s1:7 s2a:8 s2b:7      | pitch:9/6 gainLo:4 fcb:9 9 9 9 9 | 160
//       |   s2c:7 s2d:7                |   gainHi:5               (x2)    |
//
//  s1      first-stage index of the LSF vector quantiser (all ten LSFs)
//  s2a-d   second-stage split indexes: LSFs 0-2, 3-5, 6-7 and 8-9
//  pred    mode 4 only: 1 = the LSFs are coded as a residual of a prediction
//          from the previous frame, 0 = coded without memory
//  pitch   adaptive-codebook delay: absolute in the first subframe, relative
//          to the previous subframe in the others. 8 bits: codes 0-191 give
//          20.0-115.5 samples in half steps, 192-255 give 116-179 in whole
//          ones; 5 bits: -8.0..+7.5 in half steps. Mode 4, 9 bits:
//          34.0-289.5 in half steps; 6 bits: -16.0..+15.5.
//  fcb     algebraic fixed codebook: one field per interleaved track, track
//          t holding positions t, t + 3, t + 6 ... (t + 5k in mode 4); a
//          9-bit field holds two pulses (4 + 4 position bits, 1 sign bit), a
//          5-bit field one pulse (4 + 1), mode 1's 10-bit field the tracks 0
//          and 1 with one pulse each
//  gain    joint (pitch gain, fixed-gain correction) index: 7 bits, or in
//          mode 4 nine bits carried as gainLo (low 4) and gainHi (high 5)
//
// Modes 2 and 3 share the three-subframe decoder; their parameter list begins
// with one word ahead of the fields (1 for mode 2, 0 for mode 3) that names
// the fixed-codebook layout.
#pragma once

#include <cstdint>

#include "codec/basicop.h"

namespace tmx::speech {

inline constexpr int kMaxFields = 64;
inline constexpr int kMaxPacketBytes = 37;

struct ModeLayout {
  int mode;
  int packetBytes;
  int framesPerPacket;
  int frameBits;
  int samplesPerFrame;
  int sampleRate;
  int leadingWord;  // value put ahead of the fields, -1 for none
  int fieldCount;   // fields per frame
  std::uint8_t widths[kMaxFields];
};

// The layout of mode 1 to 4; null for any other number.
const ModeLayout* LayoutForMode(int mode) noexcept;

// Value of the `width`-bit field that starts at bit `bit` of `bytes`.
std::uint32_t ReadField(const std::uint8_t* bytes, int bit, int width) noexcept;
// Stores the low `width` bits of `value` at bit `bit` of `bytes`.
void WriteField(std::uint8_t* bytes, int bit, int width, std::uint32_t value) noexcept;

// Reads frame `frame` of a packet into the parameter list the frame decoder
// takes (leading word first, where the mode has one); returns its length.
int ReadFrameParams(const ModeLayout& layout, const std::uint8_t* packet, int frame,
                    Word16* params) noexcept;
// Writes a parameter list (as ReadFrameParams delivers it) into frame
// `frame` of a packet.
void WriteFrameParams(const ModeLayout& layout, const Word16* params, int frame,
                      std::uint8_t* packet) noexcept;

}  // namespace tmx::speech
