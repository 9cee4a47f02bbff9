#pragma once

// The instrument's sound parameters: one table that the DSP, the bank files, the LV2 control
// ports and the presets all read, so a parameter is added in exactly one place.

#include <array>
#include <cstddef>
#include <string_view>

namespace pelma {

enum class Unit { None, Hertz, Seconds, Decibels, Semitones, Cents, Octaves };
enum class Kind { Continuous, Integer, Choice };
enum class Group { Oscillators, Filter, FilterEnvelope, AmpEnvelope, Modulation, Output };

struct Parameter {
  std::string_view symbol;  // port symbol and key in bank files
  std::string_view name;    // shown by editors
  Group group;
  float minimum;
  float maximum;
  float defaultValue;
  Unit unit = Unit::None;
  Kind kind = Kind::Continuous;
  bool logarithmic = false;
  std::array<std::string_view, 4> choices{};  // labels of a Choice, by value 0, 1, ...
};

enum ParameterIndex : std::size_t {
  kOsc1Wave,
  kOsc1Width,
  kOsc1Level,
  kOsc2Wave,
  kOsc2Width,
  kOsc2Level,
  kOsc2Semitones,
  kOsc2Detune,
  kNoiseLevel,
  kFilterType,
  kCutoff,
  kResonance,
  kFilterEnvAmount,
  kKeyTracking,
  kFilterVelocity,
  kFilterAttack,
  kFilterDecay,
  kFilterSustain,
  kFilterRelease,
  kAmpAttack,
  kAmpDecay,
  kAmpSustain,
  kAmpRelease,
  kLfoRate,
  kVibrato,
  kModWheelVibrato,
  kLfoCutoff,
  kLfoWidth,
  kVelocitySensitivity,
  kVolume,
  kParameterCount
};

enum Waveform { kSaw, kPulse, kTriangle, kSine };
enum FilterType { kLowPass, kBandPass, kHighPass };

inline constexpr std::array<std::string_view, 4> kWaveformNames{"saw", "pulse", "triangle", "sine"};
inline constexpr std::array<std::string_view, 4> kFilterTypeNames{"lowpass", "bandpass",
                                                                  "highpass"};

// clang-format off
inline constexpr std::array<Parameter, kParameterCount> kParameters{{
  {"osc1_wave", "Osc 1 waveform", Group::Oscillators, 0, 3, kSaw, Unit::None, Kind::Choice, false, kWaveformNames},
  {"osc1_width", "Osc 1 pulse width", Group::Oscillators, 0.05f, 0.95f, 0.5f},
  {"osc1_level", "Osc 1 level", Group::Oscillators, 0, 1, 0.8f},
  {"osc2_wave", "Osc 2 waveform", Group::Oscillators, 0, 3, kPulse, Unit::None, Kind::Choice, false, kWaveformNames},
  {"osc2_width", "Osc 2 pulse width", Group::Oscillators, 0.05f, 0.95f, 0.5f},
  {"osc2_level", "Osc 2 level", Group::Oscillators, 0, 1, 0},
  {"osc2_semitones", "Osc 2 coarse tune", Group::Oscillators, -24, 24, 0, Unit::Semitones, Kind::Integer},
  {"osc2_detune", "Osc 2 fine tune", Group::Oscillators, -100, 100, 0, Unit::Cents},
  {"noise_level", "Noise level", Group::Oscillators, 0, 1, 0},
  {"filter_type", "Filter type", Group::Filter, 0, 2, kLowPass, Unit::None, Kind::Choice, false, kFilterTypeNames},
  {"cutoff", "Cutoff", Group::Filter, 20, 20000, 8000, Unit::Hertz, Kind::Continuous, true},
  {"resonance", "Resonance", Group::Filter, 0, 1, 0.1f},
  {"filter_env", "Envelope amount", Group::Filter, -6, 6, 0, Unit::Octaves},
  {"key_tracking", "Key tracking", Group::Filter, 0, 1, 0.5f},
  {"filter_velocity", "Velocity to envelope", Group::Filter, 0, 1, 0.3f},
  {"fenv_attack", "Filter attack", Group::FilterEnvelope, 0.001f, 10, 0.005f, Unit::Seconds, Kind::Continuous, true},
  {"fenv_decay", "Filter decay", Group::FilterEnvelope, 0.001f, 10, 0.4f, Unit::Seconds, Kind::Continuous, true},
  {"fenv_sustain", "Filter sustain", Group::FilterEnvelope, 0, 1, 0.3f},
  {"fenv_release", "Filter release", Group::FilterEnvelope, 0.001f, 10, 0.3f, Unit::Seconds, Kind::Continuous, true},
  {"amp_attack", "Amp attack", Group::AmpEnvelope, 0.001f, 10, 0.003f, Unit::Seconds, Kind::Continuous, true},
  {"amp_decay", "Amp decay", Group::AmpEnvelope, 0.001f, 10, 0.3f, Unit::Seconds, Kind::Continuous, true},
  {"amp_sustain", "Amp sustain", Group::AmpEnvelope, 0, 1, 1},
  {"amp_release", "Amp release", Group::AmpEnvelope, 0.001f, 10, 0.2f, Unit::Seconds, Kind::Continuous, true},
  {"lfo_rate", "LFO rate", Group::Modulation, 0.05f, 20, 5, Unit::Hertz, Kind::Continuous, true},
  {"vibrato", "Vibrato depth", Group::Modulation, 0, 1, 0, Unit::Semitones},
  {"mod_vibrato", "Mod wheel vibrato", Group::Modulation, 0, 2, 0.5f, Unit::Semitones},
  {"lfo_cutoff", "LFO to cutoff", Group::Modulation, 0, 4, 0, Unit::Octaves},
  {"lfo_width", "LFO to pulse width", Group::Modulation, 0, 0.45f, 0},
  {"velocity_sense", "Velocity sensitivity", Group::Output, 0, 1, 0.7f},
  {"volume", "Volume", Group::Output, -60, 6, -12, Unit::Decibels},
}};
// clang-format on

using ParameterValues = std::array<float, kParameterCount>;

// Every parameter at its default: the sound of a fresh instance before a patch is chosen.
constexpr ParameterValues defaultParameterValues() {
  ParameterValues values{};
  for (std::size_t i = 0; i < kParameterCount; ++i)
    values[i] = kParameters[i].defaultValue;
  return values;
}

// Brings a value into its parameter's range; integers and choices are rounded. NaN gives the
// default.
inline float clampParameter(std::size_t index, float value) {
  const Parameter& p = kParameters[index];
  if (!(value == value)) return p.defaultValue;
  value = value < p.minimum ? p.minimum : (value > p.maximum ? p.maximum : value);
  if (p.kind == Kind::Continuous) return value;
  return static_cast<float>(static_cast<int>(value + (value < 0 ? -0.5f : 0.5f)));
}

}  // namespace pelma
