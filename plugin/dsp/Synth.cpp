#include "dsp/Synth.h"

#include <cmath>

namespace pelma {

Synth::Synth(double sampleRate)
    : sampleRate_(static_cast<float>(sampleRate)),
      targets_(defaultParameterValues()),
      smoothed_(targets_),
      // Parameters glide with a 10 ms time constant.
      smoothing_(1.0f - std::exp(-1.0f / (0.01f * static_cast<float>(sampleRate)))) {
  for (int i = 0; i < kVoiceCount; ++i) {
    voices_[i].noise = 0x9E3779B9u * static_cast<std::uint32_t>(i + 1);
  }
  previousLevel1_ = targets_[kOsc1Level];
  previousLevel2_ = targets_[kOsc2Level];
  previousNoise_ = targets_[kNoiseLevel];
  previousGain_ = std::pow(10.0f, targets_[kVolume] / 20.0f);
}

}  // namespace pelma
