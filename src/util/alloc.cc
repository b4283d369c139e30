#include "util/alloc.h"

#include <cstdlib>
#include <cstring>

#ifdef TMX_TEST_HOOKS
#include <atomic>
#endif

namespace tmx {
namespace {

#ifdef TMX_TEST_HOOKS
std::atomic<std::uint64_t> g_allocations{0};
std::atomic<std::uint64_t> g_failAt{0};
std::atomic<std::int64_t> g_live{0};
std::atomic<std::size_t> g_largest{0};

void NoteRequest(std::size_t size) noexcept {
  std::size_t seen = g_largest.load(std::memory_order_relaxed);
  while (size > seen && !g_largest.compare_exchange_weak(seen, size, std::memory_order_relaxed)) {
  }
}

// True when this allocation is the one a test asked to fail.
bool InjectedFailure() noexcept {
  std::uint64_t n = g_allocations.fetch_add(1, std::memory_order_relaxed) + 1;
  std::uint64_t failAt = g_failAt.load(std::memory_order_relaxed);
  return failAt != 0 && n == failAt;
}
void CountLive(std::int64_t change) noexcept {
  g_live.fetch_add(change, std::memory_order_relaxed);
}
#else
// Without the test hooks nothing is counted and no allocation fails on purpose.
constexpr bool InjectedFailure() noexcept { return false; }
constexpr void CountLive(std::int64_t) noexcept {}
constexpr void NoteRequest(std::size_t) noexcept {}
#endif

}  // namespace

void* Alloc(std::size_t size) noexcept {
  NoteRequest(size);
  if (InjectedFailure() || size == 0) return nullptr;
  void* p = std::calloc(1, size);
  if (p) CountLive(1);
  return p;
}

void* Realloc(void* block, std::size_t oldSize, std::size_t newSize) noexcept {
  if (!block) return Alloc(newSize);
  NoteRequest(newSize);
  if (InjectedFailure() || newSize == 0) return nullptr;
  void* p = std::realloc(block, newSize);
  if (p && newSize > oldSize) std::memset(static_cast<char*>(p) + oldSize, 0, newSize - oldSize);
  return p;
}

void Free(void* block) noexcept {
  if (!block) return;
  CountLive(-1);
  std::free(block);
}

#ifdef TMX_TEST_HOOKS
namespace testing {
void FailAllocation(std::uint64_t n) noexcept {
  g_failAt.store(n == 0 ? 0 : g_allocations.load(std::memory_order_relaxed) + n,
                 std::memory_order_relaxed);
}
std::int64_t LiveAllocations() noexcept { return g_live.load(std::memory_order_relaxed); }
std::uint64_t AllocationCount() noexcept { return g_allocations.load(std::memory_order_relaxed); }
std::size_t TakeLargestRequest() noexcept {
  return g_largest.exchange(0, std::memory_order_relaxed);
}
}  // namespace testing
#endif

}  // namespace tmx
