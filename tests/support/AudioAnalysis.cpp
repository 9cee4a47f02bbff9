#include "AudioAnalysis.h"

#include <algorithm>
#include <cmath>

namespace testing_support {

double rms(const float* samples, std::size_t count) {
  double sum = 0.0;
  for (std::size_t i = 0; i < count; ++i)
    sum += double(samples[i]) * samples[i];
  return count ? std::sqrt(sum / count) : 0.0;
}

double peak(const float* samples, std::size_t count) {
  double result = 0.0;
  for (std::size_t i = 0; i < count; ++i)
    result = std::max(result, std::fabs(double(samples[i])));
  return result;
}

double estimatePitch(const float* samples, std::size_t count, double sampleRate, double lowHz,
                     double highHz) {
  const auto minLag = static_cast<std::size_t>(sampleRate / highHz);
  const auto maxLag = static_cast<std::size_t>(sampleRate / lowHz) + 1;
  if (count <= maxLag + 2) return 0.0;
  const std::size_t window = count - maxLag - 2;
  auto correlation = [&](std::size_t lag) {
    double sum = 0.0, energyA = 0.0, energyB = 0.0;
    for (std::size_t i = 0; i < window; ++i) {
      sum += double(samples[i]) * samples[i + lag];
      energyA += double(samples[i]) * samples[i];
      energyB += double(samples[i + lag]) * samples[i + lag];
    }
    return sum / std::sqrt(energyA * energyB + 1e-30);
  };
  std::size_t best = minLag;
  double bestValue = -2.0;
  for (std::size_t lag = minLag; lag <= maxLag; ++lag) {
    const double value = correlation(lag);
    if (value > bestValue) {
      bestValue = value;
      best = lag;
    }
  }
  const double before = correlation(best - 1), after = correlation(best + 1);
  const double curvature = before - 2 * bestValue + after;
  const double shift = curvature != 0.0 ? 0.5 * (before - after) / curvature : 0.0;
  return sampleRate / (double(best) + shift);
}

double cents(double frequency, double reference) {
  return 1200.0 * std::log2(frequency / reference);
}

double largestCurvature(const float* samples, std::size_t count) {
  double result = 0.0;
  for (std::size_t i = 2; i < count; ++i)
    result =
        std::max(result, std::fabs(double(samples[i]) - 2.0 * samples[i - 1] + samples[i - 2]));
  return result;
}

std::size_t nonFiniteCount(const float* samples, std::size_t count) {
  return static_cast<std::size_t>(
      std::count_if(samples, samples + count, [](float s) { return !std::isfinite(s); }));
}

std::size_t denormalCount(const float* samples, std::size_t count) {
  return static_cast<std::size_t>(std::count_if(
      samples, samples + count, [](float s) { return std::fpclassify(s) == FP_SUBNORMAL; }));
}

double spectralCentroid(const float* samples, std::size_t count, double sampleRate) {
  const std::size_t n = std::min<std::size_t>(count, 4096);
  if (n < 2) return 0.0;
  constexpr double pi = 3.14159265358979323846;
  double weighted = 0.0, total = 0.0;
  for (std::size_t bin = 1; bin < n / 2; ++bin) {
    double re = 0.0, im = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
      const double window = 0.5 - 0.5 * std::cos(2.0 * pi * i / (n - 1));
      const double phase = 2.0 * pi * bin * i / n;
      re += samples[i] * window * std::cos(phase);
      im -= samples[i] * window * std::sin(phase);
    }
    const double magnitude = std::sqrt(re * re + im * im);
    weighted += magnitude * bin * sampleRate / n;
    total += magnitude;
  }
  return total > 0.0 ? weighted / total : 0.0;
}

}  // namespace testing_support
