// A track's order and what it publishes. The iterator, clearing a half-open span and the tempo
// track are seen where the step sequence and the sequencer screen use them: the gate walks every
// note from the start, also of an empty track (KRStepSequenceTest), and so does
// MusicTrackConcurrencyTest's rewrite.

#include "platform/music/MusicTrack.h"

#include <gtest/gtest.h>

#include "platform/foundation/MainQueue.h"
#include "platform/music/MusicSequence.h"

namespace platform {
namespace {

MIDINoteMessage note(std::uint8_t number, float duration = 0.5f) {
  return MIDINoteMessage{0, number, 100, 0, duration};
}

// Note numbers of a list of events, in order.
std::vector<int> numbers(const std::vector<MusicEvent>& events) {
  std::vector<int> result;
  for (const auto& event : events)
    result.push_back(event.note() ? event.note()->note : -1);
  return result;
}

class MusicTrackTest : public ::testing::Test {
 protected:
  void SetUp() override { MainQueue::setMain(&mainQueue); }
  void TearDown() override { MainQueue::setMain(nullptr); }
  ManualMainQueue mainQueue;
  MusicSequence sequence;
  MusicTrack& track = *sequence.newTrack();
};

TEST_F(MusicTrackTest, KeepsTimeOrderAndInsertionOrderAtEqualTimes) {
  track.newMIDINoteEvent(1.0, note(10));
  track.newMIDINoteEvent(0.5, note(20));
  track.newMIDINoteEvent(1.0, note(11));
  track.newMIDINoteEvent(0.0, note(30));
  track.newMIDINoteEvent(1.0, note(12));
  EXPECT_EQ(numbers(track.events()), (std::vector<int>{30, 20, 10, 11, 12}));
}

// One publication per main-thread task, whole, is MusicTrackConcurrencyTest's.
TEST_F(MusicTrackTest, LoopInfoAndLengthArePublishedWithTheEvents) {
  EXPECT_EQ(track.trackLength(), 0.0);
  track.newMIDINoteEvent(3.0, note(60, 1.5f));
  EXPECT_EQ(track.trackLength(), 4.5);  // until set: where the last note ends
  track.setLoopInfo({4.0, 0});
  track.setTrackLength(4.0);
  mainQueue.runPending();
  const TrackSnapshot& snapshot = track.published();
  EXPECT_EQ(snapshot.loopInfo, (LoopInfo{4.0, 0}));
  EXPECT_EQ(snapshot.trackLength, 4.0);
  EXPECT_EQ(snapshot.events.size(), 1u);
}

TEST_F(MusicTrackTest, APublishQueuedForADestroyedTrackDoesNothing) {
  {
    MusicSequence shortLived;
    shortLived.newTrack()->newMIDINoteEvent(0.0, note(1));
  }
  EXPECT_EQ(mainQueue.runPending(), 1u);
}

}  // namespace
}  // namespace platform
