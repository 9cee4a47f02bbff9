#pragma once

// A fake monotonic clock that moves only when a test advances it, so that intervals measured by
// the code under test are exact.

#include "platform/foundation/MonotonicClock.h"

namespace testing_support {

class ManualClock final : public platform::MonotonicClock {
 public:
  platform::MonotonicTime now() const override { return now_; }
  void advance(double seconds) {
    now_ += std::chrono::duration_cast<platform::MonotonicTime::duration>(
        std::chrono::duration<double>(seconds));
  }

 private:
  platform::MonotonicTime now_{std::chrono::hours(1)};
};

}  // namespace testing_support
