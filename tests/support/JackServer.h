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
#include <string>
#include <thread>

#include "platform/audio/AudioOutput.h"

namespace testing_support {

class JackServer {
 public:
  explicit JackServer(int sampleRate = 48000, int period = 256)
      : name_("pelma-test-" + std::to_string(getpid())), rate_(sampleRate), period_(period) {
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
  std::string name_;
  int rate_, period_;
  pid_t pid_ = 0;
};

}  // namespace testing_support
