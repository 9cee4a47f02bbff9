#include "platform/music/MusicTrack.h"

#include <algorithm>

#include "platform/foundation/MainQueue.h"

namespace platform {
namespace {

bool earlier(const MusicEvent& event, double time) {
  return event.time < time;
}
bool later(double time, const MusicEvent& event) {
  return time < event.time;
}

}  // namespace

std::shared_ptr<MusicTrack> MusicTrack::create() {
  return std::shared_ptr<MusicTrack>(new MusicTrack());
}

MusicTrack::MusicTrack() : publisher_(std::make_unique<TrackSnapshot>()) {}

void MusicTrack::clear(double start, double end) {
  if (!(start < end)) return;
  auto first = std::lower_bound(events_.begin(), events_.end(), start, earlier);
  auto last = std::lower_bound(first, events_.end(), end, earlier);
  if (first == last) return;
  events_.erase(first, last);
  edited();
}

void MusicTrack::newMIDINoteEvent(double time, const MIDINoteMessage& message) {
  events_.insert(std::upper_bound(events_.begin(), events_.end(), time, later),
                 MusicEvent{time, message});
  edited();
}

void MusicTrack::newExtendedTempoEvent(double time, double bpm) {
  events_.insert(std::upper_bound(events_.begin(), events_.end(), time, later),
                 MusicEvent{time, ExtendedTempoEvent{bpm}});
  edited();
}

void MusicTrack::setLoopInfo(const LoopInfo& loopInfo) {
  loopInfo_ = loopInfo;
  edited();
}

void MusicTrack::setTrackLength(double beats) {
  trackLength_ = beats;
  edited();
}

double MusicTrack::trackLength() const {
  if (trackLength_ >= 0.0) return trackLength_;
  double end = 0.0;
  for (const MusicEvent& event : events_) {
    const MIDINoteMessage* note = event.note();
    end = std::max(end, event.time + (note ? note->duration : 0.0));
  }
  return end;
}

void MusicTrack::edited() {
  edited_ = true;
  if (publishQueued_) return;
  publishQueued_ = true;
  dispatchAsyncMain([weak = weak_from_this()] {
    if (auto track = weak.lock()) {
      track->publishQueued_ = false;
      track->publishIfEdited();
    }
  });
}

void MusicTrack::publishNow() {
  publishIfEdited();
}

void MusicTrack::publishIfEdited() {
  if (!edited_) return;
  edited_ = false;
  auto snapshot = std::make_unique<TrackSnapshot>();
  snapshot->events = events_;
  snapshot->loopInfo = loopInfo_;
  snapshot->trackLength = trackLength();
  snapshot->version = ++version_;
  publisher_.publish(std::move(snapshot));
}

}  // namespace platform
