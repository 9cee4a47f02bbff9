#pragma once

// What a host needs to know of an instrument's control inputs, read from its LV2 description:
// range, scale (logarithmic, integer, toggle, enumeration), name, comment and group. The generic
// editor draws them, MIDI learn drives them from a controller and presets are checked against
// their ranges. Main thread (or any thread but the audio thread; it takes the world's lock).

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace platform {

struct ControlPort {
  std::string symbol, name, comment, group;
  float minimum = 0.0f, maximum = 1.0f;
  bool logarithmic = false, integer = false, toggled = false;
  std::vector<std::pair<float, std::string>> choices;  // enumeration's scale points, by value
};

// The control inputs of the plug-in `uri`, in port order; empty when it is not installed.
std::vector<ControlPort> controlPorts(const std::string& uri);

// Position 0..1 of `value` on the port's scale (logarithmic ports logarithmically), and back
// (integer ports rounded to whole numbers).
double unitPosition(const ControlPort& port, float value) noexcept;
float valueAtPosition(const ControlPort& port, double position) noexcept;

// The port's value for a MIDI controller value 0..127: over the whole range on the port's scale,
// toggles off below 64 and on from 64, enumerations by equal steps through their choices. Any
// thread, the audio thread too: it neither allocates nor locks.
float valueForController(const ControlPort& port, std::uint8_t controllerValue) noexcept;

}  // namespace platform
