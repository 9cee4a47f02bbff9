#pragma once

// The process's audio session: its category, the buffer duration it prefers and whether it is
// active. On the desktop nothing else competes for the output, so setting a category or
// activating never fails; an invalid buffer duration is refused.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace platform {

class AudioSession {
 public:
  enum class Category { ambient, soloAmbient, playback, playAndRecord };
  static constexpr std::uint32_t kCategoryOptionMixWithOthers = 1;

  static AudioSession& sharedInstance();

  // Each returns an error description on failure, nothing on success.
  std::optional<std::string> setCategory(Category category, std::uint32_t options = 0);
  std::optional<std::string> setPreferredIOBufferDuration(double seconds);
  std::optional<std::string> setActive(bool active);

  Category category() const;
  std::uint32_t categoryOptions() const;
  bool isActive() const;
  double preferredIOBufferDuration() const;
  // The preferred duration as a buffer size at `sampleRate`: the next power of two (what JACK
  // and most devices accept), from 32 to 4096 frames.
  std::uint32_t preferredBufferFrames(double sampleRate) const;

 private:
  mutable std::mutex mutex_;
  Category category_ = Category::soloAmbient;
  std::uint32_t options_ = 0;
  bool active_ = false;
  double bufferDuration_ = 0.005;
};

}  // namespace platform
