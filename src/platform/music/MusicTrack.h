#pragma once

// A track of timed events, edited on the main thread and read by the audio thread.
//
// The main thread edits a private working copy. After the main thread's current task has ended
// (the track queues a publish task on the main queue at its first edit), the working copy is
// published as one immutable TrackSnapshot. A reader therefore sees every edit of one task
// together, never half of a clear-then-rewrite, and reads without locks or allocation.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/foundation/SnapshotPublisher.h"
#include "platform/music/MusicEvent.h"

namespace platform {

struct LoopInfo {
  double loopDuration = 0.0;       // beats; 0 means the track does not loop
  std::int32_t numberOfLoops = 0;  // how often it plays; 0 means forever

  friend bool operator==(const LoopInfo&, const LoopInfo&) = default;
};

// What a reader sees: the events in time order (equal times in insertion order) and properties.
struct TrackSnapshot {
  std::vector<MusicEvent> events;
  LoopInfo loopInfo;
  double trackLength = 0.0;   // beats
  std::uint64_t version = 0;  // grows with every publish
};

class MusicTrack : public std::enable_shared_from_this<MusicTrack> {
 public:
  using Reader = SnapshotPublisher<TrackSnapshot>::Reader;

  static std::shared_ptr<MusicTrack> create();
  MusicTrack(const MusicTrack&) = delete;
  MusicTrack& operator=(const MusicTrack&) = delete;

  // Editing, on the main thread.
  // Removes every event whose time lies in [start, end); an end at or before the start removes
  // nothing.
  void clear(double start, double end);
  // Adds a note; it goes after the events at the same time that are already there.
  void newMIDINoteEvent(double time, const MIDINoteMessage& message);
  void newExtendedTempoEvent(double time, double bpm);
  void setLoopInfo(const LoopInfo& loopInfo);
  // Sets the length in beats. Until it is set, the length is where the last note ends.
  void setTrackLength(double beats);

  // The working copy, as the main thread sees it.
  const std::vector<MusicEvent>& events() const { return events_; }
  LoopInfo loopInfo() const { return loopInfo_; }
  double trackLength() const;

  // Publishes pending edits at once, instead of when the current main-thread task ends.
  void publishNow();
  // The last published snapshot, for the main thread.
  const TrackSnapshot& published() const { return publisher_.current(); }

  // A reader for one other thread (the audio thread); create it on the main thread.
  Reader makeReader() { return publisher_.makeReader(); }

 private:
  friend class MusicEventIterator;
  MusicTrack();
  // Records that the working copy changed and makes sure a publish is queued.
  void edited();
  void publishIfEdited();

  std::vector<MusicEvent> events_;
  LoopInfo loopInfo_;
  double trackLength_ = -1.0;  // negative until set
  bool edited_ = false;
  bool publishQueued_ = false;
  std::uint64_t version_ = 0;
  SnapshotPublisher<TrackSnapshot> publisher_;
};

}  // namespace platform
