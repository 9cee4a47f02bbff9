// The RtAudio devices and the clocked null output (the JACK output is in JackOutput.cpp).

#include <alsa/asoundlib.h>
#include <jack/jack.h>
#include <rtaudio/RtAudio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/audio/AudioOutput.h"
#include "platform/audio/JackClient.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

constexpr std::uint32_t kChannels = 2;

void ignoreLibraryMessage(const char*) {}
void ignoreAlsaMessage(const char*, int, const char*, int, const char*, ...) {}

// libjack would start a server of its own when none runs; we never want that. Looking for
// devices that are not there is normal here, so the libraries' own complaints are silenced: the
// outcome is logged once, by us.
void keepJackFromStartingServers() {
  setenv("JACK_NO_START_SERVER", "1", 0);
  jack_set_error_function(ignoreLibraryMessage);
  jack_set_info_function(ignoreLibraryMessage);
  snd_lib_error_set_handler(ignoreAlsaMessage);
}

const char* apiName(RtAudio::Api api) {
  switch (api) {
    case RtAudio::LINUX_PULSE:
      return "PulseAudio";
    case RtAudio::LINUX_ALSA:
      return "ALSA";
    default:
      return "audio";
  }
}

class RtAudioOutput final : public AudioOutput {
 public:
  RtAudioOutput(RtAudio::Api api, AudioRenderer& renderer) : api_(api), renderer_(renderer) {}
  ~RtAudioOutput() override { close(); }

  // Throws RtAudioError when the device cannot be opened.
  void open(double preferredSampleRate, std::uint32_t bufferFrames) {
    audio_ = std::make_unique<RtAudio>(api_);
    if (audio_->getDeviceCount() == 0) {
      throw RtAudioError("no output device", RtAudioError::NO_DEVICES_FOUND);
    }
    RtAudio::StreamParameters parameters;
    parameters.deviceId = audio_->getDefaultOutputDevice();
    parameters.nChannels = kChannels;
    const RtAudio::DeviceInfo info = audio_->getDeviceInfo(parameters.deviceId);
    deviceName_ = info.name;
    auto rate = static_cast<unsigned int>(preferredSampleRate);
    const auto& rates = info.sampleRates;
    if (!rates.empty() && std::find(rates.begin(), rates.end(), rate) == rates.end()) {
      rate = info.preferredSampleRate ? info.preferredSampleRate : rates.back();
    }
    RtAudio::StreamOptions options;
    options.flags = RTAUDIO_NONINTERLEAVED;
    options.streamName = "Pelma";
    unsigned int frames = bufferFrames;
    audio_->openStream(&parameters, nullptr, RTAUDIO_FLOAT32, rate, &frames,
                       &RtAudioOutput::callback, this, &options, &RtAudioOutput::reportError);
    sampleRate_ = audio_->getStreamSampleRate();
    bufferFrames_ = frames;
  }

  bool start() override {
    try {
      if (!audio_->isStreamRunning()) audio_->startStream();
      return true;
    } catch (const RtAudioError& error) {
      log("Audio output {} could not start: {}", name(), error.getMessage());
      return false;
    }
  }

  void stop() override {
    try {
      // Aborting does not wait for the callback to drain the stream: a JACK server that has
      // stopped calling us (it went away, or dropped a client it found too slow) never would.
      if (audio_ && audio_->isStreamOpen() && audio_->isStreamRunning()) audio_->abortStream();
    } catch (const RtAudioError&) {
      // The device is gone; there is nothing left to stop.
    }
  }

  bool isAlive() const override { return audio_ && audio_->isStreamOpen(); }
  double sampleRate() const override { return sampleRate_; }
  std::uint32_t bufferFrames() const override { return bufferFrames_; }
  std::string name() const override {
    return std::string(apiName(api_)) + " (" + deviceName_ + ")";
  }
  std::uint64_t blocksRendered() const override { return blocks_.load(std::memory_order_acquire); }

 private:
  // Audio thread.
  static int callback(void* output, void*, unsigned int frames, double, RtAudioStreamStatus,
                      void* user) noexcept {
    auto* self = static_cast<RtAudioOutput*>(user);
    auto* samples = static_cast<float*>(output);
    float* channels[kChannels];
    for (std::uint32_t c = 0; c < kChannels; ++c)
      channels[c] = samples + c * frames;
    self->renderer_.render(self, channels, kChannels, frames);
    // Release: whoever reads the count afterwards sees everything this callback did.
    self->blocks_.fetch_add(1, std::memory_order_release);
    return 0;
  }

  static void reportError(RtAudioError::Type type, const std::string& text) {
    if (type != RtAudioError::WARNING && type != RtAudioError::DEBUG_WARNING) {
      log("Audio output error: {}", text);
    }
  }

  void close() {
    if (!audio_) return;
    stop();
    try {
      if (audio_->isStreamOpen()) audio_->closeStream();
    } catch (const RtAudioError&) {
    }
    audio_.reset();
  }

  RtAudio::Api api_;
  AudioRenderer& renderer_;
  std::unique_ptr<RtAudio> audio_;
  std::string deviceName_;
  double sampleRate_ = 0.0;
  std::uint32_t bufferFrames_ = 0;
  std::atomic<std::uint64_t> blocks_{0};
};

// Calls the renderer from its own thread at the pace of a real device, so that the player and
// everything timed by the audio keep running without sound hardware. The output is discarded.
class NullOutput final : public AudioOutput {
 public:
  NullOutput(AudioRenderer& renderer, double sampleRate, std::uint32_t bufferFrames)
      : renderer_(renderer),
        sampleRate_(sampleRate),
        bufferFrames_(bufferFrames),
        buffer_(kChannels * bufferFrames) {}
  ~NullOutput() override { stop(); }

  bool start() override {
    if (thread_.joinable()) return true;
    running_ = true;
    thread_ = std::thread([this] { run(); });
    return true;
  }

  void stop() override {
    running_ = false;
    if (thread_.joinable()) thread_.join();
  }

  bool isAlive() const override { return true; }
  double sampleRate() const override { return sampleRate_; }
  std::uint32_t bufferFrames() const override { return bufferFrames_; }
  std::string name() const override { return "null output"; }
  std::uint64_t blocksRendered() const override { return blocks_.load(); }

 private:
  void run() {
    using Clock = std::chrono::steady_clock;
    const auto period = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(bufferFrames_ / sampleRate_));
    auto next = Clock::now();
    float* channels[kChannels] = {buffer_.data(), buffer_.data() + bufferFrames_};
    while (running_) {
      renderer_.render(this, channels, kChannels, bufferFrames_);
      blocks_.fetch_add(1, std::memory_order_relaxed);
      next += period;
      std::this_thread::sleep_until(next);
    }
  }

  AudioRenderer& renderer_;
  double sampleRate_;
  std::uint32_t bufferFrames_;
  std::vector<float> buffer_;
  std::atomic<bool> running_{false};
  std::atomic<std::uint64_t> blocks_{0};
  std::thread thread_;
};

}  // namespace

std::unique_ptr<AudioOutput> openAudioOutput(AudioRenderer& renderer, double preferredSampleRate,
                                             std::uint32_t bufferFrames) {
  keepJackFromStartingServers();
  if (auto jack = openJackOutput(renderer)) {
    log("Audio output: {}, {} Hz, {} frames", jack->name(), jack->sampleRate(),
        jack->bufferFrames());
    return jack;
  }
  for (RtAudio::Api api : {RtAudio::LINUX_PULSE, RtAudio::LINUX_ALSA}) {
    auto output = std::make_unique<RtAudioOutput>(api, renderer);
    try {
      output->open(preferredSampleRate, bufferFrames);
      log("Audio output: {}, {} Hz, {} frames", output->name(), output->sampleRate(),
          output->bufferFrames());
      return output;
    } catch (const RtAudioError&) {
      // Try the next kind of output.
    }
  }
  return openNullOutput(renderer, preferredSampleRate, bufferFrames);
}

std::unique_ptr<AudioOutput> openNullOutput(AudioRenderer& renderer, double sampleRate,
                                            std::uint32_t bufferFrames) {
  log("Audio output: null output (no sound device), {} Hz, {} frames", sampleRate, bufferFrames);
  return std::make_unique<NullOutput>(renderer, sampleRate, bufferFrames);
}

bool jackServerIsRunning() {
  keepJackFromStartingServers();
  jack_client_t* client = JackClient::openHandle("pelma-probe");
  if (!client) return false;
  jack_client_close(client);
  return true;
}

double probeOutputSampleRate(double fallback) {
  keepJackFromStartingServers();
  jack_client_t* client = JackClient::openHandle("pelma-probe");
  if (!client) return fallback;
  const double rate = jack_get_sample_rate(client);
  jack_client_close(client);
  return rate;
}

}  // namespace platform
