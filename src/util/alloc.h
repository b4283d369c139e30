// The library's single source of memory: zero-filled blocks on the C heap.
// Test builds (TMX_TEST_HOOKS) can make the k-th allocation fail and count
// what is still live.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tmx {

// Returns a zero-filled block of `size` bytes, or null (also for size 0).
void* Alloc(std::size_t size) noexcept;
// Grows or shrinks a block from Alloc; bytes past the old size are zero.
// On failure returns null and leaves the block untouched.
void* Realloc(void* block, std::size_t oldSize, std::size_t newSize) noexcept;
// Frees a block from Alloc (or from calloc/malloc); null is ignored.
void Free(void* block) noexcept;

// Zero-filled array of n trivially constructible T, null on overflow or failure.
template <class T>
T* AllocArray(std::size_t n) noexcept {
  static_assert(std::is_trivially_default_constructible_v<T>);
  if (n == 0 || n > SIZE_MAX / sizeof(T)) return nullptr;
  return static_cast<T*>(Alloc(n * sizeof(T)));
}

template <class T>
T* AllocObject() noexcept {
  return AllocArray<T>(1);
}

// Owns a block from Alloc and frees it on scope exit.
template <class T>
class Owned {
 public:
  Owned() = default;
  explicit Owned(T* p) noexcept : p_(p) {}
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { Free(p_); }
  T* get() const noexcept { return p_; }
  // Frees the block held and takes `p` instead.
  void reset(T* p = nullptr) noexcept {
    Free(p_);
    p_ = p;
  }
  T* release() noexcept {
    T* p = p_;
    p_ = nullptr;
    return p;
  }
  explicit operator bool() const noexcept { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
};

#ifdef TMX_TEST_HOOKS
namespace testing {
// Makes the n-th allocation from now fail (1 = the next one); 0 turns it off.
void FailAllocation(std::uint64_t n) noexcept;
// Blocks allocated and not yet freed since the process started.
std::int64_t LiveAllocations() noexcept;
// Allocations made since the process started (successful or not).
std::uint64_t AllocationCount() noexcept;
// The largest block asked for since the last call (granted or not).
std::size_t TakeLargestRequest() noexcept;
}  // namespace testing
#endif

}  // namespace tmx
