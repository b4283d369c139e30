// Fuzz target: opens arbitrary bytes as a programme and, when that works,
// walks every frame, describes the side samples, reads metadata, chapter
// titles, links and pictures, and seeks. Nothing may crash, hang, leak or
// read outside a buffer.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "exercise.h"
#include "tmxsdk.h"

namespace {

struct Input {
  TMXStream base;
  const std::uint8_t* data;
  std::uint32_t size;
  std::uint32_t pos;
};

Input* Self(TMXStream* s) { return reinterpret_cast<Input*>(s); }

const TMXStreamOps kOps = {
    nullptr,
    [](TMXStream*, std::int32_t) -> std::int32_t { return TMX_OK; },
    [](TMXStream*) -> std::int32_t { return TMX_OK; },
    [](TMXStream* s) -> std::uint32_t { return Self(s)->size; },
    [](TMXStream* s) -> std::uint32_t { return Self(s)->pos; },
    [](TMXStream* s, std::uint32_t p) -> std::int32_t {
      Self(s)->pos = p;
      return TMX_OK;
    },
    [](TMXStream* s, void* buf, std::int32_t n, std::int32_t* done) -> std::int32_t {
      Input* in = Self(s);
      const std::uint32_t left = in->pos < in->size ? in->size - in->pos : 0;
      const std::uint32_t k = n < 0 ? 0 : (std::uint32_t(n) < left ? std::uint32_t(n) : left);
      if (k) std::memcpy(buf, in->data + in->pos, k);
      in->pos += k;
      if (done) *done = std::int32_t(k);
      return k ? TMX_OK : TMX_ERR_READ;
    },
    nullptr,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 20)) return 0;
  Input in{{&kOps}, data, std::uint32_t(size), 0};
  TMXFile* f = nullptr;
  if (TMXOpenFile(&f, &in.base, nullptr) == TMX_OK) {
    tmx::fuzz::ExerciseProgramme(f);
    TMXCloseFile(f);
  }
  return 0;
}
