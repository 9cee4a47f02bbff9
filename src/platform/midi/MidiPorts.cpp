#include "platform/midi/MidiPorts.h"

#include <unistd.h>

#include "platform/audio/AudioOutput.h"

namespace platform {

std::unique_ptr<MidiPorts> openJackMidiPorts(const std::string& clientName);
std::unique_ptr<MidiPorts> openAlsaMidiPorts(const std::string& clientName);

std::unique_ptr<MidiPorts> openMidiPorts(const std::string& clientName) {
  // JACK first: where the audio runs on JACK, so does MIDI, and each event keeps its frame.
  if (jackServerIsRunning()) return openJackMidiPorts(clientName);
  if (access("/dev/snd/seq", R_OK | W_OK) == 0) return openAlsaMidiPorts(clientName);
  return nullptr;
}

}  // namespace platform
