#pragma once

// A JACK client of the test that listens to one output port and keeps the loudest block's RMS,
// to tell whether the application or the graph is heard on the server, and on request records
// what it hears.

#include <jack/jack.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "support/Processes.h"

namespace testing_support {

class JackListener {
 public:
  // Connects to the first output port matching `portPattern`; false when there is none.
  bool connect(const std::string& portPattern) {
    if (!client_) client_ = jack_client_open("pelma-test-listener", JackNoStartServer, nullptr);
    if (!client_) return false;
    if (!input_) {
      input_ = jack_port_register(client_, "in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
      jack_set_process_callback(client_, process, this);
      jack_activate(client_);
    }
    const char** ports =
        jack_get_ports(client_, portPattern.c_str(), JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput);
    const bool found =
        ports && ports[0] && jack_connect(client_, ports[0], jack_port_name(input_)) == 0;
    if (ports) jack_free(ports);
    return found;
  }
  ~JackListener() {
    if (client_) jack_client_close(client_);
  }
  // The loudest block since the last call.
  double takeLoudest() { return loudest_.exchange(0.0); }
  // Whether a block louder than `level` arrives within five seconds from now.
  bool hears(double level) {
    takeLoudest();
    return waitFor([&] { return loudest_ > level; }, std::chrono::seconds(5));
  }
  void setPeriod(jack_nframes_t frames) { jack_set_buffer_size(client_, frames); }
  // Keeps `frames` samples from the first block louder than `level` on. Called before connect();
  // recording() may be read once recorded() says it is full.
  void record(std::size_t frames, double level) {
    recording_.assign(frames, 0.0f);
    recordFrom_ = level;
  }
  bool recorded() const { return filled_.load(std::memory_order_acquire) == recording_.size(); }
  const std::vector<float>& recording() const { return recording_; }

 private:
  // JACK hands the buffer from the other client to this one inside libjack, which
  // ThreadSanitizer does not see: the reads here are not instrumented.
  __attribute__((no_sanitize("thread"))) static int process(jack_nframes_t frames, void* self) {
    auto* listener = static_cast<JackListener*>(self);
    const auto* samples = static_cast<const float*>(jack_port_get_buffer(listener->input_, frames));
    double squares = 0.0;  // summed here, not in rms(): a call would read them instrumented
    for (jack_nframes_t i = 0; i < frames; ++i)
      squares += static_cast<double>(samples[i]) * samples[i];
    const double level = frames ? std::sqrt(squares / frames) : 0.0;
    const std::size_t at = listener->filled_.load(std::memory_order_relaxed);
    if (at < listener->recording_.size() && (at > 0 || level > listener->recordFrom_)) {
      const std::size_t n = std::min<std::size_t>(frames, listener->recording_.size() - at);
      std::copy_n(samples, n, listener->recording_.data() + at);
      listener->filled_.store(at + n, std::memory_order_release);
    }
    double previous = listener->loudest_.load();
    while (level > previous && !listener->loudest_.compare_exchange_weak(previous, level)) {
    }
    return 0;
  }

  jack_client_t* client_ = nullptr;
  jack_port_t* input_ = nullptr;
  std::atomic<double> loudest_{0.0};
  std::vector<float> recording_;
  double recordFrom_ = 0.0;
  std::atomic<std::size_t> filled_{0};
};

}  // namespace testing_support
