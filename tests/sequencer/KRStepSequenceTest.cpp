#include "sequencer/KRStepSequence.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <tuple>

#include "platform/foundation/MainQueue.h"
#include "platform/music/MusicSequence.h"
#include "support/StepKeys.h"

using platform::MIDINoteMessage;
using platform::Range;
using testing_support::stepKey;

namespace {

constexpr std::uint64_t kWrappedLength = std::numeric_limits<std::uint64_t>::max();  // -1

struct RecordingDelegate : KRStepSequenceDelegate {
  void sequenceUpdatedAtRange(Range range) override { ranges.push_back(range); }
  std::vector<Range> ranges;
};

// One note event as it stands on the track: time, note, velocity, duration.
using Written = std::tuple<double, int, int, float>;

class KRStepSequenceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::MainQueue::setMain(&mainQueue);
    sequence.setMusicEventIterator(&iterator);
    sequence.setMusicTrack(&track);
    sequence.setDelegate(&delegate);
  }
  void TearDown() override { platform::MainQueue::setMain(nullptr); }

  std::vector<Written> written() const {
    std::vector<Written> result;
    for (const auto& event : track.events()) {
      const MIDINoteMessage* n = event.note();
      EXPECT_NE(n, nullptr);
      EXPECT_EQ(n->channel, 0);
      EXPECT_EQ(n->releaseVelocity, 0);
      result.push_back({event.time, n->note, n->velocity, n->duration});
    }
    return result;
  }
  // Note (60 + step) at full velocity in every step, rendered over the whole bar.
  void fillEveryStep() {
    for (std::uint64_t i = 0; i < 16; ++i) {
      sequence.setKeysAtPosition({stepKey(60 + static_cast<int>(i), 1.0f)}, i);
    }
    sequence.updateMusicTrackInRange({0, 16});
  }
  std::optional<double> timeOfNote(int note) const {
    for (const auto& w : written()) {
      if (std::get<1>(w) == note) return std::get<0>(w);
    }
    return std::nullopt;
  }

  platform::ManualMainQueue mainQueue;
  platform::MusicSequence musicSequence;
  platform::MusicTrack& track = *musicSequence.newTrack();
  platform::MusicEventIterator iterator{track};
  KRStepSequence sequence;
  RecordingDelegate delegate;
};

TEST_F(KRStepSequenceTest, StepTimesFollowSwingAndLengthsFollowGateAndTieRuns) {
  for (std::uint64_t i = 0; i <= 16; ++i)
    EXPECT_EQ(sequence.stepPosition(i), i / 4.0f);
  sequence.setSwing(1.0f);  // odd steps move by an eighth of a beat (RenderingClears...)
  EXPECT_EQ(sequence.stepPosition(4), 1.0f);
  EXPECT_EQ(sequence.stepPosition(16), 4.0f);
  // Lengths follow the gate and tie runs.
  sequence.setSwing(0.0f);
  EXPECT_EQ(sequence.stepLength(0), 0.125f);
  for (std::uint64_t step : {3, 4, 5})
    sequence.setTieAtPosition(true, step);
  EXPECT_EQ(sequence.stepLength(3), 0.875f);
  EXPECT_EQ(sequence.stepLength(4), 0.625f);
  EXPECT_EQ(sequence.stepLength(5), 0.375f);
  EXPECT_EQ(sequence.stepLength(6), 0.125f);
  // A run that reaches step 15 ends there: ties never wrap around to step 0.
  for (std::uint64_t step : {0, 14, 15})
    sequence.setTieAtPosition(true, step);
  EXPECT_EQ(sequence.stepLength(15), 0.375f);
  EXPECT_EQ(sequence.stepLength(14), 0.625f);
}

// Velocities from the keyboards and MIDI lie in 0 to 1; full velocity is written as 128 on purpose.
TEST_F(KRStepSequenceTest, RenderingWritesEachKeyWithItsBytesAndLength) {
  sequence.setKeysToRange({stepKey(60, 1.0f), stepKey(64, 127.0f / 128)}, {2, 2});
  sequence.setKeysAtPosition({stepKey(50, 0.5f)}, 7);
  sequence.setTieAtPosition(true, 3);
  sequence.updateMusicTrackInRange({2, 6});
  EXPECT_EQ(written(), (std::vector<Written>{{0.5, 60, 128, 0.125f},
                                             {0.5, 64, 127, 0.125f},
                                             {0.75, 60, 128, 0.375f},
                                             {0.75, 64, 127, 0.375f},
                                             {1.75, 50, 64, 0.125f}}));
}

TEST_F(KRStepSequenceTest, RenderingClearsExactlyTheRangesTimeSpan) {
  sequence.setSwing(1.0f);                     // step 3 starts at 0.875
  for (double time : {0.49, 0.5, 0.8, 0.875})  // notes the sequence did not write
    track.newMIDINoteEvent(time, MIDINoteMessage{0, 1, 1, 0, 1.0f});
  sequence.updateMusicTrackInRange({2, 1});  // clears [0.5, 0.875): the range ends on odd step 3
  std::vector<double> times;
  for (const auto& w : written())
    times.push_back(std::get<0>(w));
  EXPECT_EQ(times, (std::vector<double>{0.49, 0.875}));
}

// That edits tell the delegate is seen on the grid (KRSeqTrackViewTest.BlocksFollowModelChanges).
TEST_F(KRStepSequenceTest, DelegateIsHeldWeakly) {
  {
    RecordingDelegate shortLived;
    sequence.setDelegate(&shortLived);
    sequence.notifyDelegate({1, 1});
    EXPECT_EQ(shortLived.ranges.size(), 1u);
  }
  EXPECT_EQ(sequence.delegate(), nullptr);
  sequence.setKeysToRange({stepKey(60, 1.0f)}, {0, 2});  // must not reach the destroyed delegate
  EXPECT_EQ(sequence.stepAtIndex(1).keys().size(), 1u);
}

TEST_F(KRStepSequenceTest, WritingOrClearingAStepDropsItsTie) {
  sequence.setTieAtRange(true, {0, 4});
  sequence.setKeysAtPosition({stepKey(60, 1.0f)}, 1);
  sequence.clearStepsInRange({2, 1});
  EXPECT_TRUE(sequence.stepAtIndex(0).tie());
  EXPECT_FALSE(sequence.stepAtIndex(1).tie());
  EXPECT_FALSE(sequence.stepAtIndex(2).tie());
  EXPECT_TRUE(sequence.stepAtIndex(3).tie());
}

TEST_F(KRStepSequenceTest, GateIsKeptOffZeroAndOneAndRewritesEveryNoteInPlace) {
  sequence.setGate(0.0f);
  EXPECT_EQ(sequence.gate(), 0.01f);
  sequence.setGate(1.0f);
  EXPECT_EQ(sequence.gate(), 0.99f);
  sequence.setGate(0.5f);

  sequence.setKeysToRange({stepKey(60, 1.0f)}, {3, 1});
  sequence.setKeysToRange({stepKey(62, 1.0f)}, {8, 1});
  sequence.setTieAtRange(true, {3, 3});  // re-renders 3..5: step 3 spans three steps
  EXPECT_EQ(written(), (std::vector<Written>{{0.75, 60, 128, 0.875f}, {2.0, 62, 128, 0.125f}}));

  auto reader = track.makeReader();
  mainQueue.runPending();
  sequence.setGate(0.75f);
  EXPECT_EQ(written(), (std::vector<Written>{{0.75, 60, 128, 0.9375f}, {2.0, 62, 128, 0.1875f}}));
  // The in-place rewrite is a track edit like any other: readers get it after the main task.
  EXPECT_EQ(reader.acquire()->events.at(0).note()->duration, 0.875f);
  mainQueue.runPending();
  EXPECT_EQ(reader.acquire()->events.at(0).note()->duration, 0.9375f);
}

// Steps 0 to 14 are rendered again: the odd ones move, and step 15's old note is dropped.
TEST_F(KRStepSequenceTest, SwingMovesTheOddStepsNotesAndDropsStepFifteens) {
  fillEveryStep();
  sequence.setSwing(1.0f);  // clears [0, 3.875): the old note of step 15 at 3.75 goes
  EXPECT_EQ(timeOfNote(61), 0.375);
  EXPECT_EQ(timeOfNote(73), 3.375);
  EXPECT_EQ(timeOfNote(75), std::nullopt);
  EXPECT_EQ(written().size(), 15u);
}

TEST_F(KRStepSequenceTest, EmptyAndWrappedRangesChangeNothingButStillNotify) {
  fillEveryStep();
  const auto before = written();
  delegate.ranges.clear();

  sequence.setKeysToRange({stepKey(1, 1.0f)}, {5, 0});
  sequence.clearStepsInRange({5, kWrappedLength});  // end wraps to 4: clear(1.25, 1.0) is empty
  sequence.invertTieAtRange({15, kWrappedLength});
  sequence.setTieAtRange(true, {3, kWrappedLength - 1});  // a length of -2
  EXPECT_EQ(written(), before);
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(sequence.stepAtIndex(i).keys().at(0)->number(), 60 + i);
    EXPECT_FALSE(sequence.stepAtIndex(i).tie());
  }
  EXPECT_EQ(delegate.ranges,
            (std::vector<Range>{
                {5, 0}, {5, kWrappedLength}, {15, kWrappedLength}, {3, kWrappedLength - 1}}));
}

}  // namespace
