#pragma once

// Pelma played by the host's own audio unit in an offline graph (see OfflineRig), with what the
// plug-in's tests need besides: its LV2 state as Turtle and its presets, saved and restored
// through lilv as other hosts do (the application itself only saves), and the events of its
// notify output.

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/presets/presets.h>
#include <lv2/state/state.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "lv2/PelmaUris.h"
#include "platform/audio/Lv2World.h"
#include "support/OfflineRig.h"

class PelmaRig : public testing_support::OfflineRig {
 public:
  explicit PelmaRig(std::uint32_t blockFrames = 256, double sampleRate = 48000)
      : OfflineRig("Pelma", blockFrames, sampleRate) {}

  // One MIDI message for the next block.
  void midi(std::uint8_t status, std::uint8_t data1, std::uint8_t data2 = 0) {
    unit->sendMIDIEvent(status, data1, data2, 0);
  }
  void set(const std::string& symbol, float value) { unit->setParameterValue(symbol, value); }

  // Renders short blocks until `done` holds, for what the plug-in's worker thread does in its own
  // time; gives up after two thirds of a second of audio (or ten seconds of waiting).
  template <typename Done>
  bool renderUntil(Done done) {
    for (int attempt = 0; attempt < 2000; ++attempt) {
      if (done()) return true;
      render(16);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return done();
  }

  // The events of the plug-in's atom outputs since the last call, each a whole atom (while an
  // editor is attached: call unit->setEditorAttached(true) first).
  std::vector<std::vector<std::uint8_t>> takePluginEvents() {
    std::vector<std::vector<std::uint8_t>> events;
    alignas(LV2_Atom) std::uint8_t buffer[32768];
    std::uint32_t port = 0;
    while (const std::uint32_t size = unit->readPluginEvent(&port, buffer, sizeof buffer)) {
      if (port == pelma::kNotifyPort) events.emplace_back(buffer, buffer + size);
    }
    return events;
  }

  // The instance's state as Turtle: its control inputs and what the plug-in saves.
  std::string saveState() {
    LilvState* state = lilv_state_new_from_instance(
        plugin(), unit->lilvInstance(), world().mapFeature(), nullptr, nullptr, nullptr, nullptr,
        [](const char* symbol, void* self, std::uint32_t* size,
           std::uint32_t* type) -> const void* {
          auto* rig = static_cast<PelmaRig*>(self);
          rig->savedValue_ = rig->unit->parameterValue(symbol);
          *size = sizeof(float);
          *type = world().map(LV2_ATOM__Float);
          return &rig->savedValue_;
        },
        this, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, nullptr);
    char* text = lilv_state_to_string(world().world(), world().mapFeature(), world().unmapFeature(),
                                      state, "urn:pelma:test-state", "file:///tmp/");
    std::string result = text ? text : "";
    lilv_free(text);
    lilv_state_free(state);
    return result;
  }

  // The state is restored between blocks (nothing renders meanwhile), its ports through the
  // unit's control inputs.
  void restoreState(const std::string& turtle) {
    restore(lilv_state_new_from_string(world().world(), world().mapFeature(), turtle.c_str()));
  }

  // False when the plug-in has no preset of that label.
  bool loadPreset(const std::string& label) {
    LilvNode* labelPredicate = lilv_new_uri(world().world(), LILV_NS_RDFS "label");
    LilvNodes* presets = lilv_plugin_get_related(plugin(), world().node(LV2_PRESETS__Preset));
    LilvState* state = nullptr;
    LILV_FOREACH(nodes, it, presets) {
      const LilvNode* preset = lilv_nodes_get(presets, it);
      lilv_world_load_resource(world().world(), preset);
      LilvNode* name = lilv_world_get(world().world(), preset, labelPredicate, nullptr);
      if (name && label == lilv_node_as_string(name))
        state = lilv_state_new_from_world(world().world(), world().mapFeature(), preset);
      lilv_node_free(name);
    }
    lilv_nodes_free(presets);
    lilv_node_free(labelPredicate);
    return restore(state);
  }

 private:
  static platform::Lv2World& world() { return *platform::Lv2World::shared(); }
  const LilvPlugin* plugin() {
    return lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world().world()),
                                   world().node(pelma::kPluginUri));
  }
  bool restore(LilvState* state) {
    if (!state) return false;
    lilv_state_restore(
        state, unit->lilvInstance(),
        [](const char* symbol, void* self, const void* value, std::uint32_t size,
           std::uint32_t type) {
          if (size == sizeof(float) && type == world().map(LV2_ATOM__Float))
            static_cast<PelmaRig*>(self)->set(symbol, *static_cast<const float*>(value));
        },
        this, 0, nullptr);
    lilv_state_free(state);
    return true;
  }

  float savedValue_ = 0;
};
