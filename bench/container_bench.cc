// Opening and reading long programmes: bytes read at open must not grow with
// the programme's length, and reading every frame should stay close to a
// plain sequential read of the file, also through the built-in file stream
// of a programme opened by path.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "api/file.h"
#include "io/file_stream.h"
#include "writer/writer.h"

namespace {

constexpr std::uint32_t kFramesPerHour = 22050 * 3600 / 1024;  // 22.05 kHz, 1024-sample frames

// A read-only stream over a file that counts the bytes it delivers.
struct CountingFile {
  TMXStream base;
  std::FILE* file;
  std::uint64_t bytesRead;
};

CountingFile* Self(TMXStream* s) { return reinterpret_cast<CountingFile*>(s); }

const TMXStreamOps kCountingOps = {
    nullptr,
    [](TMXStream*, std::int32_t) -> std::int32_t { return TMX_OK; },
    [](TMXStream*) -> std::int32_t { return TMX_OK; },
    [](TMXStream* s) -> std::uint32_t {
      std::FILE* f = Self(s)->file;
      const long here = std::ftell(f);
      std::fseek(f, 0, SEEK_END);
      const long size = std::ftell(f);
      std::fseek(f, here, SEEK_SET);
      return std::uint32_t(size);
    },
    [](TMXStream* s) -> std::uint32_t { return std::uint32_t(std::ftell(Self(s)->file)); },
    [](TMXStream* s, std::uint32_t p) -> std::int32_t {
      return std::fseek(Self(s)->file, long(p), SEEK_SET) == 0 ? TMX_OK : TMX_ERR_SEEK;
    },
    [](TMXStream* s, void* buf, std::int32_t n, std::int32_t* done) -> std::int32_t {
      const std::size_t k = std::fread(buf, 1, std::size_t(n), Self(s)->file);
      Self(s)->bytesRead += k;
      if (done) *done = std::int32_t(k);
      return k ? TMX_OK : TMX_ERR_READ;
    },
    nullptr,
};

// Writes (once) a programme of `hours` of synthetic frames, with chapters
// every ten minutes, and returns its path.
std::string Programme(std::uint32_t hours) {
  const auto path =
      std::filesystem::temp_directory_path() / ("tmxsdk-bench-" + std::to_string(hours) + "h.tmx");
  if (std::filesystem::exists(path)) return path.string();
  TMXStream* out = tmx::MakeFileStream(path.wstring().c_str(), true);
  if (!out || out->ops->Create(out) != TMX_OK) std::abort();
  tmx::writer::AudioConfig config{};
  const std::uint8_t asc[2] = {0x13, 0x88};  // LC, 22050 Hz, mono
  tmx::writer::ParseAudioSpecificConfig(asc, &config);
  tmx::writer::SideTracks side;
  for (std::uint32_t m = 0; m < hours * 60; m += 10)
    side.chapters.push_back({m * 60000, "Chapter " + std::to_string(m / 10 + 1)});
  tmx::writer::ProgrammeWriter writer;
  if (writer.Begin(out, config, side, {}) != TMX_OK) std::abort();
  std::mt19937 rng(7);
  std::vector<std::uint8_t> frame(180);
  for (std::uint32_t i = 0; i < hours * kFramesPerHour; ++i) {
    frame.resize(120 + rng() % 120);
    for (auto& b : frame) b = std::uint8_t(rng());
    if (writer.AddFrame(frame) != TMX_OK) std::abort();
  }
  if (writer.Finish() != TMX_OK) std::abort();
  out->ops->Close(out);
  return path.string();
}

struct Open {
  CountingFile stream{{&kCountingOps}, nullptr, 0};
  TMXFile* file = nullptr;
  explicit Open(const std::string& path) {
    stream.file = std::fopen(path.c_str(), "rb");
    if (!stream.file || TMXOpenFile(&file, &stream.base, nullptr) != TMX_OK) std::abort();
  }
  ~Open() {
    TMXCloseFile(file);
    std::fclose(stream.file);
  }
};

void BM_Open(benchmark::State& state) {
  const std::string path = Programme(std::uint32_t(state.range(0)));
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    Open o(path);
    bytes = o.stream.bytesRead;
  }
  state.counters["bytes_read_at_open"] = double(bytes);
}
BENCHMARK(BM_Open)->Arg(1)->Arg(10)->Unit(benchmark::kMicrosecond);

void BM_ReadEveryFrame(benchmark::State& state) {
  const std::string path = Programme(10);
  const bool adts = state.range(0) != 0;
  std::vector<std::uint8_t> buffer(8192);
  std::uint64_t frames = 0, bytes = 0;
  for (auto _ : state) {
    Open o(path);
    if (adts) TMXEnableADTSHeaders(o.file);
    std::uint32_t length = 0;
    while (TMXGetEncodedAudio(o.file, buffer.data(), std::int32_t(buffer.size()), &length) ==
           TMX_OK) {
      ++frames;
      bytes += length;
    }
  }
  state.counters["frames_per_s"] = benchmark::Counter(double(frames), benchmark::Counter::kIsRate);
  state.SetBytesProcessed(std::int64_t(bytes));
}
BENCHMARK(BM_ReadEveryFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);

// The yardstick: the same file read sequentially in 64 KiB blocks.
void BM_PlainRead(benchmark::State& state) {
  const std::string path = Programme(10);
  std::vector<std::uint8_t> buffer(1 << 16);
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    std::size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0) bytes += n;
    std::fclose(f);
  }
  state.SetBytesProcessed(std::int64_t(bytes));
}
BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond)->Iterations(2);

// Read system calls (read, pread and the like) the process has made so far,
// from the kernel's accounting; -1 where it is not available.
double ReadCalls() {
  std::ifstream io("/proc/self/io");
  std::string key;
  double value = 0;
  while (io >> key >> value)
    if (key == "syscr:") return value;
  return -1;
}

std::uint64_t PlainRead(const std::string& path, std::vector<std::uint8_t>& buffer) {
  std::uint64_t bytes = 0;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) std::abort();
  std::size_t n;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0) bytes += n;
  std::fclose(f);
  return bytes;
}

// Every frame of the 10-hour programme opened by path, so through the
// library's own file stream, beside a plain read of the same file in 64 KiB
// blocks timed in the same iteration. Reports the time ratio of the two and
// the read system calls per frame (open and close included).
void BM_ReadEveryFrameByPath(benchmark::State& state) {
  const std::string path = Programme(10);
  const std::filesystem::path position = std::filesystem::path(path).replace_extension(".pos");
  const std::wstring wide = std::filesystem::path(path).wstring();
  std::vector<std::uint8_t> buffer(1 << 16);
  double frames = 0, calls = 0, plainSeconds = 0, pathSeconds = 0;
  for (auto _ : state) {
    // Every pass starts at the beginning, not where the last one saved.
    std::filesystem::remove(position);
    using Clock = std::chrono::steady_clock;
    auto t0 = Clock::now();
    benchmark::DoNotOptimize(PlainRead(path, buffer));
    auto t1 = Clock::now();
    const double callsBefore = ReadCalls();
    TMXFile* file = nullptr;
    if (TMXOpenFileWinW(&file, wide.c_str()) != TMX_OK) std::abort();
    std::uint32_t length = 0;
    while (TMXGetEncodedAudio(file, buffer.data(), std::int32_t(buffer.size()), &length) == TMX_OK)
      ++frames;
    TMXCloseFile(file);
    auto t2 = Clock::now();
    calls += ReadCalls() - callsBefore;
    plainSeconds += std::chrono::duration<double>(t1 - t0).count();
    pathSeconds += std::chrono::duration<double>(t2 - t1).count();
  }
  std::filesystem::remove(position);
  state.counters["frames"] = frames / double(state.iterations());
  state.counters["ratio_to_plain_read"] = pathSeconds / plainSeconds;
  state.counters["read_calls_per_frame"] = calls / frames;
  state.counters["us_per_frame"] = pathSeconds * 1e6 / frames;
}
BENCHMARK(BM_ReadEveryFrameByPath)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_SeekToTheMiddle(benchmark::State& state) {
  const std::string path = Programme(10);
  Open o(path);
  std::uint32_t duration = 0;
  TMXGetDuration(o.file, &duration);
  for (auto _ : state) {
    benchmark::DoNotOptimize(TMXSeek(o.file, duration / 2));
    benchmark::DoNotOptimize(TMXSeek(o.file, 0));
  }
}
BENCHMARK(BM_SeekToTheMiddle)->Unit(benchmark::kMicrosecond);

void BM_DetectFileType(benchmark::State& state) {
  const std::string path = Programme(1);
  CountingFile s{{&kCountingOps}, std::fopen(path.c_str(), "rb"), 0};
  for (auto _ : state) {
    TMXFile file{};
    benchmark::DoNotOptimize(tmx::DetectFileType(&file, &s.base));
  }
  std::fclose(s.file);
}
BENCHMARK(BM_DetectFileType);

}  // namespace
