#pragma once

// The audio graph: instrument nodes connected to a main mixer, the mixer connected to the
// output. It owns the output device and runs the audio callback, where, per block, each
// instrument takes its queued MIDI, the attached music players add their notes, the instruments
// render and the mixer sums them into the output.
//
// When the output device or JACK server goes away, comes back or changes, the graph posts
// kAudioGraphConfigurationChangeNotification (object: the graph) on the main queue; start()
// then opens whatever output is best at that moment.
//
// In manual rendering mode no device is opened: renderOffline() renders on the calling thread,
// deterministically (tests, benchmarks, bouncing to a file).

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "platform/audio/AudioFormat.h"
#include "platform/audio/AudioNode.h"
#include "platform/audio/AudioOutput.h"
#include "platform/foundation/AudioThread.h"
#include "platform/foundation/SnapshotPublisher.h"
#include "platform/music/MidiBlock.h"
#include "platform/music/MusicSequence.h"

namespace platform {

class AudioUnit;
class MusicPlayer;

inline constexpr const char* kAudioGraphConfigurationChangeNotification =
    "AudioGraphConfigurationChange";

// The renderer is the first base: the output calls render() without an adjusting thunk.
class AudioGraph final : private AudioRenderer, public MusicRenderTarget {
 public:
  AudioGraph();
  ~AudioGraph();
  AudioGraph(const AudioGraph&) = delete;
  AudioGraph& operator=(const AudioGraph&) = delete;

  AudioNode& outputNode() { return outputNode_; }
  AudioNode& mainMixerNode() { return mixerNode_; }
  // The output's format: the rate the output device runs at (the JACK server's rate when one
  // runs, else 48 kHz; the manual rendering rate in manual mode), two channels.
  AudioFormat outputFormat(int bus) const;

  void attach(std::shared_ptr<AudioUnit> unit);
  void detach(AudioUnit& unit);
  // Connects an instrument to the main mixer, or the main mixer to the output. The format may be
  // absent; every node renders de-interleaved float at the graph's rate.
  void connect(AudioNode& source, AudioNode& destination, std::optional<AudioFormat> format);

  // Opens the output if needed and starts rendering. False (and a log line) when it cannot.
  bool start(std::string* error = nullptr);
  // Stops rendering but keeps the output, the instruments and the graph in place. MIDI sent to
  // the instruments while paused is dropped when rendering starts again, with all notes off.
  void pause();
  bool isRunning() const { return running_; }
  // The output in use, for the log and the README's claims ("null output", "JACK (system)").
  std::string outputName() const;

  // The sequence whose players play through this graph's instrument.
  void setMusicSequence(MusicSequence* sequence);
  MusicSequence* musicSequence() const { return sequence_; }

  void enableManualRenderingMode(double sampleRate, std::uint32_t maximumFrames);
  bool isInManualRenderingMode() const { return manual_; }
  // Manual mode, after start(): renders `frames` frames into `channels` (two buffers).
  void renderOffline(std::uint32_t frames, float* const* channels);

  // Main thread, before start(): how outputs are opened (openAudioOutput unless told otherwise;
  // tests open fake outputs that stall and come back).
  void setOutputOpener(AudioOutputOpener opener) { openOutput_ = opener; }

  // MusicRenderTarget.
  void attachPlayer(MusicPlayer& player) override;
  void detachPlayer(MusicPlayer& player) override;

 private:
  struct RenderPlan {
    // Connected to the mixer, in attach order; held by the plan, so that an instrument detached
    // while the audio thread still renders an older plan lives until that plan is reclaimed.
    std::vector<std::shared_ptr<AudioUnit>> units;
    std::vector<MusicPlayer*> players;  // playing through the first unit
    bool mixerToOutput = false;
    std::uint32_t chunkFrames = 4096;  // the most frames every instrument renders at once
  };

  PELMA_HOT void render(const AudioOutput* output, float* const* channels,
                        std::uint32_t channelCount,
                        std::uint32_t frames) noexcept PELMA_NONBLOCKING override;
  void outputChanged(const AudioOutput* output) noexcept override;
  // firstIntoOutput: the first instrument renders straight into `channels`, the others are added.
  PELMA_HOT void renderChunk(const RenderPlan& plan, float* const* channels, std::uint32_t offset,
                             std::uint32_t frames, bool firstIntoOutput) noexcept;
  // Publishes the graph as it now stands. Waits, at most a bounded time, for the audio thread
  // to let go of the old plan, so that removed players may be destroyed; a plan still held
  // after that (a render that hangs) stays until a later publish reclaims it.
  void publishPlan();
  void monitor();

  AudioNode outputNode_;
  AudioNode mixerNode_;
  std::vector<std::shared_ptr<AudioUnit>> units_;
  std::vector<AudioUnit*> connected_;
  std::vector<MusicPlayer*> players_;
  bool mixerToOutput_ = false;
  MusicSequence* sequence_ = nullptr;

  SnapshotPublisher<RenderPlan> plan_{std::make_unique<RenderPlan>()};
  SnapshotPublisher<RenderPlan>::Reader planReader_;

  mutable std::mutex controlMutex_;  // start, pause and the monitor; never the audio thread
  AudioOutputOpener openOutput_ = openAudioOutput;
  std::unique_ptr<AudioOutput> output_;
  // Only the current output renders: an output given up on (it stalled) may come back, and its
  // callbacks are then turned away. Null in manual rendering mode. `rendering_` keeps even a
  // callback that passed the check at the moment of the switch from overlapping another.
  std::atomic<const AudioOutput*> activeOutput_{nullptr};
  std::atomic<bool> rendering_{false};
  std::vector<std::unique_ptr<AudioOutput>> lostOutputs_;
  std::atomic<bool> running_{false};
  bool dropMidiOnStart_ = false;  // MIDI queued while nothing rendered is dropped on start
  bool manual_ = false;
  double manualSampleRate_ = 0.0;
  std::uint32_t maximumFrames_ = 4096;
  std::atomic<double> renderSampleRate_{48000.0};
  MidiBlock scratchMidi_;  // audio thread only

  // Main thread: expires when the graph goes, so that a change queued for the main thread is
  // not delivered for a graph that no longer exists.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  // Watches the output: woken by an output that reports its own changes (JACK), or every 250 ms
  // for outputs that can only be watched (a stalled block count, a JACK server that appears).
  std::thread monitorThread_;
  std::counting_semaphore<> monitorWake_{0};
  std::atomic<bool> monitorStopping_{false};
};

}  // namespace platform
