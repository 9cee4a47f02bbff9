// The JACK output: two output ports on the process's JACK client, connected to the system's
// playback ports unless connections are left to the user (--no-connect, or PELMA_JACK_NO_CONNECT).
// It follows the server's period as it changes (every block is rendered at whatever length JACK
// asks for) and reports the server going away or changing its rate through the renderer's
// outputChanged, so nothing needs to poll. Stopping keeps the client running (the MIDI inputs share
// it) and outputs silence.

#include <jack/jack.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/audio/AudioOutput.h"
#include "platform/audio/JackClient.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

class JackOutput final : public AudioOutput {
 public:
  JackOutput(AudioRenderer& renderer, std::shared_ptr<JackClient> client)
      : renderer_(renderer), client_(std::move(client)), openedRate_(client_->sampleRate()) {}
  ~JackOutput() override {
    client_->clearAudio(this);
    if (client_->isAlive()) {
      for (jack_port_t* port : ports_)
        if (port) jack_port_unregister(client_->handle(), port);
    }
  }

  // False when the ports cannot be registered.
  bool setUp() {
    ports_[0] = jack_port_register(client_->handle(), "out_1", JACK_DEFAULT_AUDIO_TYPE,
                                   JackPortIsOutput, 0);
    ports_[1] = jack_port_register(client_->handle(), "out_2", JACK_DEFAULT_AUDIO_TYPE,
                                   JackPortIsOutput, 0);
    if (!ports_[0] || !ports_[1]) return false;
    client_->setAudio(&process, &changed, this);
    return true;
  }

  bool start() override {
    if (!isAlive()) {
      log("Audio output {} could not start", name());
      return false;
    }
    running_.store(true, std::memory_order_release);
    if (connected_ || !connects()) return true;
    connected_ = true;
    const char** playback = jack_get_ports(client_->handle(), nullptr, JACK_DEFAULT_AUDIO_TYPE,
                                           JackPortIsPhysical | JackPortIsInput);
    for (int i = 0; playback && playback[i] && i < 2; ++i) {
      jack_connect(client_->handle(), jack_port_name(ports_[i]), playback[i]);
      // A mono device hears the left channel only.
    }
    jack_free(playback);
    return true;
  }

  // After it returns, the renderer is not called until the next start.
  void stop() override {
    if (!running_.exchange(false)) return;
    client_->waitUntilIdle();
  }

  // False once the server has shut down, or runs at another rate than the one opened at (the
  // graph then opens the output again and re-creates its instruments at the new rate).
  bool isAlive() const override {
    return client_->isAlive() && client_->sampleRate() == openedRate_;
  }
  bool reportsChanges() const override { return true; }
  double sampleRate() const override { return client_->sampleRate(); }
  std::uint32_t bufferFrames() const override { return client_->bufferFrames(); }
  std::string name() const override {
    return connects() ? "JACK (system)" : "JACK (not connected)";
  }
  std::uint64_t blocksRendered() const override { return blocks_.load(std::memory_order_acquire); }

 private:
  static bool connects() {
    return JackClient::options().connect && !std::getenv("PELMA_JACK_NO_CONNECT");
  }
  // Audio thread (JACK's process thread), after the MIDI inputs.
  PELMA_HOT static void process(void* user, std::uint32_t frames) noexcept PELMA_NONBLOCKING {
    auto* self = static_cast<JackOutput*>(user);
    float* channels[2] = {static_cast<float*>(jack_port_get_buffer(self->ports_[0], frames)),
                          static_cast<float*>(jack_port_get_buffer(self->ports_[1], frames))};
    if (!self->running_.load(std::memory_order_acquire)) {
      for (float* channel : channels)
        std::memset(channel, 0, frames * sizeof(float));
      return;
    }
    self->renderer_.render(self, channels, 2, frames);
    // Only this thread counts: a plain store, not a locked read-modify-write, every period.
    self->blocks_.store(self->blocks_.load(std::memory_order_relaxed) + 1,
                        std::memory_order_release);
  }

  // A thread of libjack's: the server went away or changed its rate or period. Only the first
  // two need the graph; every block is rendered at whatever length JACK asks for.
  static void changed(void* user) noexcept {
    auto* self = static_cast<JackOutput*>(user);
    if (!self->isAlive()) self->renderer_.outputChanged(self);
  }

  AudioRenderer& renderer_;
  std::shared_ptr<JackClient> client_;
  double openedRate_;
  jack_port_t* ports_[2] = {nullptr, nullptr};
  std::atomic<bool> running_{false};
  std::atomic<std::uint64_t> blocks_{0};
  bool connected_ = false;  // main thread
};

}  // namespace

std::unique_ptr<AudioOutput> openJackOutput(AudioRenderer& renderer) {
  auto client = JackClient::shared();
  if (!client) return nullptr;
  auto output = std::make_unique<JackOutput>(renderer, std::move(client));
  if (!output->setUp()) return nullptr;
  return output;
}

}  // namespace platform
