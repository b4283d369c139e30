// Fuzz target: the speech decoder. The first byte picks mode 3 or 4; the
// rest is packets, cut at the lengths their bytes give.
#include <cstddef>
#include <cstdint>

#include "exercise.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const tmx::Codec& codec = data[0] & 1 ? tmx::kSpeechMode4Codec : tmx::kSpeechMode3Codec;
  tmx::fuzz::DecodeFrames(codec, 0, 0, data + 1, size - 1);
  return 0;
}
