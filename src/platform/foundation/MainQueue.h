#pragma once

// The main queue: tasks that run later, one after another in the order they were queued, on the
// main thread. Any thread may queue a task. The application installs the queue that drives its
// event loop; until then (and in tests) a ManualMainQueue holds the tasks until runPending().

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace platform {

class MainQueue {
 public:
  using Task = std::function<void()>;

  virtual ~MainQueue() = default;
  // Queues `task`; it runs after the main thread's current task has finished.
  virtual void async(Task task) = 0;

  // The queue of this process; a ManualMainQueue until another is installed.
  static MainQueue& main();
  // Installs `queue` as the main queue (null restores the built-in manual one).
  static void setMain(MainQueue* queue);
};

// A main queue whose tasks run only when asked to, on the asking thread.
class ManualMainQueue final : public MainQueue {
 public:
  ~ManualMainQueue() override;
  void async(Task task) override;
  // Runs queued tasks, including tasks they queue, until none is left; returns how many ran.
  std::size_t runPending();
  std::size_t pendingCount() const;
  // Sleeps until a task is queued or `limit` has passed; true when a task is waiting.
  bool waitForTask(std::chrono::milliseconds limit);

 private:
  mutable std::mutex mutex_;
  std::condition_variable queued_;
  std::deque<Task> tasks_;
};

// Shorthand for MainQueue::main().async(task).
void dispatchAsyncMain(MainQueue::Task task);

}  // namespace platform
