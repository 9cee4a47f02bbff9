#include "platform/foundation/Log.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace platform {
namespace {

TEST(Log, FormatsOneLinePerEventExactly) {
  LogCapture capture;
  log("AUDIO ENGINE interruption");
  log("Error: {} (code {})", "session", -50);
  log("pointer {:p}", static_cast<const void*>(nullptr));
  EXPECT_EQ(capture.lines(),
            (std::vector<std::string>{"AUDIO ENGINE interruption", "Error: session (code -50)",
                                      "pointer 0x0"}));
  EXPECT_TRUE(capture.contains("Error: session (code -50)"));
  EXPECT_FALSE(capture.contains("Error: session"));
}

TEST(Log, LinesFromManyThreadsArriveWhole) {
  LogCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 100; ++i)
        log("thread {} line {}", t, i);
    });
  }
  for (auto& thread : threads)
    thread.join();
  const auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 400u);
  for (int t = 0; t < 4; ++t)
    EXPECT_TRUE(capture.contains(fmt::format("thread {} line 99", t)));
}

TEST(Log, CapturesNestAndRestoreTheOuterSink) {
  LogCapture outer;
  {
    LogCapture inner;
    log("inner");
    EXPECT_EQ(inner.lines().size(), 1u);
  }
  log("outer");
  EXPECT_EQ(outer.lines(), std::vector<std::string>{"outer"});
}

}  // namespace
}  // namespace platform
