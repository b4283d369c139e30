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

// Every failure is reported as one line on stderr, "tmxtool: SUBJECT: CAUSE",
// where SUBJECT is mostly a file's path. Both return exit status 1.
//
// With a result code of the library the cause is "meaning (code)".
int Fail(const std::string& what, std::int32_t rc);
int Fail(const std::string& what, const std::string& cause);

// The cause for a C library errno value.
std::string SystemError(int error);

// True when `path` names a regular file; otherwise prints why not and
// returns false.
bool CheckInput(const char* path);

// True when both paths name one existing file (same device and inode).
bool SameFile(const std::string& a, const std::string& b);
// Prints that `output` is the same file as `input`; returns 1.
int FailSameFile(const std::string& output, const std::string& input);

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
  ~Programme();
  // Both open the programme at `path`, or print why they cannot and return
  // false. With the position file beside the programme (it is written on
  // close only when the position was loaded or changed):
  bool OpenWithPosition(const char* path);
  // Without a position file: nothing beside the programme is written.
  bool OpenReadOnly(const char* path);
  TMXFile* get() const { return file_; }

 private:
  TMXFile* file_ = nullptr;
  CliFile input_;
};

// A file the tool writes. It is made under a temporary name in the target's
// folder and renamed to the target only by Commit, so that a failed or
// interrupted command leaves neither a partial file nor a damaged original;
// without Commit the temporary file is removed when the object goes.
class OutputFile {
 public:
  OutputFile() = default;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();
  // Makes the temporary file, open for reading and writing; false after
  // printing why when it cannot be made.
  bool Create(const std::string& target);
  std::FILE* file() const { return file_; }
  // Closes the temporary file and gives its path, for writers that open it
  // themselves (Windows refuses a second handle that writes while this one is
  // open).
  const std::string& HandOver();
  // Closes the file (when open) and renames it to the target; false after
  // printing why (the temporary file is removed then).
  bool Commit();

 private:
  std::string target_;
  std::string temporary_;
  std::FILE* file_ = nullptr;
  bool committed_ = false;
};

// Milliseconds as h:mm:ss.mmm.
std::string FormatTime(std::uint32_t ms);

// `text` as a JSON string literal, quotes included. Valid UTF-8 is kept;
// control characters and bytes that are not part of a valid UTF-8 sequence
// are written as \u escapes (a stray byte as the Latin-1 character of its
// value).
std::string JsonString(std::string_view text);

}  // namespace tmxtool
