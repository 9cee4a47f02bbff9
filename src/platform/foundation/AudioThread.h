#pragma once

// Marks the current thread as the audio thread while rendering, so that code shared with other
// threads (a plug-in's log calls, say) can tell that it must not block or allocate.

namespace platform {

bool onAudioThread() noexcept;

class AudioThreadScope {
 public:
  AudioThreadScope() noexcept;
  ~AudioThreadScope();
  AudioThreadScope(const AudioThreadScope&) = delete;
  AudioThreadScope& operator=(const AudioThreadScope&) = delete;

 private:
  bool previous_;
};

}  // namespace platform
