// A reader thread walks a track's snapshots while the main thread edits the track. Run under
// ThreadSanitizer (make test-tsan) and AddressSanitizer, it also proves that no snapshot is freed
// while the reader holds it.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/foundation/MainQueue.h"
#include "platform/music/MusicEventIterator.h"
#include "platform/music/MusicSequence.h"

namespace platform {
namespace {

constexpr int kNotesPerBar = 16;

TEST(MusicTrackConcurrency, ReaderAlwaysSeesWholeEdits) {
  ManualMainQueue mainQueue;
  MainQueue::setMain(&mainQueue);
  MusicSequence sequence;
  MusicTrack& track = *sequence.newTrack();
  MusicEventIterator iterator(track);

  std::atomic<bool> done{false};
  std::atomic<long> snapshotsRead{0};
  std::atomic<int> faults{0};
  auto reader = track.makeReader();
  std::thread audio([&] {
    std::uint64_t lastVersion = 0;
    while (!done.load()) {
      const TrackSnapshot* snapshot = reader.acquire();
      if (snapshot->version < lastVersion) faults++;
      lastVersion = snapshot->version;
      if (snapshot->version == 0) continue;
      // Every published bar is complete: 16 notes in time order, all from the same edit (the
      // velocity) and all with the same, rewritten duration.
      const auto& events = snapshot->events;
      if (events.size() != kNotesPerBar) faults++;
      for (std::size_t i = 0; i < events.size(); ++i) {
        const MIDINoteMessage* note = events[i].note();
        if (!note || note->velocity != events[0].note()->velocity ||
            note->duration != events[0].note()->duration || events[i].time != i * 0.25) {
          faults++;
        }
      }
      snapshotsRead++;
    }
    reader.release();
  });

  for (int edit = 1; edit <= 2000; ++edit) {
    // One main-thread task: clear the bar, write it again, then rewrite every duration in place.
    track.clear(0.0, 4.0);
    for (int i = 0; i < kNotesPerBar; ++i) {
      const auto velocity = static_cast<std::uint8_t>(edit % 128);
      track.newMIDINoteEvent(i * 0.25, MIDINoteMessage{0, 60, velocity, 0, 0.125f});
    }
    iterator.seek(0.0);
    while (iterator.hasCurrentEvent()) {
      static_cast<MIDINoteMessage*>(iterator.getEventInfo()->data)->duration = 0.1f * (edit % 7);
      iterator.nextEvent();
    }
    mainQueue.runPending();  // the task ends: the edits are published together
  }
  // Let the reader see the last state before stopping it.
  while (snapshotsRead.load() == 0)
    std::this_thread::yield();
  done = true;
  audio.join();
  MainQueue::setMain(nullptr);

  EXPECT_EQ(faults.load(), 0);
  EXPECT_GT(snapshotsRead.load(), 0);
  EXPECT_EQ(track.published().version, 2000u);
}

}  // namespace
}  // namespace platform
