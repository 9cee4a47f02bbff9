#include "platform/foundation/MainQueueSignal.h"

#include "platform/foundation/MainQueue.h"

namespace platform {

MainQueueSignal::MainQueueSignal(std::function<void()> onMain) : onMain_(std::move(onMain)) {
  sem_init(&wake_, 0, 0);
  thread_ = std::thread([this] {
    for (;;) {
      while (sem_wait(&wake_) != 0) {
        // Interrupted by a signal handler: wait again.
      }
      if (stopping_.load()) return;
      dispatchAsyncMain([this, alive = alive_] {
        if (!alive->load()) return;
        // Cleared first: a signal given while the function runs queues another run.
        pending_.store(false);
        onMain_();
      });
    }
  });
}

MainQueueSignal::~MainQueueSignal() {
  alive_->store(false);
  stopping_.store(true);
  sem_post(&wake_);
  thread_.join();
  sem_destroy(&wake_);
}

void MainQueueSignal::signal() noexcept {
  // Only the first signal since the last run wakes the thread.
  if (!pending_.load(std::memory_order_relaxed) && !pending_.exchange(true)) sem_post(&wake_);
}

}  // namespace platform
