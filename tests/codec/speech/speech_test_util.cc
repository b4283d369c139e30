#include "speech_test_util.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

#include "codec/speech/encoder.h"
#include "support/test_data.h"

namespace tmx::speech::test {

std::vector<std::int16_t> LoadClip(const std::string& name) {
  const auto bytes = ::tmx::test::ReadFileBytes(std::string(TMX_SPEECH_DATA_DIR) + "/" + name + ".s16");
  std::vector<std::int16_t> pcm(bytes.size() / 2);
  for (std::size_t i = 0; i < pcm.size(); ++i)
    pcm[i] = static_cast<std::int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  return pcm;
}

std::vector<std::uint8_t> Encode(int mode, const std::vector<std::int16_t>& pcm) {
  Encoder* e = CreateEncoder(mode);
  const auto n = static_cast<std::size_t>(PacketSamples(e));
  const auto bytes = static_cast<std::size_t>(PacketBytes(e));
  std::vector<std::uint8_t> out;
  for (std::size_t i = 0; i + n <= pcm.size(); i += n) {
    out.resize(out.size() + bytes);
    EncodePacket(e, pcm.data() + i, out.data() + out.size() - bytes);
  }
  DestroyEncoder(e);
  return out;
}

double SegmentalSnr(const std::vector<std::int16_t>& ref, const std::vector<std::int16_t>& out,
                    int sampleRate) {
  const std::size_t seg = static_cast<std::size_t>(sampleRate / 50);
  const std::size_t len = std::min(ref.size(), out.size());
  double sum = 0;
  int count = 0;
  for (std::size_t i = 0; i + seg <= len; i += seg) {
    double s = 0, e = 0;
    for (std::size_t k = i; k < i + seg; ++k) {
      const double d = double(ref[k]) - out[k];
      s += double(ref[k]) * ref[k];
      e += d * d;
    }
    // -50 dBFS: mean square under (32768 * 10^-2.5)^2.
    if (s < seg * 107374.0) continue;
    sum += std::clamp(10 * std::log10(s / std::max(e, 1.0)), -10.0, 35.0);
    ++count;
  }
  return count ? sum / count : -100;
}

}  // namespace tmx::speech::test
