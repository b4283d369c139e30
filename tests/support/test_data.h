// Files as bytes, the committed test material, and the ADTS frames in it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tmx::test {

inline std::vector<std::uint8_t> ReadFileBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// FNV-1a over samples as little-endian bytes: the same samples give the same
// digest on every machine, whatever its byte order.
inline std::uint64_t PcmDigest(const std::vector<std::int16_t>& pcm) {
  std::uint64_t h = 14695981039346656037ull;
  for (const std::int16_t s : pcm)
    for (const unsigned byte : {unsigned(std::uint16_t(s) & 0xFF), unsigned(std::uint16_t(s) >> 8)})
      h = (h ^ byte) * 1099511628211ull;
  return h;
}

inline std::string ReadFileText(const std::filesystem::path& path) {
  const std::vector<std::uint8_t> b = ReadFileBytes(path);
  return std::string(b.begin(), b.end());
}

#ifdef TMX_TEST_DATA_DIR
// A file of tests/data.
inline std::vector<std::uint8_t> ReadTestData(const std::string& name) {
  return ReadFileBytes(std::filesystem::path(TMX_TEST_DATA_DIR) / name);
}
#endif

// The ADTS frames of a stream, headers included, up to the first that is
// cut or has an impossible length.
inline std::vector<std::vector<std::uint8_t>> SplitAdts(const std::vector<std::uint8_t>& adts) {
  std::vector<std::vector<std::uint8_t>> frames;
  for (std::size_t pos = 0; pos + 7 <= adts.size();) {
    const std::size_t length =
        ((adts[pos + 3] & 3u) << 11) | (std::size_t(adts[pos + 4]) << 3) | (adts[pos + 5] >> 5);
    if (length < 7 || pos + length > adts.size()) break;
    frames.emplace_back(adts.begin() + std::ptrdiff_t(pos),
                        adts.begin() + std::ptrdiff_t(pos + length));
    pos += length;
  }
  return frames;
}

}  // namespace tmx::test
