#include "platform/music/MusicSequence.h"

#include <algorithm>

#include "platform/music/MusicPlayer.h"

namespace platform {

MusicSequence::MusicSequence() : tempoTrack_(MusicTrack::create()) {}

MusicSequence::~MusicSequence() {
  setRenderTarget(nullptr);
  for (MusicPlayer* player : std::vector<MusicPlayer*>(players_))
    player->setSequence(nullptr);
}

MusicTrack* MusicSequence::newTrack() {
  tracks_.push_back(MusicTrack::create());
  return tracks_.back().get();
}

MusicTrack* MusicSequence::track(std::size_t index) const {
  return index < tracks_.size() ? tracks_[index].get() : nullptr;
}

void MusicSequence::setRenderTarget(MusicRenderTarget* target) {
  if (target == renderTarget_) return;
  if (renderTarget_) {
    for (MusicPlayer* player : players_)
      renderTarget_->detachPlayer(*player);
  }
  renderTarget_ = target;
  if (renderTarget_) {
    for (MusicPlayer* player : players_)
      renderTarget_->attachPlayer(*player);
  }
}

void MusicSequence::addPlayer(MusicPlayer* player) {
  players_.push_back(player);
  if (renderTarget_) renderTarget_->attachPlayer(*player);
}

void MusicSequence::removePlayer(MusicPlayer* player) {
  if (renderTarget_) renderTarget_->detachPlayer(*player);
  std::erase(players_, player);
}

}  // namespace platform
