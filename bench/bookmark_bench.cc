// Editing a bookmark list in place: 1,000 bookmarks with a note each are
// added to a fresh list, then deleted in random order. Each benchmark
// iteration is one operation, so the reported time is the time per
// operation; "written/op" counts the bytes the list's stream received.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "writer/writer.h"

namespace {

constexpr std::uint32_t kBookmarks = 1000;
constexpr std::uint32_t kSpacingMs = 1100;
// Frames of 1024 samples at 22050 Hz for a little more than 1,000 bookmarks.
constexpr std::uint32_t kFrames = kBookmarks * kSpacingMs / 46 + 1000;

// A stream over memory that counts what is written to it.
struct CountingMemory {
  TMXStream base;
  std::vector<std::uint8_t> data;
  std::uint32_t position = 0;
  std::uint64_t bytesWritten = 0;
};

CountingMemory* Self(TMXStream* s) { return reinterpret_cast<CountingMemory*>(s); }

const TMXStreamOps kMemoryOps = {
    [](TMXStream*) -> std::int32_t { return TMX_OK; },
    [](TMXStream*, std::int32_t) -> std::int32_t { return TMX_OK; },
    [](TMXStream*) -> std::int32_t { return TMX_OK; },
    [](TMXStream* s) -> std::uint32_t { return std::uint32_t(Self(s)->data.size()); },
    [](TMXStream* s) -> std::uint32_t { return Self(s)->position; },
    [](TMXStream* s, std::uint32_t p) -> std::int32_t {
      Self(s)->position = p;
      return TMX_OK;
    },
    [](TMXStream* s, void* buffer, std::int32_t n, std::int32_t* done) -> std::int32_t {
      CountingMemory* m = Self(s);
      const std::size_t left = m->position < m->data.size() ? m->data.size() - m->position : 0;
      const std::size_t k = std::min(left, std::size_t(n));
      if (k) std::memcpy(buffer, m->data.data() + m->position, k);
      m->position += std::uint32_t(k);
      if (done) *done = std::int32_t(k);
      return k ? TMX_OK : TMX_ERR_READ;
    },
    [](TMXStream* s, const void* buffer, std::int32_t n, std::int32_t* done) -> std::int32_t {
      CountingMemory* m = Self(s);
      if (n <= 0) return TMX_ERR_WRITE;
      if (m->position + std::size_t(n) > m->data.size())
        m->data.resize(m->position + std::size_t(n));
      std::memcpy(m->data.data() + m->position, buffer, std::size_t(n));
      m->position += std::uint32_t(n);
      m->bytesWritten += std::uint64_t(n);
      if (done) *done = n;
      return TMX_OK;
    },
};

const std::vector<std::uint8_t>& ProgrammeBytes() {
  static const std::vector<std::uint8_t> bytes = [] {
    tmx::writer::ProgrammeSpec plan;
    for (std::uint32_t i = 0; i < kFrames; ++i) plan.frames.push_back({std::uint8_t(i), 1, 2, 3});
    plan.audioSpecificConfig = {0x13, 0x90};
    plan.options.framesPerChunk = 100;
    plan.side.metadata = {tmx::writer::TextItem(tmx::writer::kItemProductId, "bench-programme")};
    CountingMemory out{{&kMemoryOps}, {}, 0, 0};
    if (tmx::writer::WriteProgramme(plan, &out.base) != TMX_OK) std::abort();
    return out.data;
  }();
  return bytes;
}

// An open programme with a fresh bookmark list in a counting stream.
class Fixture {
 public:
  explicit Fixture(std::uint32_t bufferSize) : programme_{{&kMemoryOps}, ProgrammeBytes(), 0, 0} {
    if (TMXOpenFile(&file_, &programme_.base, nullptr) != TMX_OK ||
        TMXInitBookmarkList(file_, &list_.base) != TMX_OK ||
        TMXOpenBookmarkList(file_, &list_.base) != TMX_OK ||
        TMXSetBookmarkBufferSize(file_, bufferSize) != TMX_OK)
      std::abort();
  }
  ~Fixture() { TMXCloseFile(file_); }
  Fixture(const Fixture&) = delete;
  Fixture& operator=(const Fixture&) = delete;

  TMXFile* file() const { return file_; }
  std::uint64_t written() const { return list_.bytesWritten; }

  // Adds bookmark `i` with its note.
  void Add(std::uint32_t i) {
    std::uint32_t index = 0;
    const std::string note = "Bookmark number " + std::to_string(i) + ", noted while listening.";
    if (TMXAddBookmark(file_, i * kSpacingMs, &index) != TMX_OK ||
        TMXAddBookmarkMetadata(file_, index, 0x40736465, note.data(), std::uint32_t(note.size())) !=
            TMX_OK)
      std::abort();
  }

 private:
  CountingMemory programme_;
  CountingMemory list_{{&kMemoryOps}, {}, 0, 0};
  TMXFile* file_ = nullptr;
};

void AddWithNote(benchmark::State& state) {
  Fixture fx(std::uint32_t(state.range(0)));
  std::uint32_t i = 0;
  const std::uint64_t before = fx.written();
  for (auto _ : state) fx.Add(i++);
  state.counters["written/op"] =
      benchmark::Counter(double(fx.written() - before), benchmark::Counter::kAvgIterations);
}

void DeleteInRandomOrder(benchmark::State& state) {
  Fixture fx(std::uint32_t(state.range(0)));
  for (std::uint32_t i = 0; i < kBookmarks; ++i) fx.Add(i);
  std::mt19937 rng(42);
  const std::uint64_t before = fx.written();
  std::uint32_t left = kBookmarks;
  for (auto _ : state) {
    if (TMXDeleteBookmark(fx.file(), std::uint32_t(rng() % left)) != TMX_OK) std::abort();
    --left;
  }
  state.counters["written/op"] =
      benchmark::Counter(double(fx.written() - before), benchmark::Counter::kAvgIterations);
}

BENCHMARK(AddWithNote)->Arg(64)->Arg(4096)->Iterations(kBookmarks)->Unit(benchmark::kMicrosecond);
BENCHMARK(DeleteInRandomOrder)
    ->Arg(64)
    ->Arg(4096)
    ->Iterations(kBookmarks)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
