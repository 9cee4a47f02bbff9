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

// Marks a function called in every period: the compiler optimises it for speed and the linker
// puts all of them together, so that a period, which starts with caches gone cold while the
// thread slept, touches as few code pages as it can.
#define PELMA_HOT [[gnu::hot]]

namespace platform {

bool onAudioThread() noexcept;

class AudioThreadScope {
 public:
  PELMA_HOT AudioThreadScope() noexcept;
  PELMA_HOT ~AudioThreadScope();
  AudioThreadScope(const AudioThreadScope&) = delete;
  AudioThreadScope& operator=(const AudioThreadScope&) = delete;

 private:
  bool previous_;
};

}  // namespace platform
