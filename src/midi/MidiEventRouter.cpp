#include "midi/MidiEventRouter.h"

#include "midi/MidiMessages.h"
#include "midi/MidiPacketParser.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/Log.h"
#include "sequencer/KRSequencerController.h"

MidiEventRouter::~MidiEventRouter() = default;

void MidiEventRouter::send(std::uint32_t status, std::uint32_t data1, std::uint32_t data2) const {
  platform::MusicDeviceMIDIEvent(synth(), status, data1, data2, 0);
}

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

void MidiEventRouter::midiReceived(PGMidiSource* /*source*/, const std::uint8_t* packetList,
                                   std::size_t size) {
  PGMidi* wrapper = midi();
  midi::parsePacketList(
      packetList, size, [wrapper] { return wrapper ? wrapper->channel() : 0; },
      [this](std::uint8_t status, std::uint8_t channel, std::uint8_t data1, std::uint8_t data2,
             std::uint64_t timeStamp) {
        handleMidiEvent(status, channel, data1, data2, timeStamp);
      });
}

void MidiEventRouter::handleMidiEvent(std::uint8_t status, std::uint8_t /*channel*/,
                                      std::uint8_t data1, std::uint8_t data2,
                                      std::uint64_t /*startFrame*/) {
  send(status, data1, data2);
  if ((status & 0xE0) != 0x80 || !recordsNotes()) return;
  const float velocity = static_cast<float>(data2) / 128.0f;
  if (midiToMain_.push({status, data1, velocity})) {
    notesQueued_.signal();
  } else {
    notesDropped_.fetch_add(1, std::memory_order_relaxed);
  }
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
