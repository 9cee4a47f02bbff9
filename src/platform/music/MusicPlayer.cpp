// Main-thread side of the music player.

#include "platform/music/MusicPlayer.h"

namespace platform {

MusicPlayer::~MusicPlayer() {
  setSequence(nullptr);
}

void MusicPlayer::setSequence(MusicSequence* sequence) {
  if (sequence == sequence_) return;
  if (sequence_) sequence_->removePlayer(this);  // the audio thread lets go of the player here
  tempoReader_ = {};
  trackReaders_.clear();
  sequence_ = sequence;
  if (!sequence_) return;
  tempoReader_ = sequence_->tempoTrack()->makeReader();
  for (std::size_t i = 0; i < sequence_->trackCount(); ++i) {
    trackReaders_.push_back(sequence_->track(i)->makeReader());
  }
  sequence_->addPlayer(this);
}

void MusicPlayer::publishTransport() {
  ++transport_.serial;
  transportPublisher_.publish(std::make_unique<Transport>(transport_));
}

bool MusicPlayer::start() {
  if (!sequence_ || !sequence_->renderTarget()) return false;
  if (playing_) return true;
  playing_ = true;
  transport_.playing = true;
  transport_.beats = time_;
  publishTransport();
  return true;
}

void MusicPlayer::stop() {
  if (!playing_) return;
  time_ = getTime();
  playing_ = false;
  transport_.playing = false;
  transport_.beats = time_;
  publishTransport();
}

void MusicPlayer::setTime(double beats) {
  time_ = beats;
  transport_.beats = beats;
  transport_.jumpSerial = transport_.serial + 1;
  publishTransport();
}

double MusicPlayer::getTime() const {
  // Until the audio thread has carried out the last command, the position is the commanded one.
  if (acknowledged_.load(std::memory_order_acquire) < transport_.serial) return time_;
  return playing_ ? audioTime_.load(std::memory_order_relaxed) : time_;
}

}  // namespace platform
