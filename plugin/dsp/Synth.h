#pragma once

// The instrument's sound engine: 16 voices of two band-limited oscillators plus noise, a
// resonant state-variable filter with its own envelope and key tracking, an amplitude envelope,
// one LFO for vibrato and filter and pulse-width modulation, and the performance controls (pitch
// bend, modulation wheel, sustain pedal). Knows nothing of LV2 or files.
//
// Parameter changes glide over about 10 ms, so moving a control never clicks. Everything except
// the constructor runs on the audio thread: no allocation, locks or I/O.

#include <array>
#include <cstdint>

#include "dsp/Envelope.h"
#include "dsp/Parameters.h"

namespace pelma {

inline constexpr int kVoiceCount = 16;
inline constexpr float kPitchBendSemitones = 2.0f;

class Synth {
 public:
  explicit Synth(double sampleRate);

  void setParameter(std::size_t index, float value) noexcept;
  void setParameters(const ParameterValues& values) noexcept;
  const ParameterValues& parameters() const noexcept { return targets_; }

  // Velocity 0 releases; values above 127 (128 from a full-scale key) play at full velocity.
  void noteOn(int key, int velocity) noexcept;
  void noteOff(int key) noexcept;
  // 14-bit bend, 8192 = centre; 0 and 16383 (or 16384) bend by -2 and +2 semitones.
  void pitchBend(int value) noexcept;
  void modWheel(int value) noexcept;
  void sustainPedal(bool down) noexcept;
  // Silence within 32 samples, without a click.
  void allSoundOff() noexcept;
  // Releases every note, the pedal included.
  void allNotesOff() noexcept;
  void resetControllers() noexcept;

  // Adds nothing: writes `frames` samples to both outputs.
  void render(float* left, float* right, std::uint32_t frames) noexcept;

  int soundingVoiceCount() const noexcept;

 private:
  static constexpr int kControlPeriod = 16;  // samples between modulation updates

  struct Voice {
    int key = -1;
    bool gate = false;       // the key is down
    bool sustained = false;  // released while the pedal was down
    std::uint64_t startOrder = 0;
    float velocity = 0;
    float velocityGain = 0;
    float phase1 = 0, phase2 = 0;
    float increment1 = 0, increment2 = 0;
    float filterCoefficient = 0, filterTarget = 0;  // g = tan(pi fc / fs)
    float state1 = 0, state2 = 0;                   // filter integrators
    float killGain = 1;                             // fades to 0 on all sound off
    bool killing = false;
    Envelope amp, filter;
    std::uint32_t noise = 1;

    bool sounding() const noexcept { return amp.active(); }
    void silence() noexcept;
  };

  // Control values shared by all voices for one control period.
  struct Controls {
    std::array<float, kControlPeriod> level1, level2, noise, gain;
    bool osc2On = false, noiseOn = false;  // silent sources are skipped
    float width1 = 0.5f, width2 = 0.5f;
    float damping = 2;  // k = 1/Q of the filter
    int wave1 = kSaw, wave2 = kSaw, filterType = kLowPass;
    EnvelopeRates ampRates, filterRates;
    float lfo = 0;
  };

  Voice& voiceForNewNote(int key) noexcept;
  void releaseVoice(Voice& voice) noexcept;
  void updateControls(int frames) noexcept;
  void updateVoice(Voice& voice) noexcept;
  void renderVoice(Voice& voice, float* mix, int frames) noexcept;

  float sampleRate_;
  ParameterValues targets_;   // as set
  ParameterValues smoothed_;  // gliding toward targets_
  float smoothing_;           // one-pole factor per control period
  std::array<Voice, kVoiceCount> voices_;
  Controls controls_;
  std::uint64_t noteCounter_ = 0;
  float bend_ = 0;  // -1..1
  float modWheel_ = 0;
  bool pedal_ = false;
  float lfoPhase_ = 0;
  float previousLevel1_ = 0, previousLevel2_ = 0, previousNoise_ = 0, previousGain_ = 0;
};

}  // namespace pelma
