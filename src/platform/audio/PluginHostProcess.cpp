// The plug-in host process's block thread (its audio thread): waits for each block the
// application hands over, runs the plug-in on it and answers. Waiting for the next block is this
// thread's idle state; the block itself neither allocates, locks nor logs.

#include "platform/audio/PluginHostProcess.h"

#include <xmmintrin.h>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/PluginProcess.h"
#include "platform/foundation/AudioThread.h"

namespace platform {

void runPluginHostBlocks(AudioUnit& unit, std::uint8_t* shared,
                         const std::atomic<bool>& running) noexcept {
  auto& header = *reinterpret_cast<SharedBlockHeader*>(shared);
  // Plug-ins run with flush-to-zero and denormals-are-zero on, as in the application.
  _mm_setcsr(_mm_getcsr() | 0x8040);
  AudioThreadScope audioThread;
  std::uint32_t answered = header.reply.load(std::memory_order_relaxed);
  while (running.load(std::memory_order_relaxed)) {
    const std::uint32_t asked = header.request.load(std::memory_order_acquire);
    if (asked == answered) {
      futexWait(header.request, answered, 100'000'000);  // woken for the next block
      continue;
    }
    unit.runSharedBlock(shared);
    answered = asked;
    header.reply.store(asked, std::memory_order_release);
    futexWake(header.reply);
  }
}

}  // namespace platform
