#include "keyboard/KeyEvent.h"

KeyEvent::KeyEvent(std::int32_t key, const platform::MonotonicClock& clock)
    : key_(key), eventTime_(clock.now()), clock_(clock) {}

double KeyEvent::timeSinceNow() const {
  return platform::secondsBetween(clock_.now(), eventTime_.load());
}
