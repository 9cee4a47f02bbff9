#include "midi/MidiEventRouter.h"

#include "midi/MidiMessages.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/Log.h"
#include "sequencer/KRSequencerController.h"

MidiEventRouter::~MidiEventRouter() = default;

void MidiEventRouter::pianoKeyPressed(std::int32_t key, float velocity) {
  const midi::ChannelMessage m = midi::noteOnMessage(key, velocity);
  send(m.status, m.data1, m.data2);
  if (auto* sequencer = sequencerController()) sequencer->keyOn(key, velocity);
}

void MidiEventRouter::pianoKeyReleased(std::int32_t key) {
  const midi::ChannelMessage m = midi::noteOffMessage(key);
  send(m.status, m.data1, m.data2);
  if (auto* sequencer = sequencerController()) sequencer->keyOff(key);
}

void MidiEventRouter::modWheelChanged(float value) {
  const midi::ChannelMessage m = midi::modWheelMessage(value);
  send(m.status, m.data1, m.data2);
}

void MidiEventRouter::pitchWheelChanged(float value) {
  const midi::ChannelMessage m = midi::pitchBendMessage(value);
  send(m.status, m.data1, m.data2);
}

void MidiEventRouter::panic() {
  const midi::ChannelMessage m = midi::allSoundOffMessage();
  send(m.status, m.data1, m.data2);
}

void MidiEventRouter::recordQueuedNotes() {
  if (const std::uint32_t dropped = notesDropped_.exchange(0)) {
    platform::log("MIDI: {} note messages came faster than they could be recorded; dropped",
                  dropped);
  }
  KRSequencerController* sequencer = sequencerController();
  while (const auto note = midiToMain_.pop()) {
    if (!sequencer) continue;
    if (note->status == 0x90 && note->velocity > 0.0f) {
      sequencer->keyOn(note->key, note->velocity);
    } else {
      sequencer->keyOff(note->key);
    }
  }
}

void MidiEventRouter::sourceAdded(PGMidi* /*midi*/, PGMidiSource* source) {
  platform::log("MIDI source added {}", source->name());
  source->addDelegate(this);
}

void MidiEventRouter::sourceRemoved(PGMidi* /*midi*/, PGMidiSource* source) {
  platform::log("MIDI source removed {}", source->name());
  source->removeDelegate(this);
}

void MidiEventRouter::destinationAdded(PGMidi* /*midi*/, PGMidiDestination* destination) {
  platform::log("MIDI destination added {}", destination->name());
}

void MidiEventRouter::destinationRemoved(PGMidi* /*midi*/, PGMidiDestination* destination) {
  platform::log("MIDI destination removed {}", destination->name());
}
