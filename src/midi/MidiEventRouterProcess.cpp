// The router's receive-thread side: the MIDI system's receive thread calls it (on JACK the audio
// thread, inside the process callback), so nothing here allocates, locks or waits.

#include "midi/MidiEventRouter.h"
#include "midi/MidiPacketParser.h"
#include "platform/audio/AudioUnit.h"

// Any thread: the keyboard's on the main thread, MIDI on the receive thread.
void MidiEventRouter::send(std::uint32_t status, std::uint32_t data1,
                           std::uint32_t data2) const noexcept {
  platform::MusicDeviceMIDIEvent(synth(), status, data1, data2, 0);
}

// The receive thread.
void MidiEventRouter::midiReceived(PGMidiSource* /*source*/, const std::uint8_t* packetList,
                                   std::size_t size) noexcept {
  PGMidi* wrapper = midi();
  midi::parsePacketList(
      packetList, size, [wrapper] { return wrapper ? wrapper->channel() : 0; },
      [this](std::uint8_t status, std::uint8_t channel, std::uint8_t data1, std::uint8_t data2,
             std::uint64_t timeStamp) {
        handleMidiEvent(status, channel, data1, data2, timeStamp);
      });
}

// The receive thread.
void MidiEventRouter::handleMidiEvent(std::uint8_t status, std::uint8_t /*channel*/,
                                      std::uint8_t data1, std::uint8_t data2,
                                      std::uint64_t /*startFrame*/) noexcept {
  send(status, data1, data2);
  if ((status & 0xE0) != 0x80 || !recordsNotes()) return;
  const float velocity = static_cast<float>(data2) / 128.0f;
  if (midiToMain_.push({status, data1, velocity})) {
    notesQueued_.signal();
  } else {
    notesDropped_.fetch_add(1, std::memory_order_relaxed);
  }
}
