#pragma once

// The machine's MIDI system as MIDI input sees it: the ports other programs offer (sources that
// send, destinations that receive), a virtual input of ours that other programs connect to, and
// inputs of ours connected to a source. Two systems implement it, chosen in one place
// (openMidiPorts): JACK MIDI ports of the process's one JACK client, read on the audio thread at
// the start of each period with each message's frame in it, and the ALSA sequencer through RtMidi,
// read on RtMidi's thread (frame 0).

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform {

enum class MidiSystem { none, alsa, jack };

class MidiPorts {
 public:
  // One incoming message and its frame in the current period (0 where the system has no periods).
  // The system's receive thread: on JACK the audio thread.
  using Receiver = void (*)(void* user, std::uint32_t frame, const std::uint8_t* data,
                            std::size_t size) noexcept;
  // The ports or their connections may have changed. A thread of the MIDI system's; must not
  // block.
  using ChangeNotice = void (*)(void* user) noexcept;

  // An open input; closing it (destroying it) stops its receiver before it returns.
  class Input {
   public:
    virtual ~Input() = default;
    // Main thread. A source's input hears its source only while `reached` is false: a program
    // also connected straight to the virtual input is heard there, once.
    virtual void setReachedDirectly(bool /*reached*/) {}
  };

  virtual ~MidiPorts() = default;
  virtual MidiSystem system() const = 0;
  // False once the system has gone away (a JACK server that stopped): every input is dead.
  virtual bool isAlive() const = 0;
  // The full name other programs connect to ("Pelma:Pelma" on JACK, "Pelma MIDI:Pelma" on ALSA).
  virtual std::string virtualInputName() const = 0;
  // Other programs' ports, in the system's order (ours are left out).
  virtual std::vector<std::string> sourceNames() const = 0;
  virtual std::vector<std::string> destinationNames() const = 0;
  // Main thread. Null (logged) when the system refuses.
  virtual std::unique_ptr<Input> openVirtualInput(Receiver receiver, void* user) = 0;
  virtual std::unique_ptr<Input> openSource(const std::string& portName, Receiver receiver,
                                            void* user) = 0;
  // The ports connected straight to the virtual input now (only JACK tells).
  virtual std::vector<std::string> virtualInputSources() const { return {}; }
  // Main thread. True when `notice` will tell of every change, so that nobody needs to poll.
  virtual bool watch(ChangeNotice /*notice*/, void* /*user*/) { return false; }
  virtual void unwatch(void* /*user*/) {}
};

// JACK MIDI when a JACK server runs (the audio output then runs on it too), else the ALSA sequencer
// when the machine has one, else null.
// `clientName` names our client ("Pelma"). Logged when a system refuses to open.
std::unique_ptr<MidiPorts> openMidiPorts(const std::string& clientName);

}  // namespace platform
