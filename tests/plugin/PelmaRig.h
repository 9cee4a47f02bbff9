#pragma once

// Pelma played by the host's own audio unit in an offline graph (see OfflineRig), with what the
// plug-in's tests need besides: its state and presets, saved and restored through the unit, and
// the events of its notify output.

#include <lv2/atom/atom.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "lv2/PelmaUris.h"
#include "platform/foundation/PropertyList.h"
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

  // What the plug-in saves through its state interface, as the host's unit collects it
  // (AudioUnit::fullState): the whole state, and from it the chosen bank's name and the sound as
  // text ("cutoff = 300" lines).
  struct Saved {
    platform::PropertyDictionary state;
    std::string bank;
    std::string sound;
    bool operator==(const Saved& other) const { return state == other.state; }
  };
  Saved saveState() {
    Saved saved{unit->fullState(), {}, {}};
    const auto& properties = *saved.state.at("properties").get<platform::PropertyDictionary>();
    auto text = [&](const char* key) {
      if (!properties.count(key)) return std::string();
      const auto* value =
          properties.at(key).get<platform::PropertyDictionary>()->at("value").get<std::string>();
      return value ? *value : std::string();
    };
    saved.bank = text(pelma::kStateBankUri);
    saved.sound = text(pelma::kStateParametersUri);
    return saved;
  }
  // Between blocks: nothing renders meanwhile.
  void restoreState(const Saved& saved) { EXPECT_TRUE(unit->restoreFullState(saved.state)); }

  // False when the plug-in has no preset of that name.
  bool loadPreset(const std::string& name) {
    for (const auto& preset : unit->presets()) {
      if (preset.name == name) return unit->loadPreset(preset.uri);
    }
    return false;
  }
};
