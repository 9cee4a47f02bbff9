#pragma once

// A real LV2 instrument in an audio graph rendered by hand (256-frame blocks at 48 kHz), for the
// benches that measure what reaches an instrument. `unit` is empty when it is not installed.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioGraph.h"
#include "platform/audio/AudioUnit.h"

struct ManualInstrument {
  explicit ManualInstrument(const std::string& name) {
    auto& manager = platform::AudioUnitComponentManager::shared();
    for (const auto& component :
         manager.componentsMatchingDescription({platform::kAudioUnitTypeMusicDevice, 0, 0, 0, 0})) {
      std::string error;
      if (component.name == name)
        unit = manager.instantiateNow(component.audioComponentDescription, 48000.0, 256, &error);
    }
    if (!unit) return;
    graph.enableManualRenderingMode(48000.0, 256);
    graph.attach(unit);
    graph.connect(*unit, graph.mainMixerNode(), platform::standardFormat(48000.0, 2));
    graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
    graph.start();
  }
  // Renders one block (and so drains the instrument's queue).
  void renderBlock() {
    float* out[2] = {left.data(), right.data()};
    graph.renderOffline(256, out);
  }

  platform::AudioGraph graph;
  std::shared_ptr<platform::AudioUnit> unit;
  std::vector<float> left = std::vector<float>(256), right = std::vector<float>(256);
};
