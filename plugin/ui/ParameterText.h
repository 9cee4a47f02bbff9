#pragma once

// How the editor shows a parameter: its label inside its group, its value as text, and the knob
// position (0..1, logarithmic where the parameter is) that a value has.

#include <QString>
#include <cstddef>

#include "dsp/Parameters.h"

namespace pelma::ui {

// The group's title, e.g. "FILTER ENVELOPE".
QString groupTitle(Group group);
// The parameter's name without the group's first word ("Filter attack" under "FILTER ENVELOPE"
// reads "Attack").
QString parameterLabel(std::size_t index);
// "8.00 kHz", "300 ms", "-12.0 dB", "+7 st", "Lowpass", ...
QString valueText(std::size_t index, float value);

float normalisedValue(std::size_t index, float value);
float valueFromNormalised(std::size_t index, float position);

}  // namespace pelma::ui
