// Fuzz target: every metadata query, chapter title, link and picture read
// into a buffer of the capacity the first byte gives; the rest of the input
// is the programme.
#include <cstddef>
#include <cstdint>

#include "exercise.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > (1u << 20)) return 0;
  // Small capacities most of the time: they are where cutting text goes wrong.
  const std::uint32_t capacity = data[0] < 0xF0 ? data[0] % 80 : 4096u * (data[0] - 0xEF);
  tmx::fuzz::ByteStream in({data + 1, data + size});
  TMXFile* f = nullptr;
  if (TMXOpenFile(&f, in.stream(), nullptr) != TMX_OK) return 0;
  TMXEnableChapterText(f);
  TMXEnableChapterLinks(f);
  TMXEnableChapterImages(f);
  tmx::fuzz::QueryEverything(f, capacity);
  TMXCloseFile(f);
  return 0;
}
