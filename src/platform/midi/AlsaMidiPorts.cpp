// MIDI ports on the ALSA sequencer, through RtMidi: a client of ours per input, each read on its
// own RtMidi thread. The port lists are not watched: whoever uses them polls.

#include <rtmidi/RtMidi.h>

#include <algorithm>

#include "platform/foundation/Log.h"
#include "platform/midi/MidiPorts.h"

namespace platform {

namespace {

constexpr unsigned kQueueSize = 1024;

// RtMidi reports its errors through this instead of throwing from its threads.
void logRtMidiError(RtMidiError::Type type, const std::string& text, void* /*user*/) {
  if (type == RtMidiError::WARNING || type == RtMidiError::DEBUG_WARNING) return;
  log("MIDI: {}", text);
}

// The port names a probe sees now, in the sequencer's order.
template <typename Probe>
std::vector<std::string> portNames(Probe& probe) {
  std::vector<std::string> names;
  try {
    const unsigned count = probe.getPortCount();
    for (unsigned i = 0; i < count; ++i)
      names.push_back(probe.getPortName(i));
  } catch (const RtMidiError& error) {
    log("MIDI: cannot list ports: {}", error.getMessage());
  }
  return names;
}

class AlsaInput final : public MidiPorts::Input {
 public:
  AlsaInput(std::unique_ptr<RtMidiIn> input, MidiPorts::Receiver receiver, void* user)
      : input_(std::move(input)), receiver_(receiver), user_(user) {
    input_->ignoreTypes(false, false, false);  // system exclusive, timing and sensing too
    input_->setCallback(&AlsaInput::received, this);
  }
  // Closes the port: no more calls from RtMidi's thread.
  ~AlsaInput() override { input_.reset(); }
  RtMidiIn& input() { return *input_; }

 private:
  // RtMidi's thread.
  static void received(double /*deltaTime*/, std::vector<unsigned char>* message, void* self) {
    auto* input = static_cast<AlsaInput*>(self);
    if (message && !message->empty())
      input->receiver_(input->user_, 0, message->data(), message->size());
  }

  std::unique_ptr<RtMidiIn> input_;
  MidiPorts::Receiver receiver_;
  void* user_;
};

class AlsaMidiPorts final : public MidiPorts {
 public:
  // Throws RtMidiError when the sequencer cannot be opened.
  explicit AlsaMidiPorts(std::string clientName)
      : clientName_(std::move(clientName)),
        sourceProbe_(newInput(clientName_ + " MIDI in")),
        destinationProbe_(
            std::make_unique<RtMidiOut>(RtMidi::LINUX_ALSA, clientName_ + " MIDI probe")) {
    destinationProbe_->setErrorCallback(logRtMidiError, nullptr);
  }

  MidiSystem system() const override { return MidiSystem::alsa; }
  bool isAlive() const override { return true; }
  std::string virtualInputName() const override { return clientName_ + " MIDI:" + clientName_; }
  std::vector<std::string> sourceNames() const override { return others(*sourceProbe_); }
  std::vector<std::string> destinationNames() const override { return others(*destinationProbe_); }

  std::unique_ptr<Input> openVirtualInput(Receiver receiver, void* user) override {
    try {
      // Its own client name: the audio output's client may already be called clientName_.
      auto input = std::make_unique<AlsaInput>(newInput(clientName_ + " MIDI"), receiver, user);
      input->input().openVirtualPort(clientName_);
      return input;
    } catch (const RtMidiError& error) {
      log("MIDI: cannot open the ALSA MIDI system: {}", error.getMessage());
      return nullptr;
    }
  }

  std::unique_ptr<Input> openSource(const std::string& portName, Receiver receiver,
                                    void* user) override {
    try {
      auto input = std::make_unique<AlsaInput>(newInput(clientName_ + " MIDI in"), receiver, user);
      // Open by name: the probe's numbering may have moved since it was read.
      const auto names = portNames(input->input());
      const auto found = std::find(names.begin(), names.end(), portName);
      if (found == names.end()) return nullptr;
      input->input().openPort(static_cast<unsigned>(found - names.begin()),
                              clientName_ + " in " + std::to_string(nextInputNumber_++));
      return input;
    } catch (const RtMidiError& error) {
      log("MIDI: cannot open source {}: {}", portName, error.getMessage());
      return nullptr;
    }
  }

 private:
  static std::unique_ptr<RtMidiIn> newInput(const std::string& name) {
    auto input = std::make_unique<RtMidiIn>(RtMidi::LINUX_ALSA, name, kQueueSize);
    input->setErrorCallback(logRtMidiError, nullptr);
    return input;
  }

  // Other programs' ports: ours are on clients named "<client name> MIDI...", and ALSA names
  // ports "client:port client-id:port-id".
  template <typename Probe>
  std::vector<std::string> others(Probe& probe) const {
    auto names = portNames(probe);
    std::erase_if(
        names, [&](const std::string& name) { return name.rfind(clientName_ + " MIDI", 0) == 0; });
    return names;
  }

  std::string clientName_;
  std::unique_ptr<RtMidiIn> sourceProbe_;
  std::unique_ptr<RtMidiOut> destinationProbe_;
  unsigned nextInputNumber_ = 1;
};

}  // namespace

std::unique_ptr<MidiPorts> openAlsaMidiPorts(const std::string& clientName) {
  try {
    return std::make_unique<AlsaMidiPorts>(clientName);
  } catch (const RtMidiError& error) {
    log("MIDI: cannot open the ALSA MIDI system: {}", error.getMessage());
    return nullptr;
  }
}

}  // namespace platform
