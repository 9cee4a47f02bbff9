#pragma once

// Walks the events of a track's working copy in time order, on the main thread. The data
// pointer of getEventInfo is writable: a change made through it (a note's duration, say) is a
// change of the track and is published with the track's other edits. The pointer is valid until
// the track is next edited. The track must outlive the iterator.

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/music/MusicEvent.h"
#include "platform/music/MusicTrack.h"

namespace platform {

struct MusicEventInfo {
  double time = 0.0;
  MusicEventType type = MusicEventType::null;
  void* data = nullptr;  // MIDINoteMessage* for notes, ExtendedTempoEvent* for tempo events
  std::uint32_t dataSize = 0;
};

class MusicEventIterator {
 public:
  // Starts at the track's first event.
  explicit MusicEventIterator(MusicTrack& track) : track_(track) {}

  // Moves to the first event at or after `time` (past the end when there is none).
  void seek(double time);
  bool hasCurrentEvent() const;
  // Whether an event follows the current one.
  bool hasNextEvent() const;
  // Moves to the next event; false when there was no current event to move from.
  bool nextEvent();
  // The current event, or nothing when the iterator is past the end.
  std::optional<MusicEventInfo> getEventInfo();

 private:
  MusicTrack& track_;
  std::size_t index_ = 0;
};

}  // namespace platform
