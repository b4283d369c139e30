// Runs a command-line program as a user would and keeps what it printed.
#pragma once

#include <string>

namespace tmx::test {

struct ToolRun {
  static constexpr int kNotRun = -1000;
  // The exit status; minus the signal's number when a signal ended the
  // program, so that a crash never passes for a clean failure; kNotRun when
  // it could not be started.
  int status = kNotRun;
  std::string out;
  std::string err;
};

// Runs `program` with `arguments`, written as shell words (quotes work as in
// sh). The shell execs the program, so the status is the program's own.
ToolRun RunTool(const std::string& program, const std::string& arguments);

}  // namespace tmx::test
