#pragma once

// Measurements of rendered audio for tests: level and pitch.

#include <cstddef>
#include <vector>

namespace testing_support {

double rms(const float* samples, std::size_t count);
double peak(const float* samples, std::size_t count);

// The fundamental frequency of a steady tone, found as the lag of the highest normalised
// autocorrelation between `lowHz` and `highHz`, refined by parabolic interpolation.
double estimatePitch(const float* samples, std::size_t count, double sampleRate, double lowHz,
                     double highHz);

// The difference between two frequencies in cents.
double cents(double frequency, double reference);

// Renders frames through a graph-like callable in blocks and collects channel 0.
template <typename Render>
std::vector<float> renderMono(Render&& render, std::size_t frames, std::size_t block) {
  std::vector<float> left(frames), right(frames);
  for (std::size_t done = 0; done < frames; done += block) {
    const std::size_t n = frames - done < block ? frames - done : block;
    float* out[2] = {left.data() + done, right.data() + done};
    render(static_cast<unsigned>(n), out);
  }
  return left;
}

}  // namespace testing_support
