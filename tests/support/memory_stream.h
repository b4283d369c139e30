// A TMXStream over bytes in memory, for tests. It behaves like the built-in
// file streams (short reads succeed, reading at the end gives -3) and can be
// made to hide its size, lack operations, fail its k-th read or write, or
// lose power part-way through its writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tmxsdk.h"

namespace tmx::test {

class MemoryStream {
 public:
  explicit MemoryStream(std::vector<std::uint8_t> data = {});
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

  TMXStream* stream() { return &raw_.base; }
  // The operations table; tests may clear slots before handing the stream out.
  TMXStreamOps& ops() { return ops_; }

  std::vector<std::uint8_t>& data() { return data_; }
  void set_unknown_size(bool unknown) { unknownSize_ = unknown; }
  // Makes the k-th read (or write) from now fail; 0 turns it off.
  void fail_read(int k) { failReadAt_ = k == 0 ? 0 : reads_ + k; }
  void fail_write(int k) { failWriteAt_ = k == 0 ? 0 : writes_ + k; }

  // Power cut: from now on only the first `k` bytes written reach storage.
  // Writes go on reporting success and the stream reads back all of them,
  // as through a cache; `persisted()` is what storage holds, and what a
  // reboot would read. A negative `k` turns the mode off.
  void cut_power_after(long k);
  // Writes that would make the stream larger than `bytes` fail, as on a full
  // device.
  void set_capacity(std::size_t bytes) { capacity_ = bytes; }
  const std::vector<std::uint8_t>& persisted() const { return persisted_; }
  // The sizes of the writes since the power cut was set.
  const std::vector<int>& write_sizes() const { return writeSizes_; }

  int opens() const { return opens_; }
  int closes() const { return closes_; }
  int reads() const { return reads_; }
  int writes() const { return writes_; }
  int last_open_mode() const { return lastOpenMode_; }
  // The Create, Open and Close calls so far, as "create open0 open1 close";
  // `take_calls` returns them and starts afresh.
  std::string take_calls() { return std::exchange(calls_, {}); }
  std::uint32_t position() const { return position_; }

 private:
  struct Raw {
    TMXStream base;
    MemoryStream* owner;
  };
  static MemoryStream* Self(TMXStream* s) { return reinterpret_cast<Raw*>(s)->owner; }
  static std::int32_t Create(TMXStream* s);
  static std::int32_t Open(TMXStream* s, std::int32_t mode);
  static std::int32_t Close(TMXStream* s);
  static std::uint32_t GetSize(TMXStream* s);
  static std::uint32_t Tell(TMXStream* s);
  static std::int32_t Seek(TMXStream* s, std::uint32_t position);
  static std::int32_t Read(TMXStream* s, void* buffer, std::int32_t count, std::int32_t* done);
  static std::int32_t Write(TMXStream* s, const void* buffer, std::int32_t count,
                            std::int32_t* done);

  Raw raw_;
  TMXStreamOps ops_;
  std::vector<std::uint8_t> data_;
  std::uint32_t position_ = 0;
  bool unknownSize_ = false;
  int failReadAt_ = 0;
  int failWriteAt_ = 0;
  int reads_ = 0;
  int writes_ = 0;
  std::vector<int> writeSizes_;
  std::size_t capacity_ = SIZE_MAX;
  long persistBudget_ = -1;  // bytes still reaching storage; -1: no cut
  std::vector<std::uint8_t> persisted_;
  int opens_ = 0;
  int closes_ = 0;
  int lastOpenMode_ = -1;
  std::string calls_;
  void Log(const char* call) { calls_ += calls_.empty() ? call : std::string(" ") + call; }
};

}  // namespace tmx::test
