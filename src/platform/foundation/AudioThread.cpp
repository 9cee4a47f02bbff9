#include "platform/foundation/AudioThread.h"

namespace platform {
namespace {
thread_local bool renderingAudio = false;
}

bool onAudioThread() noexcept {
  return renderingAudio;
}

AudioThreadScope::AudioThreadScope() noexcept : previous_(renderingAudio) {
  renderingAudio = true;
}
AudioThreadScope::~AudioThreadScope() {
  renderingAudio = previous_;
}

}  // namespace platform
