// The sound engine's per-block work. Audio thread only: nothing here allocates, locks or waits.

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/Oscillator.h"
#include "dsp/Synth.h"

namespace pelma {
namespace {

constexpr float kKillStep = 1.0f / 32.0f;    // all sound off fades over 32 samples
constexpr float kFilterGlide = 0.05f;        // per-sample glide of the filter coefficient
constexpr float kMaxIncrement = 0.45f;       // oscillators stay below Nyquist
constexpr float kMaxCutoffFraction = 0.45f;  // of the sample rate: keeps tan() well-behaved

}  // namespace

void Synth::Voice::silence() noexcept {
  key = -1;
  gate = false;
  sustained = false;
  killing = false;
  killGain = 1;
  amp.reset();
  filter.reset();
  state1 = state2 = 0;
}

void Synth::setParameter(std::size_t index, float value) noexcept {
  if (index < kParameterCount) targets_[index] = clampParameter(index, value);
}

void Synth::setParameters(const ParameterValues& values) noexcept {
  for (std::size_t i = 0; i < kParameterCount; ++i)
    setParameter(i, values[i]);
}

Synth::Voice& Synth::voiceForNewNote(int key) noexcept {
  for (Voice& v : voices_) {
    if (v.sounding() && v.key == key) return v;  // a re-struck key keeps its voice
  }
  for (Voice& v : voices_) {
    if (!v.sounding()) return v;
  }
  // Steal: the quietest released voice, else the oldest one.
  Voice* quietest = nullptr;
  for (Voice& v : voices_) {
    if (!v.gate && !v.sustained && (!quietest || v.amp.level < quietest->amp.level)) {
      quietest = &v;
    }
  }
  if (quietest) return *quietest;
  Voice* oldest = &voices_[0];
  for (Voice& v : voices_) {
    if (v.startOrder < oldest->startOrder) oldest = &v;
  }
  return *oldest;
}

void Synth::noteOn(int key, int velocity) noexcept {
  key = std::clamp(key, 0, 127);
  if (velocity <= 0) {
    noteOff(key);
    return;
  }
  Voice& v = voiceForNewNote(key);
  bool fresh = !v.sounding();
  if (v.killing) v.amp.level *= std::max(v.killGain, 0.0f);  // continue from the faded level
  v.key = key;
  v.gate = true;
  v.sustained = false;
  v.killing = false;
  v.killGain = 1;
  v.startOrder = ++noteCounter_;
  v.velocity = static_cast<float>(std::min(velocity, 127)) / 127.0f;
  float sensitivity = targets_[kVelocitySensitivity];
  float gain = 1.0f - sensitivity + sensitivity * v.velocity * v.velocity;
  if (!fresh && gain > 0.0f) {
    // Rescale the level so the voice's loudness is continuous; the attack then rises from there.
    v.amp.level = std::min(1.0f, v.amp.level * v.velocityGain / gain);
  }
  v.velocityGain = gain;
  if (fresh) {
    v.phase1 = v.phase2 = 0;
    v.state1 = v.state2 = 0;
    updateVoice(v);
    v.filterCoefficient = v.filterTarget;
  }
  // A stolen or re-struck voice keeps its phase, filter state and level: no click.
  v.amp.start();
  v.filter.start();
}

void Synth::releaseVoice(Voice& v) noexcept {
  v.gate = false;
  v.sustained = false;
  v.amp.release();
  v.filter.release();
}

void Synth::noteOff(int key) noexcept {
  key = std::clamp(key, 0, 127);  // as noteOn does, so that every note on has its note off
  for (Voice& v : voices_) {
    if (!v.gate || v.key != key) continue;
    if (pedal_) {
      v.gate = false;
      v.sustained = true;
    } else {
      releaseVoice(v);
    }
  }
}

void Synth::pitchBend(int value) noexcept {
  bend_ = std::clamp(static_cast<float>(value - 8192) / 8192.0f, -1.0f, 1.0f);
}

void Synth::modWheel(int value) noexcept {
  modWheel_ = static_cast<float>(std::clamp(value, 0, 127)) / 127.0f;
}

void Synth::sustainPedal(bool down) noexcept {
  pedal_ = down;
  if (down) return;
  for (Voice& v : voices_) {
    if (v.sustained) releaseVoice(v);
  }
}

void Synth::allSoundOff() noexcept {
  for (Voice& v : voices_) {
    if (v.sounding()) v.killing = true;
  }
}

void Synth::allNotesOff() noexcept {
  pedal_ = false;
  for (Voice& v : voices_) {
    if (v.gate || v.sustained) releaseVoice(v);
  }
}

void Synth::resetControllers() noexcept {
  bend_ = 0;
  modWheel_ = 0;
  sustainPedal(false);
}

int Synth::soundingVoiceCount() const noexcept {
  return static_cast<int>(
      std::count_if(voices_.begin(), voices_.end(), [](const Voice& v) { return v.sounding(); }));
}

void Synth::updateControls(int frames) noexcept {
  float glide = std::min(1.0f, smoothing_ * static_cast<float>(frames));
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    if (kParameters[i].kind == Kind::Continuous) {
      smoothed_[i] += (targets_[i] - smoothed_[i]) * glide;
    } else {
      smoothed_[i] = targets_[i];
    }
  }
  lfoPhase_ += smoothed_[kLfoRate] * static_cast<float>(frames) / sampleRate_;
  lfoPhase_ -= std::floor(lfoPhase_);
  Controls& c = controls_;
  c.lfo = 1.0f - 4.0f * std::fabs(lfoPhase_ - 0.5f);

  // Mixing levels and the output gain move linearly across the period.
  auto ramp = [frames](std::array<float, kControlPeriod>& out, float& previous, float next) {
    float step = (next - previous) / static_cast<float>(frames);
    for (int i = 0; i < frames; ++i)
      out[i] = previous + step * static_cast<float>(i + 1);
    previous = next;
  };
  c.osc2On = previousLevel2_ != 0.0f || smoothed_[kOsc2Level] != 0.0f;
  c.noiseOn = previousNoise_ != 0.0f || smoothed_[kNoiseLevel] != 0.0f;
  ramp(c.level1, previousLevel1_, smoothed_[kOsc1Level]);
  ramp(c.level2, previousLevel2_, smoothed_[kOsc2Level]);
  ramp(c.noise, previousNoise_, smoothed_[kNoiseLevel]);
  ramp(c.gain, previousGain_, std::pow(10.0f, smoothed_[kVolume] / 20.0f));

  float widthMod = smoothed_[kLfoWidth] * c.lfo;
  c.width1 = std::clamp(smoothed_[kOsc1Width] + widthMod, 0.02f, 0.98f);
  c.width2 = std::clamp(smoothed_[kOsc2Width] + widthMod, 0.02f, 0.98f);
  c.wave1 = static_cast<int>(targets_[kOsc1Wave]);
  c.wave2 = static_cast<int>(targets_[kOsc2Wave]);
  c.filterType = static_cast<int>(targets_[kFilterType]);
  c.damping = 2.0f - 1.96f * smoothed_[kResonance];
  c.ampRates = EnvelopeRates::make(smoothed_[kAmpAttack], smoothed_[kAmpDecay],
                                   smoothed_[kAmpSustain], smoothed_[kAmpRelease], sampleRate_);
  c.filterRates =
      EnvelopeRates::make(smoothed_[kFilterAttack], smoothed_[kFilterDecay],
                          smoothed_[kFilterSustain], smoothed_[kFilterRelease], sampleRate_);
}

void Synth::updateVoice(Voice& v) noexcept {
  if (!std::isfinite(v.state1) || !std::isfinite(v.state2)) {
    v.silence();  // never let a blown-up filter reach the output
    return;
  }
  const float lfo = controls_.lfo;
  float vibrato = (smoothed_[kVibrato] + modWheel_ * smoothed_[kModWheelVibrato]) * lfo;
  float semitones = static_cast<float>(v.key - 69) + bend_ * kPitchBendSemitones + vibrato;
  float frequency1 = 440.0f * std::exp2(semitones / 12.0f);
  float interval2 = smoothed_[kOsc2Semitones] + smoothed_[kOsc2Detune] / 100.0f;
  float frequency2 = frequency1 * std::exp2(interval2 / 12.0f);
  v.increment1 = std::min(frequency1 / sampleRate_, kMaxIncrement);
  v.increment2 = std::min(frequency2 / sampleRate_, kMaxIncrement);

  float filterVelocity = smoothed_[kFilterVelocity];
  float envelopeDepth =
      smoothed_[kFilterEnvAmount] * (1.0f - filterVelocity + filterVelocity * v.velocity);
  float octaves = std::log2(smoothed_[kCutoff]) +
                  smoothed_[kKeyTracking] * static_cast<float>(v.key - 60) / 12.0f +
                  envelopeDepth * v.filter.level + smoothed_[kLfoCutoff] * lfo;
  float cutoff = std::clamp(std::exp2(octaves), 10.0f, kMaxCutoffFraction * sampleRate_);
  v.filterTarget = std::tan(std::numbers::pi_v<float> * cutoff / sampleRate_);
}

void Synth::renderVoice(Voice& v, float* mix, int frames) noexcept {
  const Controls& c = controls_;
  const float k = c.damping;
  float g = v.filterCoefficient;
  for (int i = 0; i < frames; ++i) {
    float source = c.level1[i] * oscillatorSample(c.wave1, v.phase1, v.increment1, c.width1);
    if (c.osc2On) {
      source += c.level2[i] * oscillatorSample(c.wave2, v.phase2, v.increment2, c.width2);
    }
    if (c.noiseOn) source += c.noise[i] * noiseSample(v.noise);
    v.phase1 = wrapPhase(v.phase1 + v.increment1);
    v.phase2 = wrapPhase(v.phase2 + v.increment2);

    // Trapezoidal state-variable filter: stable for every cutoff and resonance.
    g += (v.filterTarget - g) * kFilterGlide;
    float a1 = 1.0f / (1.0f + g * (g + k));
    float a2 = g * a1;
    float a3 = g * a2;
    float v3 = source - v.state2;
    float band = a1 * v.state1 + a2 * v3;
    float low = v.state2 + a2 * v.state1 + a3 * v3;
    v.state1 = 2.0f * band - v.state1;
    v.state2 = 2.0f * low - v.state2;
    float filtered = c.filterType == kLowPass    ? low
                     : c.filterType == kBandPass ? k * band
                                                 : source - k * band - low;

    v.filter.next(c.filterRates);
    float gain = v.amp.next(c.ampRates) * v.velocityGain;
    if (v.killing) {
      v.killGain -= kKillStep;
      gain *= std::max(v.killGain, 0.0f);
      if (v.killGain <= 0.0f) v.amp.reset();
    }
    mix[i] += filtered * gain;
    if (!v.amp.active()) {
      v.silence();
      return;
    }
  }
  v.filterCoefficient = g;
}

void Synth::render(float* left, float* right, std::uint32_t frames) noexcept {
  std::uint32_t done = 0;
  while (done < frames) {
    int n = static_cast<int>(std::min<std::uint32_t>(kControlPeriod, frames - done));
    updateControls(n);
    float mix[kControlPeriod] = {};
    for (Voice& v : voices_) {
      if (!v.sounding()) continue;
      updateVoice(v);
      if (v.sounding()) renderVoice(v, mix, n);
    }
    for (int i = 0; i < n; ++i) {
      float sample = mix[i] * controls_.gain[i];
      if (!std::isfinite(sample)) sample = 0;
      left[done + i] = sample;
      right[done + i] = sample;
    }
    done += static_cast<std::uint32_t>(n);
  }
}

}  // namespace pelma
