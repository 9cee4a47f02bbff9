#pragma once

// A real JACK server with the dummy driver (no sound card needed), started by a test on its own
// server name so that tests never meet another server. Clients of this process connect to it
// through JACK_DEFAULT_SERVER.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "platform/audio/AudioOutput.h"
#include "support/Processes.h"

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

  // Starts jackd and waits until clients can connect; false if it did not come up. A server of
  // this name left running by a test program that crashed is stopped first: a new one could
  // not take the name, and clients would meet the old one. A just-started server sometimes
  // refuses the client after its first, so two connections in a row must succeed.
  bool start() {
    stopLeftoverServer();
    pid_ = spawn({"jackd", "-n", name_, "-d", "dummy", "-r", std::to_string(rate_), "-p",
                  std::to_string(period_)});
    const auto twiceInARow = [] {
      return platform::jackServerIsRunning() && platform::jackServerIsRunning();
    };
    return pid_ > 0 && waitFor(twiceInARow, std::chrono::seconds(5));
  }

  // A server that is there but does not answer, and answering again.
  void freeze() const { kill(pid_, SIGSTOP); }
  void thaw() const { kill(pid_, SIGCONT); }

  void stop() {
    if (pid_ <= 0) return;
    thaw();
    kill(pid_, SIGTERM);
    waitForExit(pid_);
    pid_ = 0;
  }

 private:
  void stopLeftoverServer() const {
    const std::string wanted = std::string("jackd") + '\0' + "-n" + '\0' + name_ + '\0';
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      const std::string commandLine = readFile((entry.path() / "cmdline").string());
      if (commandLine.rfind(wanted, 0) != 0) continue;
      const pid_t leftover = std::atoi(entry.path().filename().c_str());
      kill(leftover, SIGTERM);
      waitFor([&] { return kill(leftover, 0) != 0; }, std::chrono::seconds(5));
    }
  }

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
