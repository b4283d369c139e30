// Run-time choice between the decoder's portable code and its AVX2 code
// (x86-64 with GCC or clang). Both give the same results; the AVX2 code runs
// where the processor has AVX2.
#pragma once

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define TMX_AAC_AVX2 1
#include <immintrin.h>
// Marks a function compiled for AVX2; call it only when UseAvx2() is true.
#define TMX_AVX2 __attribute__((target("avx2")))
#endif

namespace tmx::aac {

#ifdef TMX_TEST_HOOKS
inline bool gPortableOnly = false;

// Makes the decoder use its portable code only (true) or, where the processor
// has AVX2, its vector code (false, the default). For tests.
inline void UsePortableCode(bool portable) noexcept { gPortableOnly = portable; }
inline bool PortableOnly() noexcept { return gPortableOnly; }
#else
// Without the test hooks the processor alone decides.
constexpr bool PortableOnly() noexcept { return false; }
#endif

// True when the AVX2 code is to run.
inline bool UseAvx2() noexcept {
#ifdef TMX_AAC_AVX2
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return has && !PortableOnly();
#else
  return false;
#endif
}

}  // namespace tmx::aac
