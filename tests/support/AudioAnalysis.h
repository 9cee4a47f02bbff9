#pragma once

// Measurements of rendered audio for tests: level, pitch, clicks and broken samples.

#include <cstddef>

namespace testing_support {

double rms(const float* samples, std::size_t count);
double peak(const float* samples, std::size_t count);

// The fundamental frequency of a steady tone, found as the lag of the highest normalised
// autocorrelation between `lowHz` and `highHz`, refined by parabolic interpolation.
double estimatePitch(const float* samples, std::size_t count, double sampleRate, double lowHz,
                     double highHz);

// The difference between two frequencies in cents.
double cents(double frequency, double reference);

// The largest |second difference|: near zero for smooth signals, large at a click.
double largestCurvature(const float* samples, std::size_t count);

// The spectral centroid in Hz (the magnitude-weighted mean frequency) of the first 4096 samples
// at most, Hann-windowed: where a filter's cutoff is heard.
double spectralCentroid(const float* samples, std::size_t count, double sampleRate);

// Samples that are NaN or infinite, and samples that are denormal.
std::size_t nonFiniteCount(const float* samples, std::size_t count);
std::size_t denormalCount(const float* samples, std::size_t count);

}  // namespace testing_support
