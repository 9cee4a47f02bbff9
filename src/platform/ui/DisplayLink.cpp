#include "platform/ui/DisplayLink.h"

#include <QGuiApplication>
#include <QScreen>
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
  timer_.setTimerType(Qt::PreciseTimer);
  timer_.setInterval(refreshIntervalMs());
  QObject::connect(&timer_, &QTimer::timeout, this, [this] { action_(); });
}

void DisplayLink::addToRunLoop() {
  timer_.start();
}

}  // namespace platform
