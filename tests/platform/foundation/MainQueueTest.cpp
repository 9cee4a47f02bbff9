#include "platform/foundation/MainQueue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace platform {
namespace {

TEST(ManualMainQueue, RunsTasksInOrderOnlyWhenAskedAndKeepsEachThreadsOrder) {
  ManualMainQueue queue;
  std::string order;
  queue.async([&] {
    order += "a";
    queue.async([&] { order += "c"; });  // queued while running: runs after the rest
  });
  queue.async([&] { order += "b"; });
  EXPECT_EQ(order, "");
  EXPECT_EQ(queue.runPending(), 3u);
  EXPECT_EQ(order, "abc");
  EXPECT_EQ(queue.runPending(), 0u);

  std::vector<int> seen[2];
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i)
        queue.async([&, t, i] { seen[t].push_back(i); });
    });
  }
  for (auto& thread : threads)
    thread.join();
  queue.runPending();
  for (const auto& values : seen) {
    ASSERT_EQ(values.size(), 500u);
    for (int i = 0; i < 500; ++i)
      EXPECT_EQ(values[i], i);
  }
}

}  // namespace
}  // namespace platform
