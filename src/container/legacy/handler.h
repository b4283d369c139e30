// The format handler of the older single-file container (file types 4, 5
// and 6): a header with a table of typed records, a metadata dictionary, a
// chapter list and constant-size audio frames in a chain of segments.
#pragma once

#include "container/format_handler.h"

namespace tmx::legacy {

extern const FormatHandler kHandler;

}  // namespace tmx::legacy
