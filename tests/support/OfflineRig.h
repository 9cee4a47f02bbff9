#pragma once

// A real audio graph in manual rendering mode with one real LV2 instrument, for tests that render
// and measure. Also records every MIDI message the instrument received, at its absolute frame.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"

namespace testing_support {

struct ReceivedMidi {
  std::uint64_t frame;
  std::uint8_t status, data1, data2;
  bool operator==(const ReceivedMidi&) const = default;
};

inline platform::AudioComponentDescription instrumentNamed(const std::string& name) {
  for (const auto& component :
       platform::AudioUnitComponentManager::shared().componentsMatchingDescription(
           {platform::kAudioUnitTypeMusicDevice, 0, 0, 0, 0})) {
    if (component.name == name) return component.audioComponentDescription;
  }
  ADD_FAILURE() << "instrument not installed: " << name;
  return {};
}

class OfflineRig {
 public:
  // `options`: kAudioComponentInstantiationLoadOutOfProcess runs the instrument in a process of
  // its own.
  explicit OfflineRig(const std::string& instrument, std::uint32_t blockFrames = 256,
                      double sampleRate = 48000.0, std::uint32_t options = 0)
      : blockFrames_(blockFrames) {
    graph.enableManualRenderingMode(sampleRate, blockFrames);
    std::string error;
    unit = platform::AudioUnitComponentManager::shared().instantiateNow(
        instrumentNamed(instrument), sampleRate, blockFrames, &error, options);
    EXPECT_TRUE(unit) << error;
    if (unit) {
      graph.attach(unit);
      graph.connect(*unit, graph.mainMixerNode(), platform::standardFormat(sampleRate, 2));
    }
    graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
    graph.start();
  }

  // Renders `frames` frames in blocks; returns the left channel. `betweenBlocks` runs on this
  // thread after each block (to edit, send MIDI or pump the main queue).
  template <typename Between>
  std::vector<float> render(std::size_t frames, Between betweenBlocks) {
    std::vector<float> left(frames), right(frames);
    for (std::size_t done = 0; done < frames;) {
      const auto n = static_cast<std::uint32_t>(std::min<std::size_t>(blockFrames_, frames - done));
      float* out[2] = {left.data() + done, right.data() + done};
      graph.renderOffline(n, out);
      if (unit) {
        for (const auto& event : unit->lastBlockMidi()) {
          received.push_back(
              {renderedFrames + event.frame, event.bytes[0], event.bytes[1], event.bytes[2]});
        }
      }
      renderedFrames += n;
      done += n;
      betweenBlocks();
    }
    return left;
  }
  std::vector<float> render(std::size_t frames) {
    return render(frames, [] {});
  }

  platform::AudioGraph graph;
  std::shared_ptr<platform::AudioUnit> unit;
  std::vector<ReceivedMidi> received;
  std::uint64_t renderedFrames = 0;

 private:
  std::uint32_t blockFrames_;
};

}  // namespace testing_support
