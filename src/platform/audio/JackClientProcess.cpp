// The JACK client's process callback: the audio thread.

#include <jack/jack.h>
#include <jack/midiport.h>

#include "platform/audio/JackClient.h"

namespace platform {

// Process thread (the audio thread).
int JackClient::process(std::uint32_t frames, void* user) noexcept PELMA_NONBLOCKING {
  auto* self = static_cast<JackClient*>(user);
  AudioThreadScope audioThread;
  self->busy_.fetch_add(1);
  const std::size_t used = self->midiSlotsUsed_.load(std::memory_order_acquire);
  for (std::size_t i = 0; i < used; ++i) {
    MidiSlot& slot = self->midiSlots_[i];
    jack_port_t* port = slot.port.load();
    if (!port) continue;
    void* buffer = jack_port_get_buffer(port, frames);
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    for (std::uint32_t e = 0; e < count; ++e) {
      jack_midi_event_t event;
      if (jack_midi_event_get(&event, buffer, e) == 0 && event.size > 0) {
        slot.receiver(slot.user, event.time, event.buffer, event.size);
      }
    }
  }
  if (AudioProcess audio = self->audioProcess_.load()) audio(self->audioUser_.load(), frames);
  self->busy_.fetch_sub(1);
  return 0;
}

}  // namespace platform
