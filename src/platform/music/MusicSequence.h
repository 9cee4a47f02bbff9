#pragma once

// A music sequence: note tracks and one tempo track. Tracks live as long as the sequence. Players
// of the sequence play through the audio graph it is attached to (its render target).

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/music/MusicTrack.h"

namespace platform {

class MusicPlayer;

// Where a sequence's players sound: the audio graph that runs them in its audio callback.
class MusicRenderTarget {
 public:
  virtual void attachPlayer(MusicPlayer& player) = 0;
  // Returns once the audio thread no longer uses the player.
  virtual void detachPlayer(MusicPlayer& player) = 0;

 protected:
  ~MusicRenderTarget() = default;
};

// The tempo of a sequence whose tempo track holds no tempo event.
inline constexpr double kDefaultTempo = 120.0;

class MusicSequence {
 public:
  MusicSequence();
  ~MusicSequence();
  MusicSequence(const MusicSequence&) = delete;
  MusicSequence& operator=(const MusicSequence&) = delete;

  // Adds a note track at the end and returns it.
  MusicTrack* newTrack();
  std::size_t trackCount() const { return tracks_.size(); }
  // The note track at `index`, or null.
  MusicTrack* track(std::size_t index) const;
  MusicTrack* tempoTrack() const { return tempoTrack_.get(); }

  // Attaches the sequence, and so its players, to an audio graph (null detaches).
  void setRenderTarget(MusicRenderTarget* target);
  MusicRenderTarget* renderTarget() const { return renderTarget_; }

 private:
  friend class MusicPlayer;
  void addPlayer(MusicPlayer* player);
  void removePlayer(MusicPlayer* player);

  MusicRenderTarget* renderTarget_ = nullptr;
  std::vector<MusicPlayer*> players_;
  std::shared_ptr<MusicTrack> tempoTrack_;
  std::vector<std::shared_ptr<MusicTrack>> tracks_;
};

}  // namespace platform
