// The AAC decoder's own result codes. They stay inside the codec: the codec
// table reports the library's codes.
#pragma once

#include <cstdint>

namespace tmx::aac {

enum Status : std::int32_t {
  kOk = 0,
  kBadArgument = 1,       // null pointer, bad configuration
  kFrameTooLarge = 2,     // frame larger than the 1536-byte bit buffer
  kTruncated = 3,         // the syntax runs past the end of the frame
  kBadSyntax = 4,         // a value the syntax does not allow
  kCouplingChannel = 5,   // coupling channel element
  kLfeChannel = 6,        // low-frequency element
  kProgramConfig = 7,     // program configuration element
  kPrediction = 8,        // Main-profile prediction (predictor_data_present)
  kGainControl = 9,       // gain control data
  kTooManyChannels = 10,  // more than two channels in a frame
  kNoChannels = 11,       // a frame without any audio element
  kOutputTooSmall = 12,   // output buffer under 2048 bytes per channel
};

}  // namespace tmx::aac
