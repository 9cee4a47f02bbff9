// Renders a short phrase through the built plug-in (three instances: pad chords, bass, lead) and
// writes it as a mono 16-bit WAV, for people to hear what the instrument sounds like:
//
//   pelma_render_phrase OUTPUT.wav

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "OfflineRig.h"

namespace {

constexpr double kRate = 32000;  // keeps the file small; the sound is far below 16 kHz anyway
constexpr double kBeat = 0.5;    // 120 beats per minute
constexpr int kBeats = 8;
constexpr double kTail = 1.0;

struct Note {
  double beat, length;
  std::uint8_t key, velocity;
};

std::vector<float> play(std::uint8_t program, const std::vector<Note>& notes) {
  const std::uint32_t block = 64;  // 2 ms: notes land close to their time
  testing_support::OfflineRig synth("Pelma", block, kRate);
  synth.unit->sendMIDIEvent(0xC0, program, 0, 0);
  const auto total = static_cast<std::uint32_t>((kBeats * kBeat + kTail) * kRate);
  std::vector<float> sound;
  for (std::uint32_t frame = 0; frame < total; frame += block) {
    double from = frame / kRate / kBeat, to = (frame + block) / kRate / kBeat;
    for (const Note& n : notes) {
      if (n.beat >= from && n.beat < to) synth.unit->sendMIDIEvent(0x90, n.key, n.velocity, 0);
      double end = n.beat + n.length;
      if (end >= from && end < to) synth.unit->sendMIDIEvent(0x80, n.key, 64, 0);
    }
    const auto part = synth.render(block);
    sound.insert(sound.end(), part.begin(), part.end());
  }
  return sound;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: pelma_render_phrase OUTPUT.wav\n");
    return 2;
  }
  setenv("LV2_PATH", PELMA_LV2_DIR ":/usr/lib/lv2", 0);
  std::vector<Note> pad, bass, lead;
  const std::uint8_t chords[4][4] = {
      {60, 64, 67, 71}, {57, 60, 64, 67}, {53, 57, 60, 64}, {55, 59, 62, 65}};
  const std::uint8_t roots[4] = {36, 33, 29, 31};
  for (int bar = 0; bar < 4; ++bar) {
    for (auto key : chords[bar])
      pad.push_back({bar * 2.0, 1.9, key, 80});
    bass.push_back({bar * 2.0, 0.9, roots[bar], 110});
    bass.push_back({bar * 2.0 + 1.0, 0.4, static_cast<std::uint8_t>(roots[bar] + 12), 90});
    bass.push_back({bar * 2.0 + 1.5, 0.4, static_cast<std::uint8_t>(roots[bar] + 7), 90});
  }
  const std::uint8_t melody[] = {76, 79, 81, 79, 76, 74, 72, 74, 76, 74, 72, 71, 72, 74, 79, 76};
  for (int i = 0; i < 16; ++i)
    lead.push_back({i * 0.5, i == 15 ? 1.0 : 0.45, melody[i], 100});

  auto a = play(1, pad), b = play(3, bass), c = play(2, lead);  // Warm Pad, Round Bass, Bright Lead
  std::vector<float> mix(a.size());
  float peak = 0;
  for (std::size_t i = 0; i < mix.size(); ++i) {
    mix[i] = 0.8f * a[i] + 0.9f * b[i] + 0.7f * c[i];
    peak = std::max(peak, std::fabs(mix[i]));
  }
  for (float& s : mix)
    s *= 0.85f / peak;

  SF_INFO info{};
  info.samplerate = static_cast<int>(kRate);
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* file = sf_open(argv[1], SFM_WRITE, &info);
  if (!file) {
    std::fprintf(stderr, "cannot write %s: %s\n", argv[1], sf_strerror(nullptr));
    return 1;
  }
  sf_writef_float(file, mix.data(), static_cast<sf_count_t>(mix.size()));
  sf_close(file);
  std::printf("wrote %s: %.1f s, peak before normalising %.3f\n", argv[1], mix.size() / kRate,
              peak);
  return 0;
}
