// A block of trivially constructible values from tmx::Alloc that can be
// (re)allocated in place and is freed with its owner.
#pragma once

#include <cstddef>

#include "util/alloc.h"

namespace tmx::writer {

template <class T>
class Block {
 public:
  Block() = default;
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() { Free(p_); }

  // Replaces the block by a zeroed one of n values; false when out of memory
  // (the block is then empty).
  bool Allocate(std::size_t n) noexcept {
    Free(p_);
    p_ = AllocArray<T>(n);
    size_ = p_ ? n : 0;
    return p_ != nullptr;
  }
  // Grows the block to n values, keeping its contents; false when out of
  // memory (the block is then unchanged).
  bool Grow(std::size_t n) noexcept {
    if (n <= size_) return true;
    if (n > SIZE_MAX / sizeof(T)) return false;
    void* grown = p_ ? Realloc(p_, size_ * sizeof(T), n * sizeof(T)) : AllocArray<T>(n);
    if (!grown) return false;
    p_ = static_cast<T*>(grown);
    size_ = n;
    return true;
  }
  T* get() const noexcept { return p_; }
  std::size_t size() const noexcept { return size_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace tmx::writer
