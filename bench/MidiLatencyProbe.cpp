// Measures the time from a JACK MIDI note on to the first sound of it at a host's audio output, in
// frames: it sends a note on at frame FRAME of a period (default 0) into MIDI-DESTINATION, listens
// on the first audio output port whose name matches AUDIO-PORT-REGEX, and notes the frame where the
// output first rises above -80 dBFS. Between notes it sends all notes off and waits for silence.
//
//   bench_midi_latency_probe MIDI-DESTINATION AUDIO-PORT-REGEX [NOTES [FRAME]]   (default 20 notes)
// Prints every latency, then min, median and max, and the period size. A host that keeps each
// event's frame within the period measures the same latency whatever FRAME is.

#include <jack/jack.h>
#include <jack/midiport.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr float kThreshold = 1e-4f;  // -80 dBFS
constexpr int kMaxNotes = 256;

struct Probe {
  jack_client_t* client = nullptr;
  jack_port_t* midiOut = nullptr;
  jack_port_t* audioIn = nullptr;
  int wanted = 20;
  jack_nframes_t frame = 0;  // where in the period each note on is sent
  // Written by the process thread only; `count` publishes the results to the main thread.
  std::int64_t results[kMaxNotes] = {};
  std::atomic<int> count{0};
  enum class Phase { settle, waitForSound, release } phase = Phase::settle;
  jack_nframes_t sentAt = 0;
  jack_nframes_t quietSince = 0;
  bool quiet = false;
};

int process(jack_nframes_t frames, void* arg) {
  auto* p = static_cast<Probe*>(arg);
  void* midi = jack_port_get_buffer(p->midiOut, frames);
  jack_midi_clear_buffer(midi);
  const auto* audio = static_cast<const float*>(jack_port_get_buffer(p->audioIn, frames));
  const jack_nframes_t now = jack_last_frame_time(p->client);
  const jack_nframes_t rate = jack_get_sample_rate(p->client);
  // Done once the last note is released (a note left on would keep the next run from silence).
  if (p->count.load() >= p->wanted && p->phase != Probe::Phase::release) return 0;

  float loudest = 0.0f;
  jack_nframes_t firstLoud = frames;
  for (jack_nframes_t i = 0; i < frames; ++i) {
    const float level = std::fabs(audio[i]);
    loudest = std::max(loudest, level);
    if (level > kThreshold && firstLoud == frames) firstLoud = i;
  }

  switch (p->phase) {
    case Probe::Phase::settle:
      // Wait for half a second of silence, then strike.
      if (loudest > kThreshold) {
        p->quiet = false;
      } else if (!p->quiet) {
        p->quiet = true;
        p->quietSince = now;
      } else if (now - p->quietSince > rate / 2) {
        const unsigned char on[3] = {0x90, 69, 100};
        jack_midi_event_write(midi, p->frame, on, 3);
        p->sentAt = now + p->frame;
        p->phase = Probe::Phase::waitForSound;
      }
      break;
    case Probe::Phase::waitForSound:
      if (firstLoud < frames) {
        const int n = p->count.load();
        p->results[n] = static_cast<std::int64_t>(now + firstLoud) - p->sentAt;
        p->count.store(n + 1);
        p->phase = Probe::Phase::release;
      } else if (now - p->sentAt > rate) {  // no sound within a second: count it as lost
        p->results[p->count.load()] = -1;
        p->count.fetch_add(1);
        p->phase = Probe::Phase::release;
      }
      break;
    case Probe::Phase::release: {
      const unsigned char off[3] = {0x80, 69, 0};
      const unsigned char allOff[3] = {0xB0, 123, 0};
      jack_midi_event_write(midi, 0, off, 3);
      jack_midi_event_write(midi, 1, allOff, 3);
      p->quiet = false;
      p->phase = Probe::Phase::settle;
      break;
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s MIDI-DESTINATION AUDIO-PORT-REGEX [NOTES [FRAME]]\n", argv[0]);
    return 2;
  }
  Probe probe;
  probe.wanted = std::clamp(argc > 3 ? std::atoi(argv[3]) : 20, 1, kMaxNotes);
  probe.frame = static_cast<jack_nframes_t>(std::max(argc > 4 ? std::atoi(argv[4]) : 0, 0));
  probe.client = jack_client_open("pelma-latency-probe", JackNoStartServer, nullptr);
  if (!probe.client) {
    std::fprintf(stderr, "no JACK server\n");
    return 1;
  }
  probe.midiOut =
      jack_port_register(probe.client, "midi_out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
  probe.audioIn =
      jack_port_register(probe.client, "audio_in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
  jack_set_process_callback(probe.client, process, &probe);
  probe.frame = std::min(probe.frame, jack_get_buffer_size(probe.client) - 1);
  jack_activate(probe.client);

  const char** sources =
      jack_get_ports(probe.client, argv[2], JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput);
  if (!sources || !sources[0]) {
    std::fprintf(stderr, "no audio output port matches %s\n", argv[2]);
    jack_client_close(probe.client);
    return 1;
  }
  const bool connected = jack_connect(probe.client, jack_port_name(probe.midiOut), argv[1]) == 0 &&
                         jack_connect(probe.client, sources[0], jack_port_name(probe.audioIn)) == 0;
  std::printf("probe: MIDI into %s, listening to %s\n", argv[1], sources[0]);
  jack_free(sources);
  if (!connected) {
    std::fprintf(stderr, "cannot connect the probe\n");
    jack_client_close(probe.client);
    return 1;
  }

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5 + probe.wanted);
  while (probe.count.load() < probe.wanted && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the last note's release
  const jack_nframes_t period = jack_get_buffer_size(probe.client);
  jack_client_close(probe.client);

  std::vector<std::int64_t> latencies(probe.results, probe.results + probe.count.load());
  std::printf("latencies (frames):");
  for (auto l : latencies)
    std::printf(" %lld", static_cast<long long>(l));
  std::printf("\n");
  std::erase(latencies, -1);
  if (latencies.empty()) {
    std::printf("no note was heard\n");
    return 1;
  }
  std::sort(latencies.begin(), latencies.end());
  std::printf("min %lld  median %lld  max %lld frames  (period %u frames)\n",
              static_cast<long long>(latencies.front()),
              static_cast<long long>(latencies[latencies.size() / 2]),
              static_cast<long long>(latencies.back()), period);
  return 0;
}
