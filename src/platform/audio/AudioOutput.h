#pragma once

// Where the audio graph's output goes: a JACK server through a JACK client of our own, else a
// sound device through RtAudio (PulseAudio, then ALSA), or, when none can be opened, a clocked
// null output that calls the renderer from a timer thread at the same pace, so the program runs
// the same on any machine.

#include <cstdint>
#include <memory>
#include <string>

#include "platform/foundation/AudioThread.h"

namespace platform {

class AudioOutput;

// Renders one block of de-interleaved float audio for `output`, the output that calls. Called on
// the audio thread.
class AudioRenderer {
 public:
  virtual void render(const AudioOutput* output, float* const* channels, std::uint32_t channelCount,
                      std::uint32_t frames) noexcept PELMA_NONBLOCKING = 0;
  // `output` has gone away or changed its rate. Called on a thread of the output's library, never
  // the audio thread; must not block.
  virtual void outputChanged(const AudioOutput* output) noexcept = 0;

 protected:
  ~AudioRenderer() = default;
};

class AudioOutput {
 public:
  virtual ~AudioOutput() = default;
  virtual bool start() = 0;
  virtual void stop() = 0;
  // False once the device or server has gone away (the stream no longer runs by itself).
  virtual bool isAlive() const = 0;
  // True when the output calls outputChanged itself when it goes away or changes, so that nobody
  // needs to watch it; false when only a stalled block count tells.
  virtual bool reportsChanges() const { return false; }
  virtual double sampleRate() const = 0;
  virtual std::uint32_t bufferFrames() const = 0;
  // A name for the log: "JACK (system)", "null output", ...
  virtual std::string name() const = 0;
  // Blocks rendered so far; the graph watches it to notice a device that stopped calling.
  virtual std::uint64_t blocksRendered() const = 0;
};

// Opens the first output that works: JACK, PulseAudio, ALSA, then the null output. Logs one line
// saying which output is in use. `preferredSampleRate` is used where the device lets us choose.
std::unique_ptr<AudioOutput> openAudioOutput(AudioRenderer& renderer, double preferredSampleRate,
                                             std::uint32_t bufferFrames);

using AudioOutputOpener = std::unique_ptr<AudioOutput> (*)(AudioRenderer& renderer,
                                                           double preferredSampleRate,
                                                           std::uint32_t bufferFrames);

// Opens only the null output.
std::unique_ptr<AudioOutput> openNullOutput(AudioRenderer& renderer, double sampleRate,
                                            std::uint32_t bufferFrames);

// The JACK output, or null when no JACK server answers.
std::unique_ptr<AudioOutput> openJackOutput(AudioRenderer& renderer);

// True when a JACK server answers (used to notice that a server came back).
bool jackServerIsRunning();

// The sample rate the best available device would run at, or `fallback` when none is known
// without opening it (JACK tells its rate; other devices take what is asked).
double probeOutputSampleRate(double fallback);

}  // namespace platform
