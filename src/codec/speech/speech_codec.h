// The codec tables of the speech codec and its front: a decoder instance per
// programme (state, mode and carry-over buffer), the packet cutting, and the
// frame dispatch of the four modes.
#pragma once

#include <cstdint>

#include "codec/codec.h"

namespace tmx {

// Mode 3: 19-byte packets of one 152-bit frame, 144 samples at 8000 Hz.
extern const Codec kSpeechMode3Codec;
// Mode 4: 20-byte packets of one 160-bit frame, 160 samples at 16000 Hz.
extern const Codec kSpeechMode4Codec;

namespace speech {

// Puts a decoder instance (as the tables' CreateDecoder made it) into `mode`
// (any number; only 1 to 4 decode) with a fresh state and an empty carry
// buffer. The codec tables only ever choose 3 or 4; the tests reach the
// dormant modes 1 and 2 through this.
void SelectMode(void* instance, std::int32_t mode) noexcept;
// The instance's mode and carry count.
std::int32_t CurrentMode(const void* instance) noexcept;
std::int32_t CarriedBytes(const void* instance) noexcept;

}  // namespace speech
}  // namespace tmx
