// The sequencer screen, headless, with real widgets, a real music player and an audio graph
// rendered by hand: recording chords, ties, auto-increment, transport, tempo and the playhead.

#include "sequencer/KRSequencerController.h"

#include <gtest/gtest.h>

#include <QTest>
#include <memory>
#include <vector>

#include "keyboard/KRBPMControl.h"
#include "platform/audio/AudioGraph.h"
#include "platform/foundation/MainQueue.h"
#include "platform/ui/Button.h"
#include "platform/ui/DisplayLink.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRStepSequence.h"
#include "support/ManualClock.h"
#include "support/OfflineRig.h"
#include "support/PointerEvents.h"
#include "support/StepKeys.h"

namespace {

using testing_support::Chord;

class KRSequencerControllerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    screen = std::make_unique<KRSequencerController>(KRSequencerController::kTabletInterface,
                                                     nullptr, clock);
    screen->resize(1024, 128);
    screen->show();
  }

  void click(platform::Button* button) { QTest::mouseClick(button, Qt::LeftButton); }
  void select(int from, int to) { screen->trackView()->updateSelection(from, to); }
  Chord chordAt(int step) { return testing_support::chordAt(*screen->stepSequence(), step); }
  // Whether steps 4 to 8 are tied.
  std::vector<bool> ties() {
    std::vector<bool> tied;
    for (int step = 4; step <= 8; ++step)
      tied.push_back(screen->stepSequence()->stepAtIndex(step).tie());
    return tied;
  }
  platform::Range selection() { return screen->trackView()->selectionRange(); }

  testing_support::ManualClock clock;
  std::unique_ptr<KRSequencerController> screen;
};

TEST_F(KRSequencerControllerTest,
       KeysReleasedTogetherMakeOneChordInReleaseOrderInEverySelectedStep) {
  select(2, 4);
  screen->keyOn(60, 0.5f);  // with write mode off a key changes nothing
  screen->keyOff(60);
  EXPECT_EQ(screen->numKeysPressed(), 0);
  EXPECT_TRUE(screen->musicTrack()->events().empty());
  click(screen->writeModeButton());
  EXPECT_TRUE(screen->writeModeButton()->isSelected());
  screen->keyOn(60, 0.5f);
  screen->keyOn(64, 0.75f);
  screen->keyOn(67, 1.0f);
  screen->keyOff(67);
  clock.advance(0.1);
  screen->keyOff(60);
  clock.advance(0.1);
  screen->keyOff(64);
  const Chord expected{{67, 1.0f}, {60, 0.5f}, {64, 0.75f}};
  EXPECT_TRUE(chordAt(1).empty());
  for (int step = 2; step <= 4; ++step)
    EXPECT_EQ(chordAt(step), expected) << step;
  EXPECT_TRUE(chordAt(5).empty());
  // Three steps of three notes on the track.
  EXPECT_EQ(screen->musicTrack()->events().size(), 9u);
}

// Holding C for 2 s while tapping E: the tap writes nothing, C's release takes E along only when
// E was released less than 0.3 s before.
TEST_F(KRSequencerControllerTest, AHeldKeyTakesATapAlongOnlyWithinTheGatheringTime) {
  click(screen->writeModeButton());
  for (double tapBeforeRelease : {0.29, 0.31}) {
    select(0, 0);
    screen->stepSequence()->clearStepsInRange({0, 1});
    screen->keyOn(48, 0.6f);
    clock.advance(2.0 - tapBeforeRelease - 0.05);
    screen->keyOn(52, 0.7f);
    clock.advance(0.05);
    screen->keyOff(52);
    EXPECT_TRUE(chordAt(0).empty()) << "C is still held";
    clock.advance(tapBeforeRelease);
    screen->keyOff(48);
    const Chord expected =
        tapBeforeRelease < 0.3 ? Chord{{52, 0.7f}, {48, 0.6f}} : Chord{{48, 0.6f}};
    EXPECT_EQ(chordAt(0), expected) << "tap " << tapBeforeRelease << " s before";
  }
}

// The key-off of a key pressed before write mode came on must not leave the count of held keys
// below zero, which would keep every later chord from being written.
TEST_F(KRSequencerControllerTest, WriteModeTurnedOnWhileAKeyIsHeldWritesItOnRelease) {
  select(6, 6);
  screen->keyOn(62, 0.9f);  // ignored: write mode is off
  click(screen->writeModeButton());
  screen->keyOff(62);
  EXPECT_EQ(screen->numKeysPressed(), 0);
  EXPECT_EQ(chordAt(6), (Chord{{62, 0.0f}}));  // never pressed in write mode
  screen->keyOn(64, 0.4f);
  screen->keyOff(64);
  EXPECT_EQ(chordAt(6), (Chord{{64, 0.4f}}));
}

TEST_F(KRSequencerControllerTest, AutoIncrementMovesToTheStepAfterTheSelection) {
  click(screen->writeModeButton());
  click(screen->autoIncrementButton());
  EXPECT_TRUE(screen->autoIncrementButton()->isSelected());
  const auto play = [&] {
    screen->keyOn(60, 0.5f);
    screen->keyOff(60);
  };
  select(14, 15);
  play();
  EXPECT_EQ(selection(), (platform::Range{0, 1}));
  select(3, 3);
  play();
  EXPECT_EQ(selection(), (platform::Range{4, 1}));
  // A reversed selection (dragged leftwards) writes nothing and moves past its end.
  screen->trackView()->setSelStart(6);
  screen->trackView()->setSelEnd(2);
  play();
  EXPECT_EQ(selection(), (platform::Range{3, 1}));
  EXPECT_TRUE(chordAt(2).empty());

  click(screen->autoIncrementButton());
  play();
  EXPECT_EQ(selection(), (platform::Range{3, 1}));
}

TEST_F(KRSequencerControllerTest, TieUntiesTheSelectionWhenAnyOfItIsTiedOtherwiseTiesIt) {
  screen->stepSequence()->setTieAtPosition(true, 5);
  select(4, 7);
  const std::vector<bool> none(5, false), fourToSeven{true, true, true, true, false};
  click(screen->tieButton());
  EXPECT_EQ(ties(), none);
  click(screen->tieButton());
  EXPECT_EQ(ties(), fourToSeven);
  click(screen->clearButton());
  EXPECT_EQ(ties(), none);
}

TEST_F(KRSequencerControllerTest, TempoControlReplacesTheTempo) {
  KRBPMControl* bpm = screen->bpmControl();
  testing_support::press(bpm, {10, 10});
  testing_support::moveTo(bpm, {110, 10});  // +30 beats per minute
  testing_support::release(bpm, {110, 10});
  ASSERT_EQ(screen->tempoTrack()->events().size(), 1u);
  const auto& event = screen->tempoTrack()->events()[0];
  EXPECT_EQ(event.time, 0.0);
  ASSERT_TRUE(event.tempo());
  EXPECT_EQ(event.tempo()->bpm, 150.0);
}

// The transport and the playhead, on a real player in a graph rendered by hand.
class SequencerTransportTest : public KRSequencerControllerTest {
 protected:
  void SetUp() override {
    KRSequencerControllerTest::SetUp();
    graph.enableManualRenderingMode(kRate, kBlock);
    graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
    graph.start();
    graph.setMusicSequence(screen->getMusicSequence());
  }
  void TearDown() override { graph.setMusicSequence(nullptr); }

  // Renders `beats` at 120 BPM, running the display timer after every block; returns the step
  // the grid shows after each hand-over, in order.
  std::vector<int> play(double beats) {
    std::vector<int> shown;
    std::vector<float> left(kBlock), right(kBlock);
    float* out[2] = {left.data(), right.data()};
    const int blocks = static_cast<int>(beats * 0.5 * kRate / kBlock);
    for (int i = 0; i < blocks; ++i) {
      graph.renderOffline(kBlock, out);
      const int rowBefore = screen->playheadRow();
      screen->updatePlayhead();
      if (screen->playheadRow() != rowBefore) {
        shown.push_back(screen->trackView()->playheadPosition().x() /
                        screen->trackView()->blockWidth());
      }
    }
    return shown;
  }

  static constexpr double kRate = 48000.0;
  static constexpr std::uint32_t kBlock = 64;
  platform::AudioGraph graph;
};

// Play stops without rewinding and starts again from the top. The grid is told the step that has
// just begun, one boundary late: after a restart it first shows the row stored when the player
// stopped, then step 1.
TEST_F(SequencerTransportTest, PlayStopsAndRestartsFromTheTopAndThePlayheadHandsOverTheLastRow) {
  EXPECT_FALSE(screen->displayLink()->isRunning());  // nothing moves while stopped
  click(screen->playButton());
  EXPECT_TRUE(screen->displayLink()->isRunning());
  EXPECT_TRUE(screen->playButton()->isSelected());
  EXPECT_TRUE(screen->musicPlayer()->isPlaying());
  EXPECT_EQ(play(1.01), (std::vector<int>{0, 1, 2, 3, 4}));  // the first row stored is 0
  EXPECT_EQ(screen->playheadRow(), 5);
  click(screen->playButton());  // stopped just after beat 1: the stored row is 5
  EXPECT_FALSE(screen->playButton()->isSelected());
  EXPECT_FALSE(screen->displayLink()->isRunning());
  const double stoppedAt = screen->musicPlayer()->getTime();
  EXPECT_NEAR(stoppedAt, 1.01, 0.01);
  play(0.5);
  EXPECT_EQ(screen->musicPlayer()->getTime(), stoppedAt);
  click(screen->playButton());
  EXPECT_EQ(play(0.51), (std::vector<int>{5, 1, 2}));
  EXPECT_NEAR(screen->musicPlayer()->getTime(), 0.51, 0.01);
  // Around the loop: step 15, then 0.
  const std::vector<int> shown = play(3.5);
  ASSERT_GE(shown.size(), 2u);
  EXPECT_EQ(std::vector<int>(shown.end() - 2, shown.end()), (std::vector<int>{15, 0}));
}

// A chord recorded through the screen into step 3 while the sequence plays reaches a real
// instrument at the next pass of the loop, at step 3's exact frame, with its keys.
TEST(SequencerRecording, ARecordedChordReachesTheInstrumentAtItsStepInTheNextPass) {
  platform::ManualMainQueue mainQueue;  // the main thread's task boundaries, run by hand
  platform::MainQueue::setMain(&mainQueue);
  testing_support::ManualClock clock;
  KRSequencerController screen(KRSequencerController::kTabletInterface, nullptr, clock);
  testing_support::OfflineRig rig("MDA JX10", 256, 48000.0);
  rig.graph.setMusicSequence(screen.getMusicSequence());

  screen.playButtonPressed(screen.playButton());
  rig.render(24000, [&] { mainQueue.runPending(); });  // half a pass: step 3 has gone by
  screen.writeModeButtonPressed(screen.writeModeButton());
  screen.trackView()->updateSelection(3, 3);
  screen.keyOn(60, 100 / 128.0f);
  screen.keyOn(67, 80 / 128.0f);
  screen.keyOff(67);
  screen.keyOff(60);
  rig.render(2 * 96000, [&] { mainQueue.runPending(); });

  // One pass is 4 beats at 120 BPM = 96000 frames; step 3 starts 0.75 beat into it.
  const std::uint64_t expectedFrame = 96000 + std::llround(0.75 * 60.0 / 120.0 * 48000.0);
  std::vector<testing_support::ReceivedMidi> noteOns;
  for (const auto& message : rig.received) {
    if ((message.status & 0xF0) == 0x90 && message.data2 > 0) noteOns.push_back(message);
  }
  ASSERT_GE(noteOns.size(), 2u);
  EXPECT_EQ(noteOns[0], (testing_support::ReceivedMidi{expectedFrame, 0x90, 67, 80}));
  EXPECT_EQ(noteOns[1], (testing_support::ReceivedMidi{expectedFrame, 0x90, 60, 100}));

  rig.graph.setMusicSequence(nullptr);
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
