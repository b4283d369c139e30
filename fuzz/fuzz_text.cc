// Fuzz target: the text converters and Base64. The first byte picks kind and
// format, the second the capacity; the rest is the text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "metadata/text_convert.h"
#include "util/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  static constexpr std::uint32_t kKinds[] = {0, 1, 2, 3, 16};
  static constexpr std::uint32_t kFormats[] = {0, 1, 2, 3, 7};
  const std::uint32_t kind = kKinds[data[0] % 5];
  const std::uint32_t format = kFormats[(data[0] / 5) % 5];
  const std::uint32_t capacity = data[1];
  // A heap block of exactly the capacity; the source ends in two zero bytes, as
  // every caller in the library gives it.
  std::vector<std::uint8_t> source(data + 2, data + size);
  source.push_back(0);
  source.push_back(0);
  std::vector<std::uint8_t> out(capacity);
  tmx::ConvertText(source, kind, format, capacity ? out.data() : nullptr, capacity);
  if (capacity > 0 && format != 3) {
    bool terminated = false;
    for (std::uint8_t b : out) terminated = terminated || b == 0;
    if (!terminated) std::abort();
  }

  const auto length = std::int32_t(size);
  std::vector<char> encoded(4 * ((size + 2) / 3));
  if (tmx::Base64Encode(data, length, encoded.data()) != std::int32_t(encoded.size())) std::abort();
  std::vector<unsigned char> decoded(3 * (encoded.size() / 4));
  const std::int32_t n =
      tmx::Base64Decode(encoded.data(), std::int32_t(encoded.size()), decoded.data());
  if (n != length || !std::equal(data, data + size, decoded.begin())) std::abort();
  std::vector<unsigned char> raw(3 * ((size + 3) / 4));
  tmx::Base64Decode(reinterpret_cast<const char*>(data), length, raw.data());
  return 0;
}
