// Chapter lists as text: one chapter a line, "START TITLE", where START is
// seconds ("95", "95.5") or [h:]mm:ss with optional fractions ("1:02:03.250").
// Blank lines and lines starting with '#' are ignored.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "writer/writer.h"

namespace tmx::writer {

// Parses a start time into milliseconds; false when it is not one.
bool ParseChapterTime(std::string_view text, std::uint32_t* ms);

// Parses a whole list. On failure returns false and describes the first bad
// line in `error` ("line 3: ...").
bool ParseChapterList(std::string_view text, std::vector<Chapter>* chapters, std::string* error);

}  // namespace tmx::writer
