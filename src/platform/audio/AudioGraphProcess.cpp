// The audio graph's audio callback (audio thread): no allocation, locks, waiting or logging.

#include <algorithm>
#include <cstring>

#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/AudioThread.h"
#include "platform/music/MusicPlayer.h"

#if defined(__x86_64__) || defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace platform {
namespace {

// Denormal numbers in a plug-in's decaying tails cost up to a hundred times a normal operation:
// the instruments run with flush-to-zero and denormals-are-zero on, set once per callback, and
// the thread's own mode is put back after it.
class DenormalsFlushed {
 public:
#if defined(__x86_64__) || defined(__SSE2__)
  DenormalsFlushed() noexcept : saved_(_mm_getcsr()) {
    _mm_setcsr(saved_ | kFlushToZero | kDenormalsAreZero);
  }
  ~DenormalsFlushed() {
    _mm_setcsr(saved_);
  }

 private:
  static constexpr unsigned kFlushToZero = 0x8000, kDenormalsAreZero = 0x0040;
  unsigned saved_;
#endif
};

void clear(float* const* channels, std::uint32_t channelCount, std::uint32_t frames) noexcept {
  for (std::uint32_t c = 0; c < channelCount; ++c)
    std::memset(channels[c], 0, frames * sizeof(float));
}

}  // namespace

void AudioGraph::render(const AudioOutput* output, float* const* channels,
                        std::uint32_t channelCount,
                        std::uint32_t frames) noexcept PELMA_NONBLOCKING {
  AudioThreadScope audioThread;
  if (output != activeOutput_.load(std::memory_order_acquire) ||  // an abandoned output
      rendering_.exchange(true, std::memory_order_acquire)) {
    clear(channels, channelCount, frames);
    return;
  }
  DenormalsFlushed flushed;
  const RenderPlan* plan = planReader_.acquire();
  // The first instrument renders straight into the output and the others are added, rather than
  // clearing the output and adding them all; a mono output (left and right summed) is cleared
  // first.
  const bool firstIntoOutput = channelCount == 2 && plan->mixerToOutput && !plan->units.empty();
  if (!firstIntoOutput) clear(channels, channelCount, frames);
  float* const stereo[2] = {channels[0], channels[std::min<std::uint32_t>(1, channelCount - 1)]};
  for (std::uint32_t offset = 0; offset < frames; offset += plan->chunkFrames) {
    renderChunk(*plan, stereo, offset, std::min(plan->chunkFrames, frames - offset),
                firstIntoOutput);
  }
  planReader_.release();
  rendering_.store(false, std::memory_order_release);
}

void AudioGraph::renderChunk(const RenderPlan& plan, float* const* channels, std::uint32_t offset,
                             std::uint32_t frames, bool firstIntoOutput) noexcept {
  // The sequence plays through the graph's instrument: the first one connected.
  MidiBlock* sequenceMidi = nullptr;
  for (const auto& unit : plan.units) {
    MidiBlock& midi = unit->beginBlock(frames);
    if (!sequenceMidi) sequenceMidi = &midi;
  }
  if (!sequenceMidi) {
    scratchMidi_.clear();  // no instrument: the players keep time all the same
    sequenceMidi = &scratchMidi_;
  }
  const double sampleRate = renderSampleRate_.load(std::memory_order_relaxed);
  for (MusicPlayer* player : plan.players)
    player->process(frames, sampleRate, *sequenceMidi);
  if (!plan.players.empty()) {
    for (const auto& unit : plan.units)
      unit->setTransportPosition(plan.players.front()->blockPosition());
  }

  float* const targets[2] = {channels[0] + offset, channels[1] + offset};
  for (const auto& unit : plan.units) {
    if (firstIntoOutput && unit == plan.units.front()) {
      unit->process(frames, targets);  // straight into the output's buffers
      continue;
    }
    unit->process(frames);
    if (!plan.mixerToOutput) continue;
    for (std::uint32_t c = 0; c < 2; ++c) {
      const float* source = unit->output(c);
      for (std::uint32_t i = 0; i < frames; ++i)
        targets[c][i] += source[i];
    }
  }
}

}  // namespace platform
