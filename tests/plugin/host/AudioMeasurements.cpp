#include "AudioMeasurements.h"

#include <algorithm>
#include <cmath>

namespace audio {
namespace {

std::size_t endOf(const std::vector<float>& samples, std::size_t to) {
  return to == 0 ? samples.size() : std::min(to, samples.size());
}

}  // namespace

double frequency(const std::vector<float>& samples, double sampleRate, std::size_t from) {
  double first = -1, last = -1;
  std::size_t crossings = 0;
  for (std::size_t i = std::max<std::size_t>(from, 1); i < samples.size(); ++i) {
    float a = samples[i - 1], b = samples[i];
    if (a < 0 && b >= 0) {
      double at = static_cast<double>(i - 1) + a / static_cast<double>(a - b);
      if (crossings == 0) first = at;
      last = at;
      ++crossings;
    }
  }
  if (crossings < 2) return 0;
  return static_cast<double>(crossings - 1) * sampleRate / (last - first);
}

double rms(const std::vector<float>& samples, std::size_t from, std::size_t to) {
  to = endOf(samples, to);
  if (to <= from) return 0;
  double sum = 0;
  for (std::size_t i = from; i < to; ++i)
    sum += static_cast<double>(samples[i]) * samples[i];
  return std::sqrt(sum / static_cast<double>(to - from));
}

float peak(const std::vector<float>& samples, std::size_t from, std::size_t to) {
  to = endOf(samples, to);
  float result = 0;
  for (std::size_t i = from; i < to; ++i)
    result = std::max(result, std::fabs(samples[i]));
  return result;
}

float largestCurvature(const std::vector<float>& samples, std::size_t from, std::size_t to) {
  to = endOf(samples, to);
  float result = 0;
  for (std::size_t i = std::max<std::size_t>(from, 2); i < to; ++i) {
    result = std::max(result, std::fabs(samples[i] - 2 * samples[i - 1] + samples[i - 2]));
  }
  return result;
}

std::size_t nonFiniteCount(const std::vector<float>& samples) {
  return static_cast<std::size_t>(
      std::count_if(samples.begin(), samples.end(), [](float s) { return !std::isfinite(s); }));
}

std::size_t denormalCount(const std::vector<float>& samples) {
  return static_cast<std::size_t>(std::count_if(
      samples.begin(), samples.end(), [](float s) { return std::fpclassify(s) == FP_SUBNORMAL; }));
}

double cents(double a, double b) {
  return 1200.0 * std::log2(a / b);
}

}  // namespace audio
