#pragma once

#include <filesystem>
#include <vector>

namespace platform {

// Writes de-interleaved float channels as a 32-bit float WAV file; false when it cannot.
bool writeWavFile(const std::filesystem::path& path,
                  const std::vector<std::vector<float>>& channels, double sampleRate);

// Reads a WAV file into de-interleaved float channels; empty when it cannot.
std::vector<std::vector<float>> readWavFile(const std::filesystem::path& path, double* sampleRate);

}  // namespace platform
