#include "support/run_tool.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <memory>

extern char** environ;

namespace tmx::test {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::string ReadAll(std::FILE* f) {
  std::string text;
  std::rewind(f);
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) text.append(buffer, n);
  return text;
}

}  // namespace

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

}  // namespace tmx::test
