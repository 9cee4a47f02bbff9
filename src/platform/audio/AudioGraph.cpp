// The audio graph's main-thread side: building the graph, starting and pausing the output, and
// watching the output device.

#include "platform/audio/AudioGraph.h"

#include <algorithm>
#include <chrono>

#include "platform/audio/AudioSession.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/music/MusicPlayer.h"

namespace platform {
namespace {
constexpr double kFallbackSampleRate = 48000.0;
}

AudioGraph::AudioGraph() : planReader_(plan_.makeReader()) {}

AudioGraph::~AudioGraph() {
  monitorStopping_ = true;
  monitorWake_.release();
  if (monitorThread_.joinable()) monitorThread_.join();
  setMusicSequence(nullptr);
  std::lock_guard lock(controlMutex_);
  output_.reset();  // stops the audio thread
}

AudioFormat AudioGraph::outputFormat(int) const {
  if (manual_) return standardFormat(manualSampleRate_, 2);
  std::lock_guard lock(controlMutex_);
  if (output_) return standardFormat(output_->sampleRate(), 2);
  return standardFormat(probeOutputSampleRate(kFallbackSampleRate), 2);
}

void AudioGraph::attach(std::shared_ptr<AudioUnit> unit) {
  if (!unit || std::find(units_.begin(), units_.end(), unit) != units_.end()) return;
  unit->setRendersInRealTime(!manual_);
  units_.push_back(std::move(unit));
}

void AudioGraph::detach(AudioUnit& unit) {
  std::erase(connected_, &unit);
  publishPlan();
  std::erase_if(units_, [&](const auto& attached) { return attached.get() == &unit; });
}

void AudioGraph::connect(AudioNode& source, AudioNode& destination, std::optional<AudioFormat>) {
  if (&source == &mixerNode_ && &destination == &outputNode_) {
    mixerToOutput_ = true;
  } else if (&destination == &mixerNode_) {
    auto* unit = dynamic_cast<AudioUnit*>(&source);
    const bool attached =
        std::any_of(units_.begin(), units_.end(), [&](const auto& u) { return u.get() == unit; });
    if (!unit || !attached) {
      log("Audio graph: only an attached instrument can be connected to the mixer");
      return;
    }
    if (std::find(connected_.begin(), connected_.end(), unit) == connected_.end()) {
      connected_.push_back(unit);
    }
  } else {
    log("Audio graph: unsupported connection");
    return;
  }
  publishPlan();
}

void AudioGraph::publishPlan() {
  auto plan = std::make_unique<RenderPlan>();
  for (AudioUnit* unit : connected_) {
    plan->units.push_back(*std::find_if(units_.begin(), units_.end(),
                                        [&](const auto& held) { return held.get() == unit; }));
  }
  plan->players = players_;
  plan->mixerToOutput = mixerToOutput_;
  plan->chunkFrames = maximumFrames_;
  for (const AudioUnit* unit : connected_) {
    plan->chunkFrames = std::min(plan->chunkFrames, unit->maximumFramesToRender());
  }
  plan_.publish(std::move(plan));
  // The audio thread holds a plan only while it renders one block: a second is far longer.
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (plan_.retiredCount() > 0) {
    if (std::chrono::steady_clock::now() > giveUp) {
      log("Audio graph: the audio thread has held a render plan for a second");
      return;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    plan_.reclaim();
  }
}

bool AudioGraph::start(std::string* error) {
  std::lock_guard lock(controlMutex_);
  if (running_) return true;
  // Nothing renders yet: this thread may empty the instruments' queues.
  if (dropMidiOnStart_) {
    for (const auto& unit : units_)
      unit->discardQueuedMidi();
    dropMidiOnStart_ = false;
  }
  if (!manual_) {
    if (!output_ || !output_->isAlive()) {
      output_.reset();
      const double rate = probeOutputSampleRate(kFallbackSampleRate);
      output_ =
          openOutput_(*this, rate, AudioSession::sharedInstance().preferredBufferFrames(rate));
      renderSampleRate_ = output_->sampleRate();
      activeOutput_.store(output_.get(), std::memory_order_release);
    }
    // Nothing renders the instruments now: they may be made again at the output's rate, and
    // learn the period they will mostly be asked for.
    for (const auto& unit : units_) {
      unit->setNominalBlockLength(output_->bufferFrames());
      if (unit->sampleRate() != output_->sampleRate()) {
        const double before = unit->sampleRate();
        if (unit->setSampleRate(output_->sampleRate())) {
          log("Audio graph: \"{}\" made again at {} Hz (was {} Hz), its state kept", unit->name(),
              output_->sampleRate(), before);
        }
      }
    }
    if (!output_->start()) {
      if (error) *error = "the audio output " + output_->name() + " could not start";
      return false;
    }
    if (!monitorThread_.joinable()) monitorThread_ = std::thread([this] { monitor(); });
    monitorWake_.release();  // the output may have changed: look at it anew
  }
  running_ = true;
  return true;
}

void AudioGraph::pause() {
  std::lock_guard lock(controlMutex_);
  if (!running_) return;
  if (output_) output_->stop();
  running_ = false;
  dropMidiOnStart_ = true;
}

std::string AudioGraph::outputName() const {
  if (manual_) return "manual rendering";
  std::lock_guard lock(controlMutex_);
  return output_ ? output_->name() : "none";
}

void AudioGraph::setMusicSequence(MusicSequence* sequence) {
  if (sequence == sequence_) return;
  if (sequence_) sequence_->setRenderTarget(nullptr);
  sequence_ = sequence;
  if (sequence_) sequence_->setRenderTarget(this);
}

void AudioGraph::enableManualRenderingMode(double sampleRate, std::uint32_t maximumFrames) {
  std::lock_guard lock(controlMutex_);
  output_.reset();
  activeOutput_.store(nullptr, std::memory_order_release);
  running_ = false;
  manual_ = true;
  manualSampleRate_ = sampleRate;
  maximumFrames_ = maximumFrames;
  renderSampleRate_ = sampleRate;
}

void AudioGraph::renderOffline(std::uint32_t frames, float* const* channels) {
  if (!manual_ || !running_) return;
  render(nullptr, channels, 2, frames);
}

void AudioGraph::attachPlayer(MusicPlayer& player) {
  if (std::find(players_.begin(), players_.end(), &player) != players_.end()) return;
  players_.push_back(&player);
  publishPlan();
}

void AudioGraph::detachPlayer(MusicPlayer& player) {
  std::erase(players_, &player);
  publishPlan();
}

void AudioGraph::outputChanged(const AudioOutput*) noexcept {
  monitorWake_.release();
}

void AudioGraph::monitor() {
  using namespace std::chrono_literals;
  std::uint64_t lastBlocks = 0;
  int stalledChecks = 0;
  int checksSinceProbe = 0;
  bool watching = false;  // the output can only be watched, not heard from
  while (true) {
    if (watching) {
      monitorWake_.try_acquire_for(250ms);
    } else {
      monitorWake_.acquire();
    }
    if (monitorStopping_) return;
    bool changed = false, probe = false;
    {
      std::lock_guard lock(controlMutex_);
      watching = running_ && output_ && !output_->reportsChanges();
      if (!running_ || !output_) continue;
      const bool onNullOutput = output_->name() == "null output";
      const std::uint64_t blocks = output_->blocksRendered();
      stalledChecks = blocks == lastBlocks ? stalledChecks + 1 : 0;
      lastBlocks = blocks;
      const bool stalled = !output_->reportsChanges() && stalledChecks >= 4;
      if (!onNullOutput && (!output_->isAlive() || stalled)) {
        if (output_->sampleRate() != renderSampleRate_.load()) {
          log("Audio output {} now runs at {} Hz", output_->name(), output_->sampleRate());
        } else {
          log("Audio output {} went away", output_->name());
        }
        activeOutput_.store(nullptr, std::memory_order_release);
        if (output_->reportsChanges()) {
          // It told us itself, and its client is not closed (libjack closes it when the next
          // client opens): nothing here waits on the library, so the output goes now.
          output_.reset();
        } else {
          // The library may still be closing the lost stream on a thread of its own: keep the
          // output object alive until the graph goes.
          lostOutputs_.push_back(std::move(output_));
        }
        running_ = false;
        dropMidiOnStart_ = true;
        changed = true;
      } else if (onNullOutput && ++checksSinceProbe >= 4) {
        checksSinceProbe = 0;
        probe = true;
      }
    }
    // A server that is there but does not answer (stopped, or hung) holds the probe for as long
    // as it does not: never with the lock held, which the main thread takes.
    if (probe && jackServerIsRunning()) {
      std::lock_guard lock(controlMutex_);
      if (running_ && output_ && output_->name() == "null output") {
        log("Audio output: a JACK server is running now");
        output_.reset();
        running_ = false;
        changed = true;
      }
    }
    if (changed) {
      // Observers (the engine) live on the main thread: deliver it there, unless the graph is
      // gone by then.
      dispatchAsyncMain([this, alive = std::weak_ptr<bool>(alive_)] {
        if (alive.expired()) return;
        NotificationCenter::defaultCenter().postNotificationName(
            kAudioGraphConfigurationChangeNotification, this);
      });
    }
  }
}

}  // namespace platform
