// Fuzz target: the AAC decoder. The first two bytes are the
// AudioSpecificConfig; the rest is frames, cut at the lengths their bytes give.
#include <cstddef>
#include <cstdint>

#include "exercise.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  tmx::fuzz::DecodeFrames(tmx::kAacCodec, data[0], data[1], data + 2, size - 2);
  return 0;
}
