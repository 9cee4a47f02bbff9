#include "platform/foundation/MainQueue.h"

#include <atomic>

namespace platform {
namespace {

ManualMainQueue& builtInQueue() {
  static ManualMainQueue queue;
  return queue;
}

std::atomic<MainQueue*> installedQueue{nullptr};

}  // namespace

MainQueue& MainQueue::main() {
  MainQueue* queue = installedQueue.load(std::memory_order_acquire);
  return queue ? *queue : builtInQueue();
}

void MainQueue::setMain(MainQueue* queue) {
  installedQueue.store(queue, std::memory_order_release);
}

ManualMainQueue::~ManualMainQueue() {
  // Tasks may come from threads nobody joins (an instantiation that ended while the program
  // quit, after the application's queue was removed): the lock orders their queueing before this.
  std::lock_guard lock(mutex_);
  tasks_.clear();
}

void ManualMainQueue::async(Task task) {
  // Notified under the lock: once the lock is released the main thread may run the task and
  // destroy the queue.
  std::lock_guard lock(mutex_);
  tasks_.push_back(std::move(task));
  queued_.notify_one();
}

bool ManualMainQueue::waitForTask(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  return queued_.wait_for(lock, limit, [this] { return !tasks_.empty(); });
}

std::size_t ManualMainQueue::runPending() {
  std::size_t ran = 0;
  for (;;) {
    Task task;
    {
      std::lock_guard lock(mutex_);
      if (tasks_.empty()) return ran;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
    ++ran;
  }
}

std::size_t ManualMainQueue::pendingCount() const {
  std::lock_guard lock(mutex_);
  return tasks_.size();
}

void dispatchAsyncMain(MainQueue::Task task) {
  MainQueue::main().async(std::move(task));
}

}  // namespace platform
