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
  if (transport_.playing) return true;
  transport_.playing = true;
  publishTransport();
  return true;
}

void MusicPlayer::stop() {
  if (!transport_.playing) return;
  transport_.beats = getTime();
  transport_.playing = false;
  publishTransport();
}

void MusicPlayer::setTime(double beats) {
  transport_.beats = beats;
  transport_.jumpSerial = transport_.serial + 1;
  publishTransport();
}

double MusicPlayer::getTime() const {
  // Until the audio thread has carried out the last command, the position is the commanded one.
  if (acknowledged_.load(std::memory_order_acquire) < transport_.serial) return transport_.beats;
  return transport_.playing ? audioTime_.load(std::memory_order_relaxed) : transport_.beats;
}

}  // namespace platform
