#pragma once

#include <cstdint>

namespace platform {

// A stream format: de-interleaved 32-bit float, `channels` channels at `sampleRate` frames/s.
struct AudioFormat {
  double sampleRate = 0.0;
  std::uint32_t channels = 0;

  friend bool operator==(const AudioFormat&, const AudioFormat&) = default;
};

// The standard format: de-interleaved float, as every node of the graph renders.
inline AudioFormat standardFormat(double sampleRate, std::uint32_t channels) {
  return AudioFormat{sampleRate, channels};
}

}  // namespace platform
