// The router with real parts around it: a real instrument in an audio graph rendered by hand
// (what it receives is recorded at the plug-in's input), the real sequencer screen, and MIDI
// sources delivering as the receive thread does.

#include "midi/MidiEventRouter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRSequencerController.h"
#include "sequencer/KRStepSequence.h"
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

  wrapper.setChannel(0);
  source.setIsActive(false);
  deliver(source, {0x90, 65, 100});
  EXPECT_TRUE(heard().empty());
  source.setIsActive(true);

  router.sourceRemoved(&wrapper, &source);
  EXPECT_TRUE(log.contains("MIDI source removed Keystation"));
  deliver(source, {0x90, 67, 100});
  EXPECT_TRUE(heard().empty());
  mainQueue.runPending();
}

}  // namespace
