#include "audio/AudioEngine.h"

#include <exception>

#include "platform/audio/AudioSession.h"
#include "platform/foundation/ApplicationNotifications.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/UserDefaults.h"

using platform::AudioSession;
using platform::Notification;
using platform::NotificationCenter;

namespace {

// Instruments render at most this many frames at once; larger device blocks are split.
constexpr std::uint32_t kMaximumFramesToRender = 4096;
// LV2 instruments need a rate when they are created; used when the output's is unknown.
constexpr double kFallbackSampleRate = 48000.0;

}  // namespace

AudioEngine::AudioEngine() {
  initAVAudioSession();
  // Never removed: a plug-in may fail at any time in the life of the process.
  NotificationCenter::defaultCenter().addObserver(kAudioComponentInstanceInvalidationNotification,
                                                  nullptr, &AudioEngine::logInvalidation);
}

void AudioEngine::logInvalidation(const Notification& note) {
  const auto* unit = static_cast<const platform::AudioUnit*>(note.object);
  const void* instance = nullptr;
  if (auto found = note.userInfo.find("audioUnit"); found != note.userInfo.end()) {
    if (const auto* pointer = std::any_cast<platform::AudioComponentInstance>(&found->second)) {
      instance = *pointer;
    }
  }
  platform::log(
      "Received kAudioComponentInstanceInvalidationNotification: auAudioUnit {}, audioUnit {} "
      "(Crash?)",
      unit ? unit->name() : "(null)", instance);
}

AudioEngine::~AudioEngine() {
  // Only this observer is removed; the others stay registered and find this engine gone.
  NotificationCenter::defaultCenter().removeObserver(
      this, platform::kApplicationDidBecomeActiveNotification);
  platform::AudioUnitComponentManager::shared().finishInstantiations();
}

void AudioEngine::initAVAudioSession() {
  AudioSession& session = AudioSession::sharedInstance();
  if (auto error = session.setCategory(AudioSession::Category::playback)) {
    platform::log("Error setting AVAudioSession category! {}\n", *error);
  }
  session.setPreferredIOBufferDuration(0.005);
  if (auto error = session.setActive(true)) {
    platform::log("Error setting session active! {}\n", *error);
  }
}

std::optional<platform::AudioFormat> AudioEngine::connectMixerToOutput() {
  std::optional<platform::AudioFormat> format;
  try {
    format = engine_->outputFormat(0);
  } catch (const std::exception& exception) {
    platform::log("Exception: {}", exception.what());
  }
  engine_->connect(engine_->mainMixerNode(), engine_->outputNode(), format);
  return format;
}

void AudioEngine::setupAUWithComponentDescription(
    const platform::AudioComponentDescription& description, std::function<void()> completion) {
  AudioSession::sharedInstance().setCategory(AudioSession::Category::playback,
                                             AudioSession::kCategoryOptionMixWithOthers);
  engine_ = std::make_shared<platform::AudioGraph>();
  description_ = description;
  const std::optional<platform::AudioFormat> format = connectMixerToOutput();
  const double sampleRate = format ? format->sampleRate : 0.0;

  platform::WeakRef<AudioEngine> self(this);
  platform::AudioUnitComponentManager::shared().instantiate(
      description, sampleRate > 0.0 ? sampleRate : kFallbackSampleRate, kMaximumFramesToRender,
      platform::kAudioComponentInstantiationLoadOutOfProcess,
      [self, engine = engine_, sampleRate, completion = std::move(completion)](
          std::shared_ptr<platform::AudioUnit> node, std::string error) {
        AudioEngine* audioEngine = self.get();
        if (!audioEngine) return;
        if (!node) platform::log("Audio engine: {}", error);
        audioEngine->synthNode_ = node;
        audioEngine->synth_ = node.get();
        audioEngine->synthAU_ = node;
        if (node) {
          engine->attach(node);
          engine->connect(*node, engine->mainMixerNode(), platform::standardFormat(sampleRate, 2));
        }
        audioEngine->startEngine();
        if (completion) completion();
      });

  auto& center = NotificationCenter::defaultCenter();
  auto call = [self](void (AudioEngine::*handler)(const Notification&)) {
    return [self, handler](const Notification& note) {
      if (AudioEngine* engine = self.get()) (engine->*handler)(note);
    };
  };
  center.addObserver(platform::kAudioGraphConfigurationChangeNotification, engine_.get(),
                     call(&AudioEngine::handleInterruption), this);
  center.addObserver(platform::kApplicationDidBecomeActiveNotification, nullptr,
                     call(&AudioEngine::handleAppBecomeActive), this);
  center.addObserver(platform::kApplicationDidEnterBackgroundNotification, nullptr,
                     call(&AudioEngine::handleAppEnteredBackground), this);
}

void AudioEngine::remakeSynth(std::function<void()> completion) {
  std::shared_ptr<platform::AudioUnit> old = synthAU_;
  if (!old || !engine_) return;
  platform::PropertyDictionary state = old->fullState();
  const double sampleRate = old->sampleRate();
  platform::WeakRef<AudioEngine> self(this);
  platform::AudioUnitComponentManager::shared().instantiate(
      description_, sampleRate, kMaximumFramesToRender,
      platform::kAudioComponentInstantiationLoadOutOfProcess,
      [self, engine = engine_, old, state = std::move(state), sampleRate,
       completion = std::move(completion)](std::shared_ptr<platform::AudioUnit> node,
                                           std::string error) {
        AudioEngine* audioEngine = self.get();
        if (!audioEngine) return;
        if (!node) {
          platform::log("Audio engine: {}", error);
          return;
        }
        node->restoreFullState(state);
        engine->detach(*old);
        engine->attach(node);
        engine->connect(*node, engine->mainMixerNode(), platform::standardFormat(sampleRate, 2));
        audioEngine->retired_.push_back(old);
        audioEngine->synthNode_ = node;
        audioEngine->synth_ = node.get();
        audioEngine->synthAU_ = node;
        if (completion) completion();
      });
}

void AudioEngine::setupWithAU(const void*) {
  engine_ = std::make_shared<platform::AudioGraph>();
  connectMixerToOutput();
}

void AudioEngine::startEngine() {
  if (!engine_ || engine_->isRunning()) return;
  platform::log("Start audio engine");
  engine_->start();
}

void AudioEngine::pauseEngine() {
  const std::optional<bool> background =
      platform::UserDefaults::standardUserDefaults().boolForKey("background-audio");
  if (background.value_or(false)) return;
  if (engine_ && engine_->isRunning()) {
    platform::log("Pause audio engine");
    engine_->pause();
  }
}

void AudioEngine::handleAppBecomeActive(const Notification&) {
  startEngine();
}

void AudioEngine::handleAppEnteredBackground(const Notification&) {
  pauseEngine();
}

void AudioEngine::handleInterruption(const Notification&) {
  platform::log("AUDIO ENGINE interruption");
  AudioSession::sharedInstance().setActive(true);
  startEngine();
}
