// Fuzz target: opens arbitrary bytes as a programme and, when that works,
// walks every frame, describes the side samples, reads metadata, chapter
// titles, links and pictures, and seeks. Nothing may crash, hang, leak or
// read outside a buffer.
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
