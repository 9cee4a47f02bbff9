#pragma once

// Running the real executables from tests: start one with its output in a file, wait for it,
// and poll for a condition with a bound.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace testing_support {

// Starts `arguments` with stdout and stderr in `output`; the pid, or 0 when it could not start.
inline pid_t spawn(std::vector<std::string> arguments, const std::string& output = "/dev/null") {
  std::vector<char*> argv;
  for (auto& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = 0;
  const int failed = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return failed ? 0 : pid;
}

// The exit status of a process that ended, or -1 when it was killed by a signal.
inline int waitForExit(pid_t pid) {
  int status = 0;
  if (pid > 0) waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int runAndWait(std::vector<std::string> arguments, const std::string& output = "/dev/null") {
  return waitForExit(spawn(std::move(arguments), output));
}

inline std::string readFile(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

inline bool waitFor(const std::function<bool()>& condition,
                    std::chrono::milliseconds limit = std::chrono::seconds(5)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return condition();
}

}  // namespace testing_support
