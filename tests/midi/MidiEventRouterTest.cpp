// The router with real parts around it: a real instrument in an audio graph rendered by hand
// (what it receives is recorded at the plug-in's input), the real sequencer screen, and MIDI
// sources delivering as the receive thread does.

#include "midi/MidiEventRouter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include <lv2/atom/util.h>

#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRSequencerController.h"
#include "sequencer/KRStepSequence.h"
#include "support/AudioAnalysis.h"
#include "support/OfflineRig.h"
#include "support/StepKeys.h"

namespace {

using testing_support::Chord;
using testing_support::ReceivedMidi;

class MidiEventRouterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::MainQueue::setMain(&mainQueue);
    sequencer.writeModeButtonPressed(sequencer.writeModeButton());
    sequencer.trackView()->updateSelection(0, 0);
  }
  void TearDown() override { platform::MainQueue::setMain(nullptr); }

  // What the instrument received in the next block, without frames (every message is at 0).
  std::vector<std::vector<int>> heard() {
    rig.received.clear();
    rig.render(256);
    std::vector<std::vector<int>> messages;
    for (const ReceivedMidi& m : rig.received)
      messages.push_back({m.status, m.data1, m.data2});
    return messages;
  }
  // Every event the plug-in's MIDI input held in the last block, as its bytes.
  std::vector<std::vector<int>> atomInput() const {
    std::vector<std::vector<int>> events;
    LV2_ATOM_SEQUENCE_FOREACH(rig.unit->lastAtomInput(), event) {
      const auto* bytes = static_cast<const std::uint8_t*>(LV2_ATOM_BODY_CONST(&event->body));
      events.emplace_back(bytes, bytes + event->body.size);
    }
    return events;
  }
  Chord chordInStepZero() { return testing_support::chordAt(*sequencer.stepSequence(), 0); }
  void deliver(PGMidiSource& source, std::vector<std::uint8_t> bytes) {
    source.deliver(42, bytes.data(), bytes.size());
  }

  platform::ManualMainQueue mainQueue;
  testing_support::OfflineRig rig{"MDA JX10"};
  KRSequencerController sequencer{KRSequencerController::kTabletInterface};
  PGMidi wrapper{"pelma-router-test"};
  ConnectedMidiRouter router{rig.unit.get(), &sequencer, &wrapper};
};

using Heard = std::vector<std::vector<int>>;

TEST_F(MidiEventRouterTest, KeyboardEventsFormTheirMessagesAndReachTheSequencer) {
  router.pianoKeyPressed(60, 1.0f);
  router.pianoKeyPressed(64, 0.5f);
  router.pianoKeyReleased(60);
  router.pianoKeyReleased(64);
  router.pitchWheelChanged(1.0f);
  router.pitchWheelChanged(0.5f);
  router.modWheelChanged(0.5f);
  router.panic();
  EXPECT_EQ(heard(), (Heard{{0x90, 60, 128},
                            {0x90, 64, 64},
                            {0x80, 60, 1},
                            {0x80, 64, 1},
                            {0xE0, 0, 128},
                            {0xE0, 0, 64},
                            {0xB0, 1, 63},
                            {0xB0, 120, 0}}));
  // Synchronously, in release order.
  EXPECT_EQ(chordInStepZero(), (Chord{{60, 1.0f}, {64, 0.5f}}));
}

// The router's values are kept up to the plug-in, whose MIDI input then gets valid MIDI: mda
// JX10 takes a velocity byte of 128 as 0 and stays silent. A key at full velocity (the keyboard's
// Velocity button off) must sound; each event has its message's length.
TEST_F(MidiEventRouterTest, FullVelocityKeySoundsAndThePluginGetsValidMidiOnly) {
  router.pianoKeyPressed(60, 1.0f);
  EXPECT_EQ(heard(), (Heard{{0x90, 60, 128}}));
  EXPECT_EQ(atomInput(), (Heard{{0x90, 60, 127}}));
  const std::vector<float> sound = rig.render(8192);
  EXPECT_GT(testing_support::rms(sound.data(), sound.size()), 0.01);

  router.pitchWheelChanged(1.0f);
  router.handleMidiEvent(0xC0, 0, 5, 0x33, 0);  // a program change: two bytes
  router.handleMidiEvent(0xF0, 8, 1, 2, 0);     // a timing clock as forwarded: no whole message
  router.handleMidiEvent(0x90, 0, 0x90, 0x40, 0);
  heard();
  EXPECT_EQ(atomInput(), (Heard{{0xE0, 0x7F, 0x7F}, {0xC0, 5}, {0x90, 0x7F, 0x40}}));
  mainQueue.runPending();
}

// A source is registered whatever its active flag, and only once however often it is added.
TEST_F(MidiEventRouterTest, SourceMidiIsFilteredSentAtOnceAndRecordedThroughTheMainQueue) {
  PGMidiSource source("Keystation", false);
  platform::LogCapture log;
  source.setIsActive(false);
  router.sourceAdded(&wrapper, &source);
  router.sourceAdded(&wrapper, &source);
  source.setIsActive(true);
  EXPECT_TRUE(log.contains("MIDI source added Keystation"));

  deliver(source, {0x94, 60, 100});              // channel 5
  EXPECT_EQ(heard(), (Heard{{0x90, 60, 100}}));  // once, not twice
  EXPECT_TRUE(chordInStepZero().empty()) << "the sequencer hears it from the main queue";
  EXPECT_EQ(sequencer.numKeysPressed(), 0);
  ASSERT_TRUE(mainQueue.waitForTask(std::chrono::seconds(5)));
  mainQueue.runPending();
  EXPECT_EQ(sequencer.numKeysPressed(), 1);

  // A note on with velocity 0: the instrument gets it as it is, the sequencer as a release.
  deliver(source, {0x94, 60, 0});
  EXPECT_EQ(heard(), (Heard{{0x90, 60, 0}}));
  ASSERT_TRUE(mainQueue.waitForTask(std::chrono::seconds(5)));
  mainQueue.runPending();
  EXPECT_EQ(chordInStepZero(), (Chord{{60, 0.78125f}}));

  // The channel setting reaches the reading (the packet-list fuzzer checks the filter against every
  // setting).
  wrapper.setChannel(1);
  deliver(source, {0x94, 64, 100});
  EXPECT_TRUE(heard().empty());

  // Switched off, a source ends what it has sounding (here the note on channel 5 that the filter
  // kept out, whose note off the filter now lets through) and delivers nothing more.
  wrapper.setChannel(0);
  source.setIsActive(false);
  deliver(source, {0x90, 65, 100});
  EXPECT_EQ(heard(), (Heard{{0x80, 64, 0}}));
  source.setIsActive(true);

  router.sourceRemoved(&wrapper, &source);
  EXPECT_TRUE(log.contains("MIDI source removed Keystation"));
  deliver(source, {0x90, 67, 100});
  EXPECT_TRUE(heard().empty());
  mainQueue.runPending();
}

}  // namespace
