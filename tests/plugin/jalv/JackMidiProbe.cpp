// A small JACK client that plays an outside host's instrument: it connects its MIDI output to the
// client's "control" port and the client's "out_left" port to its audio input, plays A4 for one
// second, records two seconds and prints the level and pitch it heard. The pitch only has to be
// the right note: a loaded machine drops blocks (xruns), which breaks the waveform's periods.
//
//   pelma_jack_probe CLIENT_NAME    exit status 0 when the sound is there and in tune

#include <jack/jack.h>
#include <jack/midiport.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/AudioAnalysis.h"

namespace {

struct Probe {
  jack_port_t* midiOut = nullptr;
  jack_port_t* audioIn = nullptr;
  std::vector<float> recording;
  std::atomic<bool> go{false};  // set once the ports are connected
  std::atomic<std::size_t> recorded{0};
  std::size_t noteOffAt = 0;
  bool noteOnSent = false, noteOffSent = false;
};

// JACK's process thread: sends the note and records, without allocating.
int process(jack_nframes_t frames, void* arg) {
  auto* probe = static_cast<Probe*>(arg);
  void* midi = jack_port_get_buffer(probe->midiOut, frames);
  jack_midi_clear_buffer(midi);
  if (!probe->go.load(std::memory_order_acquire)) return 0;
  std::size_t at = probe->recorded.load(std::memory_order_relaxed);
  if (!probe->noteOnSent) {
    const jack_midi_data_t on[3] = {0x90, 69, 100};
    probe->noteOnSent = jack_midi_event_write(midi, 0, on, 3) == 0;
  } else if (!probe->noteOffSent && at >= probe->noteOffAt) {
    const jack_midi_data_t off[3] = {0x80, 69, 64};
    probe->noteOffSent = jack_midi_event_write(midi, 0, off, 3) == 0;
  }
  auto* input = static_cast<const float*>(jack_port_get_buffer(probe->audioIn, frames));
  std::size_t n = std::min<std::size_t>(frames, probe->recording.size() - at);
  for (std::size_t i = 0; i < n; ++i)
    probe->recording[at + i] = input[i];
  probe->recorded.store(at + n, std::memory_order_release);
  return 0;
}

bool waitForPort(jack_client_t* client, const std::string& name) {
  for (int i = 0; i < 200; ++i) {
    if (jack_port_by_name(client, name.c_str())) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: pelma_jack_probe CLIENT_NAME\n");
    return 2;
  }
  std::string target = argv[1];
  jack_client_t* client = nullptr;
  for (int attempt = 0; attempt < 50 && !client; ++attempt) {
    client = jack_client_open("pelma_probe", JackNoStartServer, nullptr);
    if (!client) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  if (!client) {
    std::fprintf(stderr, "probe: no JACK server\n");
    return 1;
  }
  double rate = jack_get_sample_rate(client);
  Probe probe;
  probe.recording.assign(static_cast<std::size_t>(2 * rate), 0.0f);
  probe.noteOffAt = static_cast<std::size_t>(rate);
  probe.midiOut =
      jack_port_register(client, "midi_out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
  probe.audioIn = jack_port_register(client, "in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);

  std::string control = target + ":control", left = target + ":out_left";
  if (!waitForPort(client, control) || !waitForPort(client, left)) {
    std::fprintf(stderr, "probe: %s has no control/out_left ports\n", target.c_str());
    jack_client_close(client);
    return 1;
  }
  jack_set_process_callback(client, process, &probe);
  jack_activate(client);
  int connected = jack_connect(client, jack_port_name(probe.midiOut), control.c_str()) |
                  jack_connect(client, left.c_str(), jack_port_name(probe.audioIn));
  if (connected != 0) std::fprintf(stderr, "probe: could not connect the ports\n");
  probe.go.store(true, std::memory_order_release);

  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (probe.recorded.load(std::memory_order_acquire) < probe.recording.size() &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  jack_deactivate(client);
  jack_client_close(client);

  std::size_t held = static_cast<std::size_t>(rate);
  std::vector<float> note(probe.recording.begin() + static_cast<std::ptrdiff_t>(held / 4),
                          probe.recording.begin() + static_cast<std::ptrdiff_t>(held));
  using namespace testing_support;
  double level = rms(note.data(), note.size());
  double pitch = estimatePitch(note.data(), note.size(), rate, 200, 1000);
  const std::size_t released = held + held / 2;
  double tail = rms(probe.recording.data() + released, probe.recording.size() - released);
  std::printf(
      "recorded %zu frames at %.0f Hz: note RMS %.4f, pitch %.3f Hz (%+.3f cents from 440), "
      "RMS after release %.6f\n",
      probe.recorded.load(), rate, level, pitch, pitch > 0 ? cents(pitch, 440) : 0.0, tail);
  bool ok = level > 0.01 && pitch > 0 && std::fabs(cents(pitch, 440)) < 50 && tail < 1e-4;
  return ok ? 0 : 1;
}
