#pragma once

// Marks the current thread as the audio thread while rendering, so that code shared with other
// threads (a plug-in's log calls, say) can tell that it must not block or allocate.

// Marks a function that runs on the audio thread: RealtimeSanitizer builds (clang) then abort
// when anything it calls allocates, locks or blocks.
#if defined(__clang__) && __clang_major__ >= 20
#define PELMA_NONBLOCKING [[clang::nonblocking]]
#else
#define PELMA_NONBLOCKING
#endif

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
