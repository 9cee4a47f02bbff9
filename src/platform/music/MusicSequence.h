#pragma once

// A music sequence: note tracks and one tempo track. Tracks live as long as the sequence.

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/music/MusicTrack.h"

namespace platform {

// The tempo of a sequence whose tempo track holds no tempo event.
inline constexpr double kDefaultTempo = 120.0;

class MusicSequence {
 public:
  MusicSequence();

  // Adds a note track at the end and returns it.
  MusicTrack* newTrack();
  std::size_t trackCount() const { return tracks_.size(); }
  // The note track at `index`, or null.
  MusicTrack* track(std::size_t index) const;
  MusicTrack* tempoTrack() const { return tempoTrack_.get(); }

 private:
  std::shared_ptr<MusicTrack> tempoTrack_;
  std::vector<std::shared_ptr<MusicTrack>> tracks_;
};

}  // namespace platform
