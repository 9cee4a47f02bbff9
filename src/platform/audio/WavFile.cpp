#include "platform/audio/WavFile.h"

#include <sndfile.h>

namespace platform {

bool writeWavFile(const std::filesystem::path& path,
                  const std::vector<std::vector<float>>& channels, double sampleRate) {
  if (channels.empty()) return false;
  SF_INFO info{};
  info.samplerate = static_cast<int>(sampleRate);
  info.channels = static_cast<int>(channels.size());
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (!file) return false;
  const std::size_t frames = channels.front().size();
  std::vector<float> interleaved(frames * channels.size());
  for (std::size_t i = 0; i < frames; ++i) {
    for (std::size_t c = 0; c < channels.size(); ++c)
      interleaved[i * channels.size() + c] = channels[c][i];
  }
  const auto written = sf_writef_float(file, interleaved.data(), static_cast<sf_count_t>(frames));
  sf_close(file);
  return written == static_cast<sf_count_t>(frames);
}

std::vector<std::vector<float>> readWavFile(const std::filesystem::path& path, double* sampleRate) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (!file) return {};
  std::vector<float> interleaved(static_cast<std::size_t>(info.frames * info.channels));
  sf_readf_float(file, interleaved.data(), info.frames);
  sf_close(file);
  std::vector<std::vector<float>> channels(info.channels, std::vector<float>(info.frames));
  for (sf_count_t i = 0; i < info.frames; ++i) {
    for (int c = 0; c < info.channels; ++c)
      channels[c][i] = interleaved[i * info.channels + c];
  }
  if (sampleRate) *sampleRate = info.samplerate;
  return channels;
}

}  // namespace platform
