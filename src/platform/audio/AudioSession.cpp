#include "platform/audio/AudioSession.h"

#include <cmath>

namespace platform {

AudioSession& AudioSession::sharedInstance() {
  static AudioSession session;
  return session;
}

std::optional<std::string> AudioSession::setCategory(Category category, std::uint32_t options) {
  std::lock_guard lock(mutex_);
  category_ = category;
  options_ = options;
  return std::nullopt;
}

std::optional<std::string> AudioSession::setPreferredIOBufferDuration(double seconds) {
  if (!(seconds > 0.0 && seconds <= 1.0)) return "buffer duration out of range";
  std::lock_guard lock(mutex_);
  bufferDuration_ = seconds;
  return std::nullopt;
}

std::optional<std::string> AudioSession::setActive(bool active) {
  std::lock_guard lock(mutex_);
  active_ = active;
  return std::nullopt;
}

AudioSession::Category AudioSession::category() const {
  std::lock_guard lock(mutex_);
  return category_;
}

std::uint32_t AudioSession::categoryOptions() const {
  std::lock_guard lock(mutex_);
  return options_;
}

bool AudioSession::isActive() const {
  std::lock_guard lock(mutex_);
  return active_;
}

double AudioSession::preferredIOBufferDuration() const {
  std::lock_guard lock(mutex_);
  return bufferDuration_;
}

std::uint32_t AudioSession::preferredBufferFrames(double sampleRate) const {
  const double wanted = preferredIOBufferDuration() * sampleRate;
  std::uint32_t frames = 32;
  while (frames < wanted && frames < 4096)
    frames *= 2;
  return frames;
}

}  // namespace platform
