#include "app/Listen.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "app/Playback.h"
#include "frameworks/pelma/PGMidi.h"
#include "midi/MidiEventRouter.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"

namespace app {
namespace {

std::atomic<bool> stopRequested{false};

void requestStop(int) {
  stopRequested.store(true);
}

}  // namespace

int listenLive(const ListenOptions& options) {
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  InstrumentGraph instrument(options.pluginName, false);
  if (!instrument.graph.start()) return 1;

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

  std::signal(SIGINT, requestStop);
  std::signal(SIGTERM, requestStop);
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                            std::chrono::duration<double>(options.seconds));
  while (!stopRequested.load() &&
         (options.seconds <= 0.0 || std::chrono::steady_clock::now() < deadline)) {
    // Asleep until there is work; the bound lets a stop request (a signal) end the loop.
    mainQueue.waitForTask(std::chrono::milliseconds(250));
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
  platform::MainQueue::setMain(nullptr);
  platform::log("Stopped listening");
  return 0;
}

}  // namespace app
