#pragma once

// An attack-decay-sustain-release envelope, one sample at a time. The attack rises linearly from
// wherever the level is (so a re-struck or stolen voice does not jump), decay and release fall
// exponentially; times are the time to fall by 60 dB.

#include <cmath>

namespace pelma {

struct EnvelopeRates {
  float attackStep = 1;
  float decayFactor = 0;
  float sustain = 1;
  float releaseFactor = 0;

  static EnvelopeRates make(float attack, float decay, float sustain, float release,
                            float sampleRate) noexcept {
    constexpr float kFall60dB = 6.9077553f;  // ln(1000)
    return {1.0f / (attack * sampleRate), std::exp(-kFall60dB / (decay * sampleRate)), sustain,
            std::exp(-kFall60dB / (release * sampleRate))};
  }
};

struct Envelope {
  enum class Stage { Idle, Attack, Decay, Release };
  static constexpr float kSilent = 1e-5f;  // -100 dB: the end of a release

  Stage stage = Stage::Idle;
  float level = 0;

  void start() noexcept { stage = Stage::Attack; }
  void release() noexcept {
    if (stage != Stage::Idle) stage = Stage::Release;
  }
  void reset() noexcept {
    stage = Stage::Idle;
    level = 0;
  }
  bool active() const noexcept { return stage != Stage::Idle; }

  float next(const EnvelopeRates& r) noexcept {
    switch (stage) {
      case Stage::Attack:
        level += r.attackStep;
        if (level >= 1.0f) {
          level = 1.0f;
          stage = Stage::Decay;
        }
        break;
      case Stage::Decay:
        level = r.sustain + (level - r.sustain) * r.decayFactor;
        if (r.sustain <= 0.0f && level < kSilent) reset();
        break;
      case Stage::Release:
        level *= r.releaseFactor;
        if (level < kSilent) reset();
        break;
      case Stage::Idle:
        break;
    }
    return level;
  }
};

}  // namespace pelma
