// Base64 for callers.
#include "util/base64.h"

extern "C" {

TMX_API std::int32_t TW_Base64Encode(const unsigned char* input, std::int32_t length,
                                     char* output) noexcept {
  return tmx::Base64Encode(input, length, output);
}

TMX_API std::int32_t TW_Base64Decode(const char* input, std::int32_t length,
                                     unsigned char* output) noexcept {
  return tmx::Base64Decode(input, length, output);
}

}  // extern "C"
