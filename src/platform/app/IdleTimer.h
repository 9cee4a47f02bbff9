#pragma once

// Keeps the screen saver away while the application runs (an instrument being played must not
// dim or lock the screen): an inhibition held with the desktop's screen-saver service
// (org.freedesktop.ScreenSaver over the session D-Bus). Without the service, one log line.

#include <cstdint>
#include <optional>

namespace platform {

class IdleTimer {
 public:
  ~IdleTimer();
  // True: inhibit the screen saver until false or until this object goes.
  void setIdleTimerDisabled(bool disabled);

 private:
  std::optional<std::uint32_t> cookie_;
};

}  // namespace platform
