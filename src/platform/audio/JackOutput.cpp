// The JACK output: a libjack client of its own with two output ports, connected to the system's
// playback ports unless PELMA_JACK_NO_CONNECT is set. It follows the server's period as it
// changes (every block is rendered at whatever length JACK asks for) and reports the server
// going away or changing its rate through the renderer's outputChanged, so nothing needs to poll.

#include <jack/jack.h>

#include <atomic>
#include <cstdlib>

#include "platform/audio/AudioOutput.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

class JackOutput final : public AudioOutput {
 public:
  JackOutput(AudioRenderer& renderer, jack_client_t* client)
      : renderer_(renderer), client_(client) {
    openedRate_ = jack_get_sample_rate(client_);
    sampleRate_ = openedRate_;
    bufferFrames_ = jack_get_buffer_size(client_);
  }
  ~JackOutput() override {
    stop();
    jack_client_close(client_);
  }

  // False when the ports or callbacks cannot be set up.
  bool setUp() {
    ports_[0] = jack_port_register(client_, "out_1", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    ports_[1] = jack_port_register(client_, "out_2", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    return ports_[0] && ports_[1] && jack_set_process_callback(client_, &process, this) == 0 &&
           jack_set_buffer_size_callback(client_, &bufferSizeChanged, this) == 0 &&
           jack_set_sample_rate_callback(client_, &sampleRateChanged, this) == 0 &&
           (jack_on_info_shutdown(client_, &serverShutDown, this), true);
  }

  bool start() override {
    if (active_) return true;
    if (!isAlive() || jack_activate(client_) != 0) {
      log("Audio output {} could not start", name());
      return false;
    }
    active_ = true;
    if (std::getenv("PELMA_JACK_NO_CONNECT")) return true;
    // Connections end with deactivation: made again on every start.
    const char** playback = jack_get_ports(client_, nullptr, JACK_DEFAULT_AUDIO_TYPE,
                                           JackPortIsPhysical | JackPortIsInput);
    for (int i = 0; playback && playback[i] && i < 2; ++i) {
      jack_connect(client_, jack_port_name(ports_[i]), playback[i]);
      // A mono device hears the left channel only.
    }
    jack_free(playback);
    return true;
  }

  void stop() override {
    if (!active_) return;
    // A server that has gone away cannot be asked anything; its client just ends.
    if (isAlive()) jack_deactivate(client_);
    active_ = false;
  }

  // False once the server has shut down, or runs at another rate than the one opened at (the
  // graph then opens the output again and re-creates its instruments at the new rate).
  bool isAlive() const override {
    return !shutDown_.load(std::memory_order_acquire) &&
           sampleRate_.load(std::memory_order_acquire) == openedRate_;
  }
  bool reportsChanges() const override { return true; }
  double sampleRate() const override { return sampleRate_.load(std::memory_order_acquire); }
  std::uint32_t bufferFrames() const override {
    return bufferFrames_.load(std::memory_order_acquire);
  }
  std::string name() const override {
    return std::getenv("PELMA_JACK_NO_CONNECT") ? "JACK (not connected)" : "JACK (system)";
  }
  std::uint64_t blocksRendered() const override { return blocks_.load(std::memory_order_acquire); }

 private:
  // Audio thread (JACK's process thread).
  static int process(jack_nframes_t frames, void* user) noexcept PELMA_NONBLOCKING {
    auto* self = static_cast<JackOutput*>(user);
    float* channels[2] = {static_cast<float*>(jack_port_get_buffer(self->ports_[0], frames)),
                          static_cast<float*>(jack_port_get_buffer(self->ports_[1], frames))};
    self->renderer_.render(self, channels, 2, frames);
    // Only this thread counts: a plain store, not a locked read-modify-write, every period.
    self->blocks_.store(self->blocks_.load(std::memory_order_relaxed) + 1,
                        std::memory_order_release);
    return 0;
  }

  // JACK's notification thread: the next blocks have this length; render() takes any length.
  static int bufferSizeChanged(jack_nframes_t frames, void* user) noexcept {
    static_cast<JackOutput*>(user)->bufferFrames_.store(frames, std::memory_order_release);
    return 0;
  }

  // JACK's notification thread (also once on activation, with the rate opened at).
  static int sampleRateChanged(jack_nframes_t rate, void* user) noexcept {
    auto* self = static_cast<JackOutput*>(user);
    self->sampleRate_.store(rate, std::memory_order_release);
    if (rate != self->openedRate_) self->renderer_.outputChanged(self);
    return 0;
  }

  // A thread of libjack's, when the server stops or drops this client: no JACK calls here.
  static void serverShutDown(jack_status_t, const char*, void* user) noexcept {
    auto* self = static_cast<JackOutput*>(user);
    self->shutDown_.store(true, std::memory_order_release);
    self->renderer_.outputChanged(self);
  }

  AudioRenderer& renderer_;
  jack_client_t* client_;
  jack_port_t* ports_[2] = {nullptr, nullptr};
  double openedRate_ = 0.0;
  std::atomic<double> sampleRate_{0.0};
  std::atomic<std::uint32_t> bufferFrames_{0};
  std::atomic<bool> shutDown_{false};
  std::atomic<std::uint64_t> blocks_{0};
  bool active_ = false;  // main thread
};

}  // namespace

std::unique_ptr<AudioOutput> openJackOutput(AudioRenderer& renderer) {
  jack_status_t status;
  jack_client_t* client = jack_client_open("Pelma", JackNoStartServer, &status);
  if (!client) return nullptr;
  auto output = std::make_unique<JackOutput>(renderer, client);
  if (!output->setUp()) return nullptr;
  return output;
}

}  // namespace platform
