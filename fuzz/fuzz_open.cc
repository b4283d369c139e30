// Fuzz target: arbitrary bytes opened and, when that works, played as a player
// would (exercise.h).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "exercise.h"
#include "tmxsdk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 20)) return 0;
  tmx::fuzz::OpenAndPlay({data, data + size});
  return 0;
}
