#pragma once

// Band-limited oscillator waveforms. Phase runs from 0 to 1; `increment` is the phase step per
// sample (frequency / sample rate). Saw and pulse edges are smoothed with polyBLEP, the
// triangle's corners with polyBLAMP, which keeps aliasing low without tables.

#include <cmath>
#include <numbers>

#include "dsp/Parameters.h"

namespace pelma {

// Correction for a jump of -2 at phase 0 (two samples wide).
inline float polyBlep(float t, float dt) noexcept {
  if (t < dt) {
    t /= dt;
    return t + t - t * t - 1.0f;
  }
  if (t > 1.0f - dt) {
    t = (t - 1.0f) / dt;
    return t * t + t + t + 1.0f;
  }
  return 0.0f;
}

// Correction for a slope change of +2 per sample at phase 0 (the integral of polyBlep).
inline float polyBlamp(float t, float dt) noexcept {
  if (t < dt) {
    t = t / dt - 1.0f;
    return -t * t * t / 3.0f;
  }
  if (t > 1.0f - dt) {
    t = (t - 1.0f) / dt + 1.0f;
    return t * t * t / 3.0f;
  }
  return 0.0f;
}

inline float wrapPhase(float t) noexcept {
  return t >= 1.0f ? t - 1.0f : t;
}

// One sample of `waveform` at phase t, in -1..1. `width` is the pulse's high fraction.
inline float oscillatorSample(int waveform, float t, float dt, float width) noexcept {
  switch (waveform) {
    case kSaw:
      return 2.0f * t - 1.0f - polyBlep(t, dt);
    case kPulse:
      // Less the pulse's mean (2 width - 1), so narrow pulses carry no DC offset.
      return (t < width ? 1.0f : -1.0f) + polyBlep(t, dt) -
             polyBlep(wrapPhase(t + 1.0f - width), dt) - (2.0f * width - 1.0f);
    case kTriangle:
      // Peak at phase 0, valley at 0.5: the slope turns by -8 and +8 per cycle there.
      return 2.0f * std::fabs(2.0f * t - 1.0f) - 1.0f +
             4.0f * dt * (polyBlamp(wrapPhase(t + 0.5f), dt) - polyBlamp(t, dt));
    default:
      return std::sin(2.0f * std::numbers::pi_v<float> * t);
  }
}

// White noise from a 32-bit xorshift generator: deterministic for a given seed.
inline float noiseSample(std::uint32_t& state) noexcept {
  state ^= state << 13;
  state ^= state >> 17;
  state ^= state << 5;
  return static_cast<float>(static_cast<std::int32_t>(state)) * (1.0f / 2147483648.0f);
}

}  // namespace pelma
