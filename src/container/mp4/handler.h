// The format handler of MP4-based programmes (file types 1, 2 and 3).
#pragma once

#include "container/format_handler.h"

namespace tmx::mp4 {

extern const FormatHandler kMp4Handler;

}  // namespace tmx::mp4
