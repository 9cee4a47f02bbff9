#pragma once

// The process's MIDI: one PGMidi wrapper, made on first use, with the choices the settings menu
// stored (active channel, active sources) restored into it.

#include <memory>

#include "frameworks/pelma/PGMidi.h"

class MIDIManager {
 public:
  // Main thread.
  static MIDIManager& sharedMIDIManager();

  explicit MIDIManager(std::unique_ptr<PGMidi> midi) : midi_(std::move(midi)) {}

  PGMidi* pgMidi() const { return midi_.get(); }

 private:
  std::unique_ptr<PGMidi> midi_;
};
