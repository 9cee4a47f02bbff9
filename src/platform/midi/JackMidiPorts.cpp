// MIDI ports on JACK: inputs of the process's one JACK client (shared with the audio output), so
// that JACK hands each period's MIDI to us just before the audio of that period is rendered.

#include <jack/jack.h>

#include "platform/audio/JackClient.h"
#include "platform/foundation/Log.h"
#include "platform/midi/JackInput.h"

namespace platform {

namespace {

class JackMidiPorts final : public MidiPorts {
 public:
  JackMidiPorts(std::shared_ptr<JackClient> client, std::string clientName)
      : client_(std::move(client)), clientName_(std::move(clientName)) {}
  ~JackMidiPorts() override { client_->clearPortsNotice(this); }

  MidiSystem system() const override { return MidiSystem::jack; }
  bool isAlive() const override { return client_->isAlive(); }
  std::string virtualInputName() const override { return client_->name() + ":" + clientName_; }
  // Left to the user and the session manager (--no-connect), no source is offered for us to
  // connect: only the virtual input takes MIDI, from whatever they connect to it.
  std::vector<std::string> sourceNames() const override {
    if (!JackClient::options().connect) return {};
    return portNames(JackPortIsOutput);
  }
  std::vector<std::string> destinationNames() const override { return portNames(JackPortIsInput); }

  std::unique_ptr<Input> openVirtualInput(Receiver receiver, void* user) override {
    auto input = std::make_unique<JackInput>(receiver, user);
    if (!input->open(*client_, clientName_)) return nullptr;
    virtualInput_ = input.get();
    return input;
  }
  std::vector<std::string> virtualInputSources() const override {
    return virtualInput_ ? virtualInput_->port().connections() : std::vector<std::string>{};
  }

  std::unique_ptr<Input> openSource(const std::string& portName, Receiver receiver,
                                    void* user) override {
    auto input = std::make_unique<JackInput>(receiver, user);
    if (!input->open(*client_, "in " + std::to_string(nextInputNumber_++))) return nullptr;
    if (!input->connectFrom(portName)) {
      log("MIDI: cannot connect source {}", portName);
      return nullptr;
    }
    return input;
  }

  bool watch(ChangeNotice notice, void* user) override {
    notice_ = notice;
    noticeUser_ = user;
    client_->setPortsNotice(&JackMidiPorts::changed, this);
    return true;
  }
  void unwatch(void* /*user*/) override { client_->clearPortsNotice(this); }

 private:
  static void changed(void* self) noexcept {
    auto* ports = static_cast<JackMidiPorts*>(self);
    ports->notice_(ports->noticeUser_);
  }

  // Other clients' MIDI ports of one direction.
  std::vector<std::string> portNames(unsigned long direction) const {
    std::vector<std::string> names;
    const std::string ours = client_->name() + ":";
    if (const char** ports =
            jack_get_ports(client_->handle(), nullptr, JACK_DEFAULT_MIDI_TYPE, direction)) {
      for (const char** port = ports; *port; ++port) {
        if (std::string_view(*port).rfind(ours, 0) != 0) names.emplace_back(*port);
      }
      jack_free(ports);
    }
    return names;
  }

  std::shared_ptr<JackClient> client_;
  std::string clientName_;
  unsigned nextInputNumber_ = 1;
  JackInput* virtualInput_ = nullptr;  // owned by the virtual source, closed before we are
  ChangeNotice notice_ = nullptr;
  void* noticeUser_ = nullptr;
};

}  // namespace

std::unique_ptr<MidiPorts> openJackMidiPorts(const std::string& clientName) {
  auto client = JackClient::shared();
  if (!client) return nullptr;
  return std::make_unique<JackMidiPorts>(std::move(client), clientName);
}

}  // namespace platform
