// Helpers shared by the tmxtool commands.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "tmxsdk.h"

namespace tmxtool {

// A short English meaning of a result code.
const char* ResultMeaning(std::int32_t rc);
const char* FileTypeName(std::uint32_t type);

// Prints "tmxtool: what: code (meaning)" and returns exit status 1.
int Fail(const std::string& what, std::int32_t rc);

// A command-line path (in the locale's multibyte encoding) as wide text.
bool ToWide(const char* path, std::vector<wchar_t>& out);

// A stream over a file of the command line, owned by the tool: Close does
// not free it. A writable stream opens the file for reading and writing
// whatever mode it is asked for, and Create makes the file when missing.
struct CliFile {
  TMXStream base;
  std::FILE* file;
  std::string path;
  bool writable;
};
extern const TMXStreamOps kCliFileOps;

// An open programme, closed when the object goes.
class Programme {
 public:
  Programme();
  Programme(const Programme&) = delete;
  Programme& operator=(const Programme&) = delete;
  ~Programme() {
    if (file_) TMXCloseFile(file_);
  }
  // With the position file beside the programme (it is written on close
  // only when the position was loaded or changed).
  std::int32_t OpenWithPosition(const char* path);
  // Without a position file: nothing beside the programme is written.
  std::int32_t OpenReadOnly(const char* path);
  TMXFile* get() const { return file_; }

 private:
  TMXFile* file_ = nullptr;
  CliFile input_;
};

// Milliseconds as h:mm:ss.mmm.
std::string FormatTime(std::uint32_t ms);

// `text` as a JSON string literal, quotes included. Valid UTF-8 is kept;
// control characters and bytes that are not part of a valid UTF-8 sequence
// are written as \u escapes (a stray byte as the Latin-1 character of its
// value).
std::string JsonString(std::string_view text);

}  // namespace tmxtool
