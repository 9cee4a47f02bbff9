// The audio graph's audio callback (audio thread): no allocation, locks, waiting or logging.

#include <algorithm>
#include <cstring>

#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/AudioThread.h"
#include "platform/music/MusicPlayer.h"

namespace platform {

void AudioGraph::render(const AudioOutput* output, float* const* channels,
                        std::uint32_t channelCount,
                        std::uint32_t frames) noexcept PELMA_NONBLOCKING {
  AudioThreadScope audioThread;
  for (std::uint32_t c = 0; c < channelCount; ++c)
    std::memset(channels[c], 0, frames * sizeof(float));
  if (output != activeOutput_.load(std::memory_order_acquire)) return;  // an abandoned output
  if (rendering_.exchange(true, std::memory_order_acquire)) return;
  const RenderPlan* plan = planReader_.acquire();
  float* const stereo[2] = {channels[0], channels[std::min<std::uint32_t>(1, channelCount - 1)]};
  for (std::uint32_t offset = 0; offset < frames; offset += plan->chunkFrames) {
    renderChunk(*plan, stereo, offset, std::min(plan->chunkFrames, frames - offset));
  }
  planReader_.release();
  rendering_.store(false, std::memory_order_release);
}

void AudioGraph::renderChunk(const RenderPlan& plan, float* const* channels, std::uint32_t offset,
                             std::uint32_t frames) noexcept {
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

  for (const auto& unit : plan.units) {
    unit->process(frames);
    if (!plan.mixerToOutput) continue;
    for (std::uint32_t c = 0; c < 2; ++c) {
      const float* source = unit->output(c);
      float* target = channels[c] + offset;
      for (std::uint32_t i = 0; i < frames; ++i)
        target[i] += source[i];
    }
  }
}

}  // namespace platform
