// Base64 for callers.
// The exported functions in src/api forward to these; each checks its
// arguments in the order the export documents.
#pragma once

#include <cstdint>

#include "tmxsdk.h"

namespace tmx {

std::int32_t Base64Encode(const unsigned char* input, std::int32_t length, char* output) noexcept;
std::int32_t Base64Decode(const char* input, std::int32_t length, unsigned char* output) noexcept;

}  // namespace tmx
