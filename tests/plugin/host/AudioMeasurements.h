#pragma once

// Measurements on rendered audio.

#include <cstddef>
#include <vector>

namespace audio {

// Frequency from rising zero crossings, interpolated between samples: exact to far below a cent
// for a periodic signal with one rising crossing per cycle. 0 when there are fewer than two.
double frequency(const std::vector<float>& samples, double sampleRate, std::size_t from = 0);

double rms(const std::vector<float>& samples, std::size_t from = 0, std::size_t to = 0);
float peak(const std::vector<float>& samples, std::size_t from = 0, std::size_t to = 0);

// The largest |second difference|: near zero for smooth signals, large at a click.
float largestCurvature(const std::vector<float>& samples, std::size_t from, std::size_t to);

// Samples that are NaN or infinite, and samples that are denormal.
std::size_t nonFiniteCount(const std::vector<float>& samples);
std::size_t denormalCount(const std::vector<float>& samples);

// 1200 * log2(a / b).
double cents(double a, double b);

}  // namespace audio
