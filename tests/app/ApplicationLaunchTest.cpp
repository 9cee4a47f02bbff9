// Launching the real application while it already runs (headless, no sound device): a second
// launch hands its bank files and links to the running one and ends; the running one opens them.
// A socket file left by a crashed application, and a stranger writing garbage to the socket, do
// not stop it.

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/SingleInstance.h"
#include "support/BankText.h"
#include "support/Processes.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using namespace testing_support;
namespace fs = std::filesystem;

class ApplicationLaunch : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* folder : {"banks", "documents", "runtime"})
      fs::create_directory(root_ / folder);
    fs::permissions(root_ / "runtime", fs::perms::owner_all);
    setenv("PELMA_BANKS_DIR", (root_ / "banks").c_str(), 1);
    setenv("PELMA_DOCUMENTS_DIR", (root_ / "documents").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", (root_ / "runtime").c_str(), 1);
    setenv("XDG_STATE_HOME", (root_ / "state").c_str(), 1);
    scratch_.write("from elsewhere.plb", bankText("Handed Over", {"One"}, 300));
  }
  void TearDown() override {
    if (running_ > 0) {
      kill(running_, SIGKILL);
      waitForExit(running_);
    }
  }

  std::string log(const char* name) const { return (root_ / name).string(); }
  bool logSays(const char* name, const std::string& text) const {
    return readFile(log(name)).find(text) != std::string::npos;
  }
  // The first application, once it has launched and listens for other launches.
  void startFirst() {
    running_ = spawn({PELMA_EXECUTABLE, "--seconds", "60"}, log("first.log"));
    ASSERT_GT(running_, 0);
    ASSERT_TRUE(waitFor([&] { return logSays("first.log", "list files"); }, 20s))
        << readFile(log("first.log"));
    ASSERT_TRUE(waitFor(
        [&] {
          const int fd = connectToSocket();
          if (fd >= 0) close(fd);
          return fd >= 0;
        },
        5s));
  }
  static sockaddr_un socketAddress() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    app::SingleInstance::socketPath().toStdString().copy(address.sun_path,
                                                         sizeof(address.sun_path) - 1);
    return address;
  }
  // A connected socket (the caller closes it), or -1 when nobody listens.
  static int connectToSocket() {
    const sockaddr_un address = socketAddress();
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
    close(fd);
    return -1;
  }

  TemporaryFolder scratch_;
  const fs::path root_ = scratch_.path();
  pid_t running_ = 0;
};

// A socket file nobody listens on, as a crashed application leaves it, is taken over; a stranger's
// garbage is dropped; then a second launch hands over its files and ends.
TEST_F(ApplicationLaunch, TakesOverAStaleSocketAndTakesTheFilesOfASecondLaunch) {
  const sockaddr_un address = socketAddress();
  const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(stale, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  close(stale);
  ASSERT_TRUE(fs::exists(address.sun_path));
  startFirst();
  EXPECT_FALSE(logSays("first.log", "already running"));

  // Two mebibytes without an end: the running application drops the connection.
  const int stranger = connectToSocket();
  ASSERT_GE(stranger, 0);
  const std::string garbage(64 * 1024, 'x');
  for (int i = 0; i < 32; ++i)
    if (send(stranger, garbage.data(), garbage.size(), MSG_NOSIGNAL) < 0) break;
  EXPECT_TRUE(waitFor([&] { return logSays("first.log", "Ignored an over-long message"); }, 10s));
  close(stranger);

  EXPECT_EQ(runAndWait({PELMA_EXECUTABLE, (root_ / "from elsewhere.plb").string(), "pelma:x/y.txt"},
                       log("second.log")),
            0);
  EXPECT_TRUE(logSays("second.log", "Pelma is already running: handed it 2 file(s) and link(s)"))
      << readFile(log("second.log"));
  EXPECT_FALSE(logSays("second.log", "Did finish launching"));
  ASSERT_TRUE(waitFor([&] { return fs::exists(root_ / "banks" / "from elsewhere.plb"); }, 10s))
      << readFile(log("first.log"));
  EXPECT_TRUE(logSays("first.log", "Another launch handed over 2 file(s) and link(s)"));
  EXPECT_TRUE(
      logSays("first.log", "Handle open url file://" + root_.string() + "/from%20elsewhere.plb"));
  EXPECT_TRUE(logSays("first.log", "Handle open url pelma:x/y.txt"));

  // A launch with nothing to open only brings the running one forward.
  EXPECT_EQ(runAndWait({PELMA_EXECUTABLE}, log("third.log")), 0);
  EXPECT_TRUE(logSays("third.log", "handed it 0 file(s)"));

  kill(running_, SIGTERM);
  EXPECT_EQ(waitForExit(running_), 0) << readFile(log("first.log"));
  running_ = 0;
  EXPECT_FALSE(fs::exists(app::SingleInstance::socketPath().toStdString()));
}

}  // namespace
