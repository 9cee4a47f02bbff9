#pragma once

// A real JACK server with the dummy driver (no sound card needed), started by a test on its own
// server name so that tests never meet another server. Clients of this process connect to it
// through JACK_DEFAULT_SERVER.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "platform/audio/AudioOutput.h"

namespace testing_support {

class JackServer {
 public:
  // One server name per test program: JACK keeps a slot per name (eight in all) until a server
  // of that name exits cleanly or starts again, so names must not pile up.
  explicit JackServer(int sampleRate = 48000, int period = 256)
      : name_("pelma-test-" + programName()), rate_(sampleRate), period_(period) {
    setenv("JACK_DEFAULT_SERVER", name_.c_str(), 1);
    setenv("JACK_NO_START_SERVER", "1", 1);
  }
  ~JackServer() { stop(); }

  // Starts jackd and waits until clients can connect; false if it did not come up.
  bool start() {
    const std::string rate = std::to_string(rate_), period = std::to_string(period_);
    const char* argv[] = {"jackd", "-n",         name_.c_str(), "-d",           "dummy",
                          "-r",    rate.c_str(), "-p",          period.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const int failed =
        posix_spawnp(&pid_, "jackd", &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed) return false;
    for (int i = 0; i < 100; ++i) {
      if (platform::jackServerIsRunning()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

  void stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
  }

 private:
  static std::string programName() {
    char path[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string name = length > 0 ? std::string(path, static_cast<std::size_t>(length)) : "unknown";
    return std::to_string(std::hash<std::string>{}(name) % 100000);
  }

  std::string name_;
  int rate_, period_;
  pid_t pid_ = 0;
};

}  // namespace testing_support
