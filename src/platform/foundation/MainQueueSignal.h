#pragma once

// Lets a real-time thread have a function run on the main queue without allocating, locking or
// waiting: signal() posts a semaphore, and a thread of the signal's own, asleep on it, queues
// the function. Signals given before the function starts are answered by that one run.

#include <semaphore.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

namespace platform {

class MainQueueSignal {
 public:
  explicit MainQueueSignal(std::function<void()> onMain);
  // Main thread. A run already queued does nothing after this.
  ~MainQueueSignal();
  MainQueueSignal(const MainQueueSignal&) = delete;
  MainQueueSignal& operator=(const MainQueueSignal&) = delete;

  // Any thread, the audio thread too.
  void signal() noexcept;

 private:
  std::function<void()> onMain_;
  std::atomic<bool> pending_{false};
  std::atomic<bool> stopping_{false};
  std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
  sem_t wake_;
  std::thread thread_;
};

}  // namespace platform
