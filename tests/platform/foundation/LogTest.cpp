#include "platform/foundation/Log.h"

#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <vector>

namespace platform {
namespace {

// Standard error, as a person reads it: every event one whole line, also from many threads at
// once. (LogCapture, which only tests use, is read back by nearly every test that logs.)
TEST(Log, WritesWholeLinesToStandardErrorFromManyThreads) {
  ::testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 100; ++i)
        log("thread {} line {:03}", t, i);
    });
  }
  for (auto& thread : threads)
    thread.join();
  std::istringstream written(::testing::internal::GetCapturedStderr());
  int lines = 0;
  for (std::string line; std::getline(written, line); ++lines)
    EXPECT_EQ(line.size(), std::string("thread 0 line 000").size()) << line;
  EXPECT_EQ(lines, 400);
}

}  // namespace
}  // namespace platform
