#pragma once

// The time that event records carry: a monotonic clock, so that setting the wall clock (or a
// network time correction) while the user plays never merges or splits what was played. Code
// that measures intervals takes a clock, so that tests can drive time by hand.

#include <chrono>

namespace platform {

using MonotonicTime = std::chrono::steady_clock::time_point;

class MonotonicClock {
 public:
  virtual ~MonotonicClock() = default;
  virtual MonotonicTime now() const = 0;

  // The process's clock: std::chrono::steady_clock.
  static const MonotonicClock& system();
};

// Seconds from `from` to `to`; negative when `to` is earlier.
inline double secondsBetween(MonotonicTime from, MonotonicTime to) {
  return std::chrono::duration<double>(to - from).count();
}

}  // namespace platform
