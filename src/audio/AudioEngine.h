#pragma once

// The one object that owns sound output: it sets up the audio session, builds the audio graph,
// instantiates the synthesizer from its component description and wires it to the output, and
// keeps the graph running or paused as the application moves between foreground and background
// ("background-audio" keeps it running).

#include <functional>
#include <memory>
#include <vector>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/WeakRef.h"

using platform::kAudioComponentInstanceInvalidationNotification;

class AudioEngine : public platform::WeaklyReferenceable {
 public:
  AudioEngine();
  ~AudioEngine();
  AudioEngine(const AudioEngine&) = delete;
  AudioEngine& operator=(const AudioEngine&) = delete;

  void initAVAudioSession();
  // Builds a new graph and instantiates the described instrument into it; returns at once.
  // When the instrument is ready (on the main queue) it is connected, the graph starts and
  // `completion` runs. An instrument that cannot be instantiated is logged; the graph then runs
  // silent and `completion` still runs.
  void setupAUWithComponentDescription(const platform::AudioComponentDescription& description,
                                       std::function<void()> completion);
  // Makes the instrument again after it stopped working (it was invalidated): the same
  // component, given the state the host last knew of it (its control values), connected in
  // place of the old one; then `completion` runs on the main queue. Main thread.
  void remakeSynth(std::function<void()> completion);
  // A graph with no instrument: the mixer connected to the output, nothing started.
  void setupWithAU(const void* ignored);
  void startEngine();
  void pauseEngine();

  // The engine's observer of kAudioComponentInstanceInvalidationNotification: one log line.
  static void logInvalidation(const platform::Notification& notification);

  void handleAppBecomeActive(const platform::Notification& notification);
  void handleAppEnteredBackground(const platform::Notification& notification);
  void handleInterruption(const platform::Notification& notification);

  platform::AudioGraph* getAVAudioEngine() const { return engine_.get(); }
  platform::AudioComponentInstance synth() const { return synth_; }
  void setSynth(platform::AudioComponentInstance synth) { synth_ = synth; }
  std::shared_ptr<platform::AudioUnit> synthAU() const { return synthAU_; }
  void setSynthAU(std::shared_ptr<platform::AudioUnit> synthAU) { synthAU_ = std::move(synthAU); }

 private:
  // Connects the main mixer to the output with the output's format, or with none when reading
  // it fails; returns the format.
  std::optional<platform::AudioFormat> connectMixerToOutput();

  std::shared_ptr<platform::AudioGraph> engine_;
  std::shared_ptr<platform::AudioUnit> synthNode_;
  platform::AudioComponentInstance synth_ = nullptr;
  std::shared_ptr<platform::AudioUnit> synthAU_;
  platform::AudioComponentDescription description_;
  // Instruments made again leave their predecessors here: a MIDI thread may still hold one.
  std::vector<std::shared_ptr<platform::AudioUnit>> retired_;
};
