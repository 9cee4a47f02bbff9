// JACK MIDI's audio-thread side: JACK's process callback hands each message of the period on.

#include "platform/audio/MidiArrival.h"
#include "platform/midi/JackInput.h"

namespace platform {

// The audio thread, inside JACK's process callback, before the period's audio is rendered.
void JackInput::received(void* self, std::uint32_t frame, const std::uint8_t* data,
                         std::size_t size) noexcept {
  auto* input = static_cast<JackInput*>(self);
  midiArrivalFrame = frame;
  input->receiver_(input->user_, frame, data, size);
  midiArrivalFrame = 0;
}

}  // namespace platform
