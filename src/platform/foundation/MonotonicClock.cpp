#include "platform/foundation/MonotonicClock.h"

namespace platform {
namespace {

class SteadyClock final : public MonotonicClock {
 public:
  MonotonicTime now() const override { return std::chrono::steady_clock::now(); }
};

}  // namespace

const MonotonicClock& MonotonicClock::system() {
  static const SteadyClock clock;
  return clock;
}

}  // namespace platform
