#pragma once

// A display-synchronised timer: calls its action on the main thread once per screen refresh (at
// the primary screen's refresh rate, 60 Hz when the screen does not say). It lives as long as its
// target, and runs from addToRunLoop() on.

#include <QObject>
#include <QTimer>
#include <functional>

namespace platform {

class DisplayLink : public QObject {
 public:
  // `target` owns the link; `action` runs on every frame.
  DisplayLink(QObject* target, std::function<void()> action);

  void addToRunLoop();
  bool isRunning() const { return timer_.isActive(); }

 private:
  QTimer timer_;
  std::function<void()> action_;
};

}  // namespace platform
