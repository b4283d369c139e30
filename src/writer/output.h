// Buffered big-endian output for the writer, and the spool that holds the
// tables which grow with the programme's length.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

#include "tmxsdk.h"
#include "util/status.h"
#include "writer/block.h"

namespace tmx::writer {

// Writes through a TMXStream from position 0 on, in blocks. The first failure
// is kept and every later write is dropped, so that a run of field writes
// can be checked once with status().
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Takes a stream opened for writing; -33 when it cannot write or seek,
  // -10 when the buffer cannot be allocated, or the seek's code.
  std::int32_t Start(TMXStream* stream) noexcept;
  std::int32_t status() const noexcept { return status_; }
  // The file position of the next byte written.
  std::uint32_t position() const noexcept { return std::uint32_t(position_); }

  void Bytes(std::span<const std::uint8_t> bytes) noexcept;
  void U8(std::uint32_t v) noexcept;
  void U16(std::uint32_t v) noexcept;
  void U24(std::uint32_t v) noexcept;
  void U32(std::uint32_t v) noexcept;
  void U64(std::uint64_t v) noexcept;
  void Zeros(std::uint32_t count) noexcept;
  // A NUL-terminated string's characters and its terminator.
  void CString(const char* text) noexcept;

  // Starts an atom with a placeholder size and returns its position, for
  // EndAtom to fill in the size once the content is written. FullAtom also
  // writes the version and flags.
  std::uint32_t Atom(std::uint32_t type) noexcept;
  std::uint32_t FullAtom(std::uint32_t type, std::uint32_t version, std::uint32_t flags) noexcept;
  void EndAtom(std::uint32_t start) noexcept;

  // Overwrites a 32-bit word written earlier.
  void PatchU32(std::uint32_t at, std::uint32_t v) noexcept;
  // Writes out the buffer; returns status().
  std::int32_t Flush() noexcept;

 private:
  void Fail(std::int32_t rc) noexcept {
    if (status_ == 0) status_ = rc;
  }
  std::int32_t WriteAll(const std::uint8_t* data, std::size_t size) noexcept;

  static constexpr std::size_t kBufferSize = 64 * 1024;
  TMXStream* stream_ = nullptr;
  Block<std::uint8_t> buffer_;
  std::size_t used_ = 0;
  std::uint64_t position_ = 0;  // of the next byte, buffered bytes included
  std::int32_t status_ = TMX_ERR_HANDLE;
};

// A sequence of 32-bit values that is written once and read back once or
// more, held in a fixed buffer and spilled to a scratch stream of the
// caller's or to a temporary file when it outgrows the buffer.
class Spool {
 public:
  Spool() = default;
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;
  ~Spool();

  // `scratch` (opened for reading and writing, used from position 0) may be
  // null for a temporary file. -10 when the buffer cannot be allocated.
  std::int32_t Start(TMXStream* scratch) noexcept;
  std::int32_t Append(std::uint32_t value) noexcept;
  // Returns to the first value for reading.
  std::int32_t Rewind() noexcept;
  // The next value; -3 past the last one.
  std::int32_t Next(std::uint32_t* value) noexcept;

 private:
  std::int32_t Spill() noexcept;
  std::int32_t Refill() noexcept;
  std::int32_t StoreAt(std::uint64_t at, const std::uint8_t* data, std::size_t size) noexcept;
  std::int32_t LoadAt(std::uint64_t at, std::uint8_t* data, std::size_t size) noexcept;

  static constexpr std::size_t kValues = 8192;
  TMXStream* scratch_ = nullptr;
  std::FILE* file_ = nullptr;
  Block<std::uint32_t> buffer_;
  std::size_t used_ = 0;       // values in the buffer
  std::uint64_t spilled_ = 0;  // values stored outside the buffer
  // Reading back: all values, the value index of buffer_[0], how many the
  // buffer holds and which is next.
  bool reading_ = false;
  std::uint64_t total_ = 0;
  std::uint64_t readBase_ = 0;
  std::size_t loaded_ = 0;
  std::size_t readIndex_ = 0;
};

}  // namespace tmx::writer
