#include "support/run_tool.h"

#include <cstdio>
#include <memory>

#ifdef _WIN32
#include <windows.h>

#include <algorithm>
#include <filesystem>
#else
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;
#endif

namespace tmx::test {
namespace {

#ifndef _WIN32
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::string ReadAll(std::FILE* f) {
  std::string text;
  std::rewind(f);
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) text.append(buffer, n);
  return text;
}

#endif

}  // namespace

#ifdef _WIN32
// The program gets its own console's standard handles, redirected to two
// temporary files and the null device. The tests quote with single quotes as
// a POSIX shell does; here they become double quotes, and a double quote
// inside them is escaped as Windows programs expect.
ToolRun RunTool(const std::string& program, const std::string& arguments) {
  ToolRun run;
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  char dir[MAX_PATH + 1], outName[MAX_PATH + 1], errName[MAX_PATH + 1];
  if (!GetTempPathA(sizeof dir, dir) || !GetTempFileNameA(dir, "out", 0, outName) ||
      !GetTempFileNameA(dir, "err", 0, errName))
    return run;
  auto open = [&](const char* name, DWORD access, DWORD disposition) {
    return CreateFileA(name, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, disposition,
                       FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  };
  HANDLE in = CreateFileA("NUL", GENERIC_READ, 0, &inherit, OPEN_EXISTING, 0, nullptr);
  HANDLE out = open(outName, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
  HANDLE err = open(errName, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
  std::string command = "\"" + std::filesystem::path(program).make_preferred().string() + "\" ";
  bool quoted = false;
  for (char c : arguments) {
    if (c == '\'') {
      quoted = !quoted;
      command += '"';
    } else {
      command += quoted && c == '"' ? std::string("\\\"") : std::string(1, c);
    }
  }
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = in;
  startup.hStdOutput = out;
  startup.hStdError = err;
  PROCESS_INFORMATION process{};
  if (in != INVALID_HANDLE_VALUE && out != INVALID_HANDLE_VALUE && err != INVALID_HANDLE_VALUE &&
      CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &process)) {
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(process.hProcess, &status);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    run.status = int(status);
    auto readAll = [](HANDLE h) {
      std::string text;
      SetFilePointer(h, 0, nullptr, FILE_BEGIN);
      char buffer[4096];
      for (DWORD n; ReadFile(h, buffer, sizeof buffer, &n, nullptr) && n > 0;)
        text.append(buffer, n);
      // Console text ends its lines with CR LF on Windows; the tests compare lines.
      for (std::size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at))
        text.erase(at, 1);
      return text;
    };
    run.out = readAll(out);
    run.err = readAll(err);
  }
  for (HANDLE h : {in, out, err})
    if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
  return run;
}
#else
ToolRun RunTool(const std::string& program, const std::string& arguments) {
  File out(std::tmpfile(), std::fclose), err(std::tmpfile(), std::fclose);
  ToolRun run;
  if (!out || !err) return run;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", 0, 0);
  posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), 1);
  posix_spawn_file_actions_adddup2(&actions, fileno(err.get()), 2);
  std::string command = "exec " + program + " " + arguments;
  char* argv[] = {const_cast<char*>("sh"), const_cast<char*>("-c"), command.data(), nullptr};
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  if (spawned != 0 || waitpid(pid, &status, 0) != pid) return run;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  run.out = ReadAll(out.get());
  run.err = ReadAll(err.get());
  return run;
}
#endif

}  // namespace tmx::test
