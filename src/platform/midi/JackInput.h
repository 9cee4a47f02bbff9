#pragma once

#include <memory>
#include <string>

#include "platform/audio/JackClient.h"
#include "platform/midi/MidiPorts.h"

namespace platform {

// An input of ours and its receiver. JACK calls received (JackMidiPortsProcess.cpp), which hands
// each message on with the frame it arrived at.
class JackInput final : public MidiPorts::Input {
 public:
  JackInput(MidiPorts::Receiver receiver, void* user) : receiver_(receiver), user_(user) {}
  bool open(JackClient& client, const std::string& portName) {
    port_ = client.addMidiInput(portName, &JackInput::received, this);
    return port_ != nullptr;
  }
  const JackClient::MidiInput& port() const { return *port_; }
  // Connects the source port this input reads (the virtual input reads no one port).
  bool connectFrom(const std::string& sourcePort) {
    sourcePort_ = sourcePort;
    return port_->connectFrom(sourcePort);
  }
  void setReachedDirectly(bool reached) override {
    if (sourcePort_.empty() || reached == reachedDirectly_) return;
    reachedDirectly_ = reached;
    if (reached) {
      port_->disconnectFrom(sourcePort_);
    } else {
      port_->connectFrom(sourcePort_);
    }
  }

 private:
  static void received(void* self, std::uint32_t frame, const std::uint8_t* data,
                       std::size_t size) noexcept;
  MidiPorts::Receiver receiver_;
  void* user_;
  std::string sourcePort_;
  bool reachedDirectly_ = false;
  std::unique_ptr<JackClient::MidiInput> port_;  // last: closed first
};

}  // namespace platform
