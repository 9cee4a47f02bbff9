#include "platform/midi/MidiPorts.h"

#include <unistd.h>

#include "platform/audio/AudioOutput.h"

namespace platform {

std::unique_ptr<MidiPorts> openJackMidiPorts(const std::string& clientName);
std::unique_ptr<MidiPorts> openAlsaMidiPorts(const std::string& clientName);

std::unique_ptr<MidiPorts> openMidiPorts(const std::string& clientName) {
  if (access("/dev/snd/seq", R_OK | W_OK) == 0) return openAlsaMidiPorts(clientName);
  if (jackServerIsRunning()) return openJackMidiPorts(clientName);
  return nullptr;
}

}  // namespace platform
