// A control's value on its scale: any thread, the audio thread too (MIDI learn's controllers are
// applied there), so nothing here allocates, locks or waits.

#include <algorithm>
#include <cmath>

#include "platform/audio/ControlPorts.h"

namespace platform {

double unitPosition(const ControlPort& p, float value) noexcept {
  double unit = p.logarithmic ? std::log(value / p.minimum) / std::log(p.maximum / p.minimum)
                              : (value - p.minimum) / (p.maximum - p.minimum);
  if (!std::isfinite(unit)) unit = 0.0;
  return std::clamp(unit, 0.0, 1.0);
}

float valueAtPosition(const ControlPort& p, double unit) noexcept {
  unit = std::clamp(unit, 0.0, 1.0);
  double value = p.logarithmic ? p.minimum * std::pow(p.maximum / p.minimum, unit)
                               : p.minimum + unit * (p.maximum - p.minimum);
  if (p.integer) value = std::round(value);
  return static_cast<float>(std::clamp(value, double{p.minimum}, double{p.maximum}));
}

float valueForController(const ControlPort& p, std::uint8_t controllerValue) noexcept {
  const int value = std::min<int>(controllerValue, 127);
  if (p.toggled) return value >= 64 ? p.maximum : p.minimum;
  if (!p.choices.empty()) {
    const auto count = static_cast<int>(p.choices.size());
    return p.choices[static_cast<std::size_t>(std::min(count - 1, value * count / 128))].first;
  }
  return valueAtPosition(p, value / 127.0);
}

}  // namespace platform
