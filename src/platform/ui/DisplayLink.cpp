#include "platform/ui/DisplayLink.h"

#include <QGuiApplication>
#include <QScreen>
#include <algorithm>
#include <cmath>

namespace platform {
namespace {

int refreshIntervalMs() {
  double rate = 60.0;
  if (const QScreen* screen = QGuiApplication::primaryScreen()) {
    if (screen->refreshRate() >= 1.0) rate = screen->refreshRate();
  }
  return std::max(1, static_cast<int>(std::lround(1000.0 / rate)));
}

}  // namespace

DisplayLink::DisplayLink(QObject* target, std::function<void()> action)
    : QObject(target), action_(std::move(action)) {
  refreshIntervalMs_ = refreshIntervalMs();
  timer_.setTimerType(Qt::PreciseTimer);
  timer_.setInterval(refreshIntervalMs_);
  QObject::connect(&timer_, &QTimer::timeout, this, [this] {
    if (timer_.interval() != refreshIntervalMs_) timer_.setInterval(refreshIntervalMs_);
    action_();
  });
}

void DisplayLink::addToRunLoop() {
  added_ = true;
  if (!paused_) timer_.start();
}

void DisplayLink::setPaused(bool paused) {
  paused_ = paused;
  if (paused) {
    timer_.stop();
  } else if (added_ && !timer_.isActive()) {
    timer_.start();
  }
}

void DisplayLink::skipFramesFor(double seconds) {
  if (!timer_.isActive()) return;
  // At least one refresh interval, at most a second.
  const double ms = std::clamp(std::ceil(seconds * 1000.0), double(refreshIntervalMs_), 1000.0);
  timer_.start(static_cast<int>(ms));
}

}  // namespace platform
