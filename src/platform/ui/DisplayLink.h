#pragma once

// A display-synchronised timer: calls its action on the main thread once per screen refresh (at
// the primary screen's refresh rate, 60 Hz when the screen does not say). It lives as long as its
// target, and runs from addToRunLoop() on. While paused it does not wake the main thread at all, so
// a screen with nothing moving costs nothing.

#include <QObject>
#include <QTimer>
#include <functional>

namespace platform {

class DisplayLink : public QObject {
 public:
  // `target` owns the link; `action` runs on every frame.
  DisplayLink(QObject* target, std::function<void()> action);

  void addToRunLoop();
  void setPaused(bool paused);
  // For the frame after the current one only: fire no sooner than `seconds` from now. A screen
  // that knows when it next changes wakes the main thread then instead of at every refresh.
  void skipFramesFor(double seconds);
  bool isPaused() const { return paused_; }
  bool isRunning() const { return timer_.isActive(); }

 private:
  QTimer timer_;
  int refreshIntervalMs_ = 16;
  std::function<void()> action_;
  bool added_ = false;
  bool paused_ = false;
};

}  // namespace platform
