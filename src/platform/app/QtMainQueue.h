#pragma once

#include "platform/foundation/MainQueue.h"

namespace platform {

// The main queue on the Qt event loop: tasks run on the GUI thread after the current event.
// Install it with MainQueue::setMain once the QApplication exists.
class QtMainQueue final : public MainQueue {
 public:
  void async(Task task) override;
};

}  // namespace platform
