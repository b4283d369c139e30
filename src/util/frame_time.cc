#include "util/frame_time.h"

namespace tmx {
namespace {

// floor(value * multiplier / divisor) with 32-bit products: the value is
// split in 16-bit halves and the remainders carried. Exact as long as the
// products and the carried remainder fit in 32 bits, as they do for the
// rates and frame lengths in use; beyond that it wraps like the rest of the
// 32-bit time arithmetic.
std::uint32_t MulDiv(std::uint32_t value, std::uint32_t multiplier,
                     std::uint32_t divisor) noexcept {
  if (divisor == 0) return 0;
  // With both factors below 2^16 none of the partial results below can
  // overflow, so one 64-bit division gives the same value (modulo 2^32).
  if (multiplier < 0x10000 && divisor < 0x10000)
    return std::uint32_t(std::uint64_t(value) * multiplier / divisor);
  const std::uint32_t hi = value >> 16;
  const std::uint32_t lo = value & 0xFFFF;
  const std::uint32_t hiProduct = hi * multiplier;
  const std::uint32_t loProduct = lo * multiplier;
  const std::uint32_t q1 = hiProduct / divisor, r1 = hiProduct % divisor;
  const std::uint32_t q2 = loProduct / divisor, r2 = loProduct % divisor;
  const std::uint32_t q3 = ((r1 << 16) + r2) / divisor;
  return (q1 << 16) + q2 + q3;
}

}  // namespace

std::uint32_t FramesToMs(std::uint32_t frames, std::uint32_t sampleRate,
                         std::uint32_t samplesPerFrame) noexcept {
  return MulDiv(frames, samplesPerFrame * 40, sampleRate / 25);
}

std::uint32_t TimeToFrame(std::uint32_t ms, std::uint32_t sampleRate,
                          std::uint32_t samplesPerFrame) noexcept {
  return MulDiv(ms, sampleRate / 25, samplesPerFrame * 40);
}

}  // namespace tmx
