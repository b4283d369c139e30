// Helpers of the AAC tests: test clips, ADTS framing and PCM comparison.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "support/test_data.h"

namespace tmx::aac::testing {

inline std::string DataPath(const std::string& name) {
  return std::string(TMX_CODEC_DATA_DIR) + "/" + name;
}

inline std::vector<std::uint8_t> ReadFile(const std::string& path) {
  return test::ReadFileBytes(path);
}

inline std::vector<std::int16_t> ReadPcm(const std::string& path) {
  const std::vector<std::uint8_t> bytes = ReadFile(path);
  std::vector<std::int16_t> out(bytes.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) {
    out[i] = static_cast<std::int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  return out;
}

// One ADTS frame: its header fields and the raw data block inside.
struct AdtsFrame {
  std::uint32_t rateIndex;
  std::uint32_t channelConfig;
  std::uint32_t profile;  // object type - 1
  std::vector<std::uint8_t> raw;
};

// Splits an ADTS stream; stops at the first damaged header.
inline std::vector<AdtsFrame> SplitAdts(const std::vector<std::uint8_t>& s) {
  std::vector<AdtsFrame> frames;
  for (const std::vector<std::uint8_t>& h : test::SplitAdts(s)) {
    if (h[0] != 0xFF || (h[1] & 0xF0) != 0xF0) break;
    const std::size_t header = (h[1] & 1) ? 7 : 9;  // 9 with a CRC
    frames.push_back({(h[2] >> 2) & 15u, ((h[2] & 1u) << 2) | (h[3] >> 6), std::uint32_t(h[2] >> 6),
                      std::vector<std::uint8_t>(h.begin() + std::ptrdiff_t(header), h.end())});
  }
  return frames;
}

// Builds frames bit by bit, most significant bit first.
class BitWriter {
 public:
  BitWriter& Put(std::uint32_t value, int bits) {
    for (int i = bits - 1; i >= 0; --i) {
      if (count_ % 8 == 0) bytes_.push_back(0);
      if ((value >> i) & 1) bytes_.back() |= static_cast<std::uint8_t>(0x80 >> (count_ % 8));
      ++count_;
    }
    return *this;
  }
  BitWriter& Align() {
    count_ = (count_ + 7) / 8 * 8;
    return *this;
  }
  std::size_t bits() const { return count_; }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t count_ = 0;
};

struct Difference {
  double rms = 0;
  int maxAbs = 0;
  std::size_t count = 0;
};

inline Difference Compare(const std::vector<std::int16_t>& a, const std::vector<std::int16_t>& b) {
  Difference d;
  d.count = a.size() < b.size() ? a.size() : b.size();
  double sum = 0;
  for (std::size_t i = 0; i < d.count; ++i) {
    const int e = a[i] - b[i];
    sum += double(e) * e;
    if (std::abs(e) > d.maxAbs) d.maxAbs = std::abs(e);
  }
  d.rms = d.count ? std::sqrt(sum / double(d.count)) : 0;
  return d;
}

}  // namespace tmx::aac::testing
