#include "platform/music/MusicEventIterator.h"

#include <algorithm>

namespace platform {

void MusicEventIterator::seek(double time) {
  const auto& events = track_.events_;
  auto found = std::lower_bound(events.begin(), events.end(), time,
                                [](const MusicEvent& event, double t) { return event.time < t; });
  index_ = static_cast<std::size_t>(found - events.begin());
}

bool MusicEventIterator::hasCurrentEvent() const {
  return index_ < track_.events_.size();
}

bool MusicEventIterator::hasNextEvent() const {
  return index_ + 1 < track_.events_.size();
}

bool MusicEventIterator::nextEvent() {
  if (!hasCurrentEvent()) return false;
  ++index_;
  return true;
}

std::optional<MusicEventInfo> MusicEventIterator::getEventInfo() {
  if (!hasCurrentEvent()) return std::nullopt;
  MusicEvent& event = track_.events_[index_];
  // The caller may write through the data pointer, so the track counts this as an edit.
  track_.edited();
  MusicEventInfo info{event.time, event.type(), nullptr, 0};
  if (auto* note = std::get_if<MIDINoteMessage>(&event.data)) {
    info.data = note;
    info.dataSize = sizeof(MIDINoteMessage);
  } else if (auto* tempo = std::get_if<ExtendedTempoEvent>(&event.data)) {
    info.data = tempo;
    info.dataSize = sizeof(ExtendedTempoEvent);
  }
  return info;
}

}  // namespace platform
