// Helpers of the AAC tests: test clips, ADTS framing and PCM comparison.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tmx::aac::testing {

inline std::string DataPath(const std::string& name) {
  return std::string(TMX_CODEC_DATA_DIR) + "/" + name;
}

inline std::vector<std::uint8_t> ReadFile(const std::string& path) {
  std::vector<std::uint8_t> out;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    std::uint8_t buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.insert(out.end(), buf, buf + n);
    std::fclose(f);
  }
  return out;
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
  std::size_t pos = 0;
  while (pos + 7 <= s.size()) {
    const std::uint8_t* h = s.data() + pos;
    if (h[0] != 0xFF || (h[1] & 0xF0) != 0xF0) break;
    const bool crc = (h[1] & 1) == 0;
    const std::uint32_t length = ((h[3] & 3u) << 11) | (h[4] << 3) | (h[5] >> 5);
    const std::size_t header = crc ? 9 : 7;
    if (length < header || pos + length > s.size()) break;
    AdtsFrame f;
    f.profile = h[2] >> 6;
    f.rateIndex = (h[2] >> 2) & 15;
    f.channelConfig = ((h[2] & 1u) << 2) | (h[3] >> 6);
    f.raw.assign(h + header, h + length);
    frames.push_back(std::move(f));
    pos += length;
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
