// Fuzz target: the decoders on raw input. The first byte picks the codec
// (AAC, speech mode 3 or 4); for AAC the next two bytes are the
// AudioSpecificConfig. The rest is cut into frames at the lengths the
// following bytes give. Decoding must never read or write outside its
// buffers, whatever the frames hold.
#include <cstddef>
#include <cstdint>

#include "exercise.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tmx::fuzz::DecodeRawInput(data, size);
  return 0;
}
