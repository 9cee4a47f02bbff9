#include "platform/music/MusicSequence.h"

namespace platform {

MusicSequence::MusicSequence() : tempoTrack_(MusicTrack::create()) {}

MusicTrack* MusicSequence::newTrack() {
  tracks_.push_back(MusicTrack::create());
  return tracks_.back().get();
}

MusicTrack* MusicSequence::track(std::size_t index) const {
  return index < tracks_.size() ? tracks_[index].get() : nullptr;
}

}  // namespace platform
