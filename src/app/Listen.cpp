#include "app/Listen.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <thread>

#include "app/Playback.h"
#include "audio/AudioEngine.h"
#include "frameworks/pelma/PGMidi.h"
#include "midi/MidiEventRouter.h"
#include "platform/audio/PluginProcess.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"

namespace app {
namespace {

// SIGINT and SIGTERM are taken by a thread of their own, which queues the stop on the main queue:
// the main thread sleeps until there is work or the time is up, and never wakes just to look. The
// signals are blocked before any other thread starts (JACK's among them), so only this one
// receives them.
class StopSignals {
 public:
  explicit StopSignals(std::function<void()> onStop) {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    thread_ = std::thread([this, onStop = std::move(onStop)] {
      int signal = 0;
      sigwait(&signals_, &signal);
      if (!leaving_.load()) onStop();
    });
  }
  // The signals stay blocked: the process ends after listening, and a second Ctrl+C must not
  // cut the clean stop short.
  ~StopSignals() {
    leaving_.store(true);
    pthread_kill(thread_.native_handle(), SIGTERM);
    thread_.join();
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  sigset_t signals_;
  std::atomic<bool> leaving_{false};
  std::thread thread_;
};

}  // namespace

int listenLive(const ListenOptions& options) {
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  bool stopRequested = false;
  StopSignals stopSignals([&] {
    platform::PluginProcess::abandonStarting();  // an instrument still being made is not waited for
    mainQueue.async([&] { stopRequested = true; });
  });
  InstrumentGraph instrument(options.pluginName, false);
  if (!instrument.graph.start()) return 1;
  auto& center = platform::NotificationCenter::defaultCenter();
  const auto invalidationObserver = center.addObserver(
      kAudioComponentInstanceInvalidationNotification, nullptr, &AudioEngine::logInvalidation);

  PGMidi midi;
  midi.setChannel(options.channel);
  ConnectedMidiRouter router(instrument.unit.get(), nullptr, &midi);  // no sequencer
  if (auto* input = midi.virtualDestinationSource()) input->addDelegate(&router);
  for (const auto& source : midi.sources())
    router.sourceAdded(&midi, source.get());
  midi.setDelegate(&router);
  midi.startHotPlugPolling();
  const std::string channel =
      options.channel == 0 ? std::string("all") : std::to_string(options.channel);
  if (midi.system() == PGMidi::System::none) {
    platform::log("No MIDI input to listen to; channel {} would be played", channel);
  } else {
    platform::log("Listening for MIDI on \"{}\" and every source, channel {}",
                  midi.virtualDestinationPortName(), channel);
  }

  using Clock = std::chrono::steady_clock;
  const auto deadline = options.seconds > 0.0
                            ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(options.seconds))
                            : Clock::time_point::max();
  while (!stopRequested && Clock::now() < deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    mainQueue.waitForTask(std::min<std::chrono::milliseconds>(left, std::chrono::hours(24)));
    mainQueue.runPending();
  }

  // A clean stop: no more input, every note released and faded, then the output closed.
  if (auto* input = midi.virtualDestinationSource()) input->removeDelegate(&router);
  for (const auto& source : midi.sources())
    source->removeDelegate(&router);
  platform::MusicDeviceMIDIEvent(instrument.unit.get(), 0xB0, 123, 0, 0);
  platform::MusicDeviceMIDIEvent(instrument.unit.get(), 0xB0, 120, 0, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  instrument.graph.pause();
  mainQueue.runPending();
  center.removeObserver(invalidationObserver);
  platform::MainQueue::setMain(nullptr);
  platform::log("Stopped listening");
  return 0;
}

}  // namespace app
