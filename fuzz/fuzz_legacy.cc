// Fuzz target: the older container. The target writes its size word and
// magic, so that every mutation reaches the table of contents and records.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "exercise.h"
#include "tmxsdk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 20)) return 0;
  // The size word counts the eight bytes the target writes.
  const auto total = std::uint32_t(size + 8);
  std::vector<std::uint8_t> bytes = {0, 0, 0, 0, 0x57, 0x90, 0x75, 0x36};
  for (int i = 0; i < 4; ++i) bytes[std::size_t(i)] = std::uint8_t(total >> (24 - 8 * i));
  bytes.insert(bytes.end(), data, data + size);
  tmx::fuzz::OpenAndPlay(std::move(bytes));
  return 0;
}
