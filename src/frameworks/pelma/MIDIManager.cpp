#include "frameworks/pelma/MIDIManager.h"

#include "platform/foundation/UserDefaults.h"

MIDIManager& MIDIManager::sharedMIDIManager() {
  static MIDIManager manager = [] {
    auto midi = std::make_unique<PGMidi>();
    midi->restoreStoredChoices(&platform::UserDefaults::standardUserDefaults());
    midi->startHotPlugPolling();
    return MIDIManager(std::move(midi));
  }();
  return manager;
}
