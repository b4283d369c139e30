// Cost of detecting a file type and opening from memory.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "api/file.h"

namespace {

// A minimal in-memory stream that never frees itself.
struct BenchStream {
  TMXStream base;
  const std::vector<std::uint8_t>* data;
  std::uint32_t pos;
};

BenchStream* Self(TMXStream* s) { return reinterpret_cast<BenchStream*>(s); }

const TMXStreamOps kOps = {
    nullptr,
    [](TMXStream*, std::int32_t) -> std::int32_t { return 0; },
    [](TMXStream*) -> std::int32_t { return 0; },
    [](TMXStream* s) -> std::uint32_t { return std::uint32_t(Self(s)->data->size()); },
    [](TMXStream* s) -> std::uint32_t { return Self(s)->pos; },
    [](TMXStream* s, std::uint32_t p) -> std::int32_t {
      Self(s)->pos = p;
      return 0;
    },
    [](TMXStream* s, void* buf, std::int32_t n, std::int32_t* done) -> std::int32_t {
      BenchStream* b = Self(s);
      std::size_t left = b->pos < b->data->size() ? b->data->size() - b->pos : 0;
      std::size_t k = std::min<std::size_t>(left, std::size_t(n));
      std::memcpy(buf, b->data->data() + b->pos, k);
      b->pos += std::uint32_t(k);
      if (done) *done = std::int32_t(k);
      return k ? 0 : TMX_ERR_READ;
    },
    nullptr,
};

void BM_DetectFileType(benchmark::State& state) {
  std::vector<std::uint8_t> bytes = {0,   0,   0, 20, 'f', 't', 'y', 'p', 't', 'm',
                                     'x', ' ', 0, 0,  0,   0,   'i', 's', 'o', 'm'};
  BenchStream s{{&kOps}, &bytes, 0};
  for (auto _ : state) {
    TMXFile file{};
    benchmark::DoNotOptimize(tmx::DetectFileType(&file, &s.base));
  }
}
BENCHMARK(BM_DetectFileType);

}  // namespace
