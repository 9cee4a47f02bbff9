// CPU cost of Pelma against two Debian LV2 instruments: each renders the same 10 s of 8-note
// chords at 48 kHz (256-frame blocks) through the host's audio unit in an offline graph. Prints the
// CPU time of each and its ratio to Pelma's, all from one run.

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "AudioAnalysis.h"
#include "OfflineRig.h"

namespace {

constexpr double kRate = 48000;
constexpr std::uint32_t kBlock = 256;
constexpr double kSeconds = 10;
constexpr double kChordSeconds = 0.5;

struct Result {
  std::string name;
  double cpuSeconds = 0;
  double rms = 0;
};

double threadCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Twenty chords of eight notes, moving through a progression.
std::vector<std::vector<std::uint8_t>> chords() {
  const std::vector<std::vector<std::uint8_t>> shapes = {
      {48, 55, 60, 64, 67, 71, 74, 79},
      {45, 52, 57, 60, 64, 67, 72, 76},
      {41, 48, 53, 57, 60, 64, 69, 72},
      {43, 50, 55, 59, 62, 65, 71, 74},
  };
  std::vector<std::vector<std::uint8_t>> result;
  for (int i = 0; i < static_cast<int>(kSeconds / kChordSeconds); ++i)
    result.push_back(shapes[i % 4]);
  return result;
}

Result measure(const std::string& name) {
  testing_support::OfflineRig synth(name, kBlock, kRate);
  if (!synth.unit) throw std::runtime_error("not installed");
  synth.render(kBlock);  // first block outside the measurement
  std::vector<float> sound;
  double start = threadCpuSeconds();
  const std::vector<std::uint8_t>* previous = nullptr;
  const auto progression = chords();
  for (const auto& chord : progression) {
    if (previous) {
      for (auto key : *previous)
        synth.unit->sendMIDIEvent(0x80, key, 64, 0);
    }
    for (auto key : chord)
      synth.unit->sendMIDIEvent(0x90, key, 100, 0);
    const auto part = synth.render(static_cast<std::size_t>(kChordSeconds * kRate));
    sound.insert(sound.end(), part.begin(), part.end());
    previous = &chord;
  }
  return {name, threadCpuSeconds() - start, testing_support::rms(sound.data(), sound.size())};
}

}  // namespace

int main() {
  setenv("LV2_PATH", PELMA_LV2_DIR ":/usr/lib/lv2", 0);
  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  std::vector<Result> results;
  for (const char* name : {"Pelma", "MDA JX10", "synthv1"}) {
    try {
      results.push_back(measure(name));
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s: %s\n", name, error.what());
    }
  }
  if (results.empty() || results[0].name != "Pelma") return 1;
  std::printf("%.0f s of 8-note chords at %.0f Hz, %u-frame blocks\n", kSeconds, kRate, kBlock);
  std::printf("%-10s %12s %14s %14s %10s\n", "instrument", "CPU (s)", "x real time",
              "ratio to Pelma", "RMS");
  for (const Result& r : results) {
    std::printf("%-10s %12.3f %14.1f %14.2f %10.4f\n", r.name.c_str(), r.cpuSeconds,
                kSeconds / r.cpuSeconds, r.cpuSeconds / results[0].cpuSeconds, r.rms);
  }
  return 0;
}
