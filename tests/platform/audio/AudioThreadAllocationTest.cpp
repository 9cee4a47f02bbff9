// Nothing on the audio thread allocates: while the player plays, the main thread edits the track
// and changes the tempo and MIDI learn's map, and two threads send MIDI (a learned controller
// among it); on JACK, another process also plays into our
// MIDI input, which is read and routed on the audio thread. Every operator new and delete in this
// program is counted when it runs inside the audio callback.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "AudioThreadAllocations.h"
#include "JackServer.h"
#include "OfflineRig.h"
#include "Processes.h"
#include "frameworks/pelma/PGMidi.h"
#include "midi/MidiEventRouter.h"
#include "platform/audio/ControlPorts.h"
#include "support/LoopedBar.h"
#include "support/StepKeys.h"

namespace {

using testing_support::audioThreadAllocations;
using testing_support::stepKey;

// A sequencer as the screens will drive it: a looped bar of chords edited while it plays.
struct Session : testing_support::LoopedBar {
  explicit Session(platform::AudioGraph& graph) : LoopedBar(graph) {
    steps.setKeysToRange({stepKey(60), stepKey(64), stepKey(67)}, {0, 16});
    mainQueue.runPending();
    player.start();
  }
  // One main-thread task of editing.
  void edit(int round) {
    steps.setKeysToRange({stepKey(48 + round % 24)}, {static_cast<std::uint64_t>(round % 16), 1});
    steps.setGate(0.2f + 0.05f * (round % 10));
    steps.setSwing(0.1f * (round % 5));
    sequence.tempoTrack()->clear(0.0, 100.0);
    sequence.tempoTrack()->newExtendedTempoEvent(0.0, 90.0 + round % 60);
    mainQueue.runPending();
  }
};

class AudioThreadAllocationsOffline : public ::testing::TestWithParam<std::uint32_t> {};

// In this process, and with the instrument in a process of its own (the block handed over and
// back through shared memory).
TEST_P(AudioThreadAllocationsOffline, NoneWhileRendering) {
  testing_support::OfflineRig rig("MDA JX10", 256, 48000.0, GetParam());
  ASSERT_EQ(rig.unit->isOutOfProcess(), GetParam() != 0);
  Session session(rig.graph);
  // MIDI learn: controller 21 drives the cutoff, and the map is published again while rendering.
  const auto ports = platform::controlPorts(rig.unit->uri());
  const auto cutoff = std::find_if(ports.begin(), ports.end(),
                                   [](const auto& p) { return p.symbol == "vcf_freq"; });
  ASSERT_NE(cutoff, ports.end());
  rig.unit->setControllerBindings({{21, *cutoff}});
  rig.unit->listenForControllers(true);
  audioThreadAllocations = 0;
  std::atomic<bool> done{false};
  std::thread midi([&] {
    for (int i = 0; !done; ++i) {
      rig.unit->sendMIDIEvent(0x90, 40 + i % 20, 90, 0);
      rig.unit->sendMIDIEvent(0x80, 40 + i % 20, 0, 0);
      rig.unit->sendMIDIEvent(0xB0, 21, static_cast<std::uint8_t>(i % 128), 0);
      std::this_thread::yield();
    }
  });
  for (int round = 0; round < 200; ++round) {
    rig.render(2048);
    session.edit(round);
    rig.unit->sendMIDIEvent(0xE0, 0, static_cast<std::uint8_t>(round % 128), 0);
    if (round % 20 == 0) rig.unit->setControllerBindings({{21, *cutoff}});
  }
  EXPECT_EQ(rig.unit->takeHeardController(), 21);
  done = true;
  midi.join();
  EXPECT_EQ(audioThreadAllocations.load(), 0);
  EXPECT_GT(rig.received.size(), 100u);  // the work really happened on the audio thread
}

INSTANTIATE_TEST_SUITE_P(InAndOutOfProcess, AudioThreadAllocationsOffline,
                         ::testing::Values(0u,
                                           platform::kAudioComponentInstantiationLoadOutOfProcess));

TEST(AudioThreadAllocations, NoneWhilePlayingOnJackInRealTime) {
  testing_support::JackServer server;
  ASSERT_TRUE(server.start());
  std::string error;
  auto unit = platform::AudioUnitComponentManager::shared().instantiateNow(
      testing_support::instrumentNamed("MDA JX10"), 48000, 4096, &error);
  ASSERT_TRUE(unit) << error;
  platform::AudioGraph graph;
  graph.attach(unit);
  graph.connect(*unit, graph.mainMixerNode(), std::nullopt);
  graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
  Session session(graph);
  ASSERT_TRUE(graph.start());
  ASSERT_EQ(graph.outputName(), "JACK (system)");
  // MIDI from another process, into a router that plays the instrument and queues the notes for
  // a sequencer (none here: the main thread drops them).
  PGMidi midi("pelma-allocations");
  struct NoteQueuingRouter final : MidiEventRouter {
    NoteQueuingRouter(platform::AudioComponentInstance unit, PGMidi* midi)
        : unit_(unit), midi_(midi) {}
    platform::AudioComponentInstance synth() const override { return unit_; }
    KRSequencerController* sequencerController() const override { return nullptr; }
    PGMidi* midi() const override { return midi_; }
    platform::AudioComponentInstance unit_;
    PGMidi* midi_;
  } router(unit.get(), &midi);
  struct Counter : PGMidiSourceDelegate {
    void midiReceived(PGMidiSource*, const std::uint8_t*, std::size_t) noexcept override {
      ++lists;
    }
    std::atomic<int> lists{0};
  } counter;
  midi.virtualDestinationSource()->addDelegate(&router);
  midi.virtualDestinationSource()->addDelegate(&counter);
  std::string notes;
  for (int i = 0; i < 16; ++i)
    notes += (i ? "," : "") + std::to_string(48 + i) + "@" + std::to_string(i / 8.0) + ":0.1";
  audioThreadAllocations = 0;
  // The last note off comes 0.99 s after the pattern's first period, which a slow build may start
  // late; the pattern repeats only after 2 s.
  const pid_t player = testing_support::spawn(
      {PELMA_JACK_MIDI_PATTERN, midi.virtualDestinationPortName(), "120", "1.6", notes, "1"});
  ASSERT_GT(player, 0);
  const double start = session.player.getTime();
  for (int round = 0; round < 100; ++round) {
    session.edit(round);
    unit->sendMIDIEvent(0x90, 50, 100, 0);
    unit->sendMIDIEvent(0x80, 50, 0, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(testing_support::waitForExit(player), 0);
  graph.pause();
  EXPECT_EQ(audioThreadAllocations.load(), 0);
  EXPECT_GT(session.player.getTime(), start);  // the audio thread was playing throughout
  // Every note on and off came in (a period the loaded server ran late may start the pattern's
  // second pass before the player stops).
  EXPECT_GE(counter.lists.load(), 32);
  midi.virtualDestinationSource()->removeDelegate(&counter);
  midi.virtualDestinationSource()->removeDelegate(&router);
}

}  // namespace
