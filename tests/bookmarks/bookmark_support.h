// Shared pieces of the bookmark tests: programmes with a "@pid", an open
// programme with its position stream in memory, and a reader of the list's
// atoms that is independent of the library's.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/file.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"
#include "util/status.h"

namespace tmx::test {

inline constexpr std::uint32_t kKeyTitle = FourCC("@tit"), kKeyCover = FourCC("@car"),
                               kKeyAlias = FourCC("@ual"), kKeyNote = FourCC("@sde");

// A programme of `frames` frames (1300: about a minute) with a "@pid"
// (none when `pid` is empty).
const ByteVec& ProgrammeBytes(const std::string& pid, std::uint32_t frames = 1300);

// An open programme with a position stream (the usual home of the list).
class Session {
 public:
  explicit Session(const ByteVec& programme, ByteVec position = {});
  ~Session() { Close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  TMXFile* f() const { return file_; }
  MemoryStream& programme() { return *programme_; }
  MemoryStream& position() { return *position_; }
  ByteVec& bytes() { return position_->data(); }
  void Close();

 private:
  std::unique_ptr<MemoryStream> programme_, position_;
  TMXFile* file_ = nullptr;
};

struct ParsedBookmark {
  std::uint32_t pos, time;
  std::map<std::uint32_t, ByteVec> items;  // item type to value
};
struct ParsedList {
  std::uint32_t moov = 0, udta = 0, bmet = 0;
  std::vector<ParsedBookmark> bookmarks;  // in file order
  std::uint32_t freePos = 0, freeSize = 0;
};

// Reads the list, checking that every atom lies inside its parent, that
// "bmet", "udta" and "moov" end together, and that the list is "blst",
// "bmrk" atoms and one trailing "free" atom.
ParsedList ParseList(const ByteVec& bytes);

}  // namespace tmx::test
