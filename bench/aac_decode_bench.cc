// AAC-LC decoding speed as a real-time factor (seconds of audio decoded per
// second), on the 44.1 kHz 128 kbit/s stereo test clip, and the instance's
// heap size; with the vector code where the processor has it, and with the
// portable code only.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "codec/aac/cpu.h"
#include "codec/aac/decoder.h"
#include "util/alloc.h"

namespace {

struct Frame {
  std::vector<std::uint8_t> raw;
};

// Raw data blocks of an ADTS file.
std::vector<Frame> LoadClip(const std::string& path, std::uint32_t* rateIndex) {
  std::vector<std::uint8_t> s;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    std::uint8_t buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.insert(s.end(), buf, buf + n);
    std::fclose(f);
  }
  std::vector<Frame> frames;
  std::size_t pos = 0;
  while (pos + 7 <= s.size() && s[pos] == 0xFF) {
    const std::size_t length = ((s[pos + 3] & 3u) << 11) | (s[pos + 4] << 3) | (s[pos + 5] >> 5);
    const std::size_t header = (s[pos + 1] & 1) ? 7 : 9;
    if (length < header || pos + length > s.size()) break;
    *rateIndex = (s[pos + 2] >> 2) & 15;
    frames.push_back(
        {std::vector<std::uint8_t>(s.begin() + pos + header, s.begin() + pos + length)});
    pos += length;
  }
  return frames;
}

void BM_AacDecodeStereo44k128k(benchmark::State& state) {
  std::uint32_t rateIndex = 0;
  const auto frames =
      LoadClip(std::string(TMX_CODEC_DATA_DIR) + "/stereo44k_128k_tr.aac", &rateIndex);
  if (frames.empty()) {
    state.SkipWithError("test clip missing");
    return;
  }
  tmx::aac::Decoder* d = nullptr;
  if (tmx::aac::CreateDecoder(&d, rateIndex, 2) != 0) {
    state.SkipWithError("decoder creation failed");
    return;
  }
  std::vector<std::int16_t> pcm(2048);
  std::size_t decoded = 0;
  tmx::aac::UsePortableCode(state.range(0) != 0);
  const std::uint64_t allocationsBefore = tmx::testing::AllocationCount();
  for (auto _ : state) {
    for (const Frame& f : frames) {
      tmx::aac::DecodeFrame(d, f.raw.data(), static_cast<std::uint32_t>(f.raw.size()), pcm.data(),
                            4096, nullptr);
      benchmark::DoNotOptimize(pcm.data());
    }
    decoded += frames.size();
  }
  const std::uint64_t allocations = tmx::testing::AllocationCount() - allocationsBefore;
  tmx::aac::DestroyDecoder(&d);
  tmx::aac::UsePortableCode(false);
  state.counters["allocations_while_decoding"] = double(allocations);
  // Audio seconds per wall-clock second.
  state.counters["realtime_factor"] = benchmark::Counter(
      static_cast<double>(decoded) * 1024.0 / 44100.0, benchmark::Counter::kIsRate);
  state.counters["instance_bytes"] = static_cast<double>(tmx::aac::InstanceSize());
}
// Argument 0: vector code where available; 1: portable code only.
BENCHMARK(BM_AacDecodeStereo44k128k)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
