#pragma once

// The process's one JACK client. The audio output and the MIDI inputs share it, so that JACK wakes
// one thread of ours per period: it first hands the MIDI that came in during the last period to
// its receivers, then renders the audio, which therefore plays that MIDI in the same period.
//
// A client lives until its server goes away (or drops it); the next call to shared() then opens
// a new one. Whoever holds the old one notices through isAlive() and registers its ports again.
// A client whose server went away is never closed by us (see release()).

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/foundation/AudioThread.h"

typedef struct _jack_client jack_client_t;
typedef struct _jack_port jack_port_t;

namespace platform {

class JackClient : public std::enable_shared_from_this<JackClient> {
 public:
  // One MIDI message of the period, with its frame in the period. Process thread.
  using MidiReceiver = void (*)(void* user, std::uint32_t frame, const std::uint8_t* data,
                                std::size_t size) noexcept;
  // Renders one period. Process thread.
  using AudioProcess = void (*)(void* user, std::uint32_t frames) noexcept;
  // A change the server tells of (see setAudio and setPortsNotice). A thread of libjack's; no
  // JACK calls.
  using ChangeNotice = void (*)(void* user) noexcept;

  static constexpr std::size_t kMaxMidiInputs = 64;

  // A registered MIDI input port; destroying it unregisters the port. After its destructor
  // returns, its receiver is not called any more.
  class MidiInput {
   public:
    ~MidiInput();
    MidiInput(const MidiInput&) = delete;
    MidiInput& operator=(const MidiInput&) = delete;
    // "client:port", what other clients connect to.
    std::string fullName() const;
    // Connects the port of another client, `sourcePort`, to this input; false when JACK refuses.
    bool connectFrom(const std::string& sourcePort) const;
    void disconnectFrom(const std::string& sourcePort) const;
    // The ports connected to this input now.
    std::vector<std::string> connections() const;

   private:
    friend class JackClient;
    MidiInput(std::shared_ptr<JackClient> client, std::size_t slot, jack_port_t* port)
        : client_(std::move(client)), slot_(slot), port_(port) {}
    std::shared_ptr<JackClient> client_;
    std::size_t slot_;
    jack_port_t* port_;
  };

  // How the process meets the JACK graph, set once at start from the command line and the
  // settings: the client's name (the instrument's by default), whether a name the server has
  // already given away refuses the client instead of getting a number added, and whether we
  // connect anything ourselves (audio to the playback ports, MIDI sources to inputs of ours).
  struct Options {
    std::string name = "Pelma";
    bool exactName = false;
    bool connect = true;
  };
  static void configure(Options options);
  static Options options();
  // A client name JACK accepts made from any text (an instrument's name is the plug-in's to
  // choose): no ':' (it separates client and port) and no longer than the server allows.
  static std::string clientNameFor(const std::string& text);

  // The shared client, opened and activated under the configured name when there is none or the
  // last one's server has gone. Null when no server answers, or when the exact name was asked
  // for and is taken. Any thread.
  static std::shared_ptr<JackClient> shared();

  // Opens a client of libjack's own, once libjack has finished with every server that went away:
  // opening closes the clients of such a server, which cancels their notification threads, and
  // one cancelled while it handles the server's last notices leaves a lock of libjack's held for
  // good. Waits for those threads to end, a second at most each. Null when no server answers.
  static jack_client_t* openHandle(const std::string& name);

  ~JackClient();
  JackClient(const JackClient&) = delete;
  JackClient& operator=(const JackClient&) = delete;

  jack_client_t* handle() const { return client_; }
  // The name the server gave us (it adds a number when the one asked for is taken).
  const std::string& name() const { return name_; }
  // False once the server has shut down or dropped this client.
  bool isAlive() const { return !shutDown_.load(std::memory_order_acquire); }
  double sampleRate() const { return sampleRate_.load(std::memory_order_acquire); }
  std::uint32_t bufferFrames() const { return bufferFrames_.load(std::memory_order_acquire); }

  // Registers a MIDI input port; its receiver hears every message from the next period on. Null
  // (logged) when the port cannot be registered or all kMaxMidiInputs are in use. Main thread.
  std::unique_ptr<MidiInput> addMidiInput(const std::string& portName, MidiReceiver receiver,
                                          void* user);

  // The audio part, at most one, called after the MIDI inputs every period. Main thread; after
  // clearAudio returns, `user`'s process and notice are not called any more.
  void setAudio(AudioProcess process, ChangeNotice notice, void* user);
  void clearAudio(void* user);
  // Returns once the period or notice being handled now (if any) has ended; waits a second at
  // most (a server that hangs inside a period must not hang the caller).
  void waitUntilIdle() const;

  // The ports watcher, at most one: its notice is called when a port of any client appears or
  // goes, when ports are connected or disconnected, and when the server goes away. Main thread;
  // after clearPortsNotice returns, `user`'s notice is not called any more.
  void setPortsNotice(ChangeNotice notice, void* user);
  void clearPortsNotice(void* user);

 private:
  struct MidiSlot {
    std::atomic<jack_port_t*> port{nullptr};  // null: free
    MidiReceiver receiver = nullptr;
    void* user = nullptr;
  };

  explicit JackClient(jack_client_t* client);
  // The shared pointer's deleter: closes a client whose server still runs, and keeps any other.
  static void release(JackClient* client);
  bool activate();
  void removeMidiInput(std::size_t slot, jack_port_t* port);

  PELMA_HOT static int process(std::uint32_t frames, void* self) noexcept PELMA_NONBLOCKING;
  static int bufferSizeChanged(std::uint32_t frames, void* self) noexcept;
  static int sampleRateChanged(std::uint32_t rate, void* self) noexcept;
  static void serverShutDown(int status, const char* reason, void* self) noexcept;
  void notifyAudio() noexcept;
  void notifyPorts() noexcept;

  jack_client_t* client_;
  std::string name_;
  std::atomic<bool> shutDown_{false};
  std::atomic<double> sampleRate_{0.0};
  std::atomic<std::uint32_t> bufferFrames_{0};
  // Callbacks running now (process or notices), so that removing a part can wait for them.
  mutable std::atomic<int> busy_{0};

  std::array<MidiSlot, kMaxMidiInputs> midiSlots_{};
  std::atomic<std::size_t> midiSlotsUsed_{0};  // slots at and after this are all free

  std::atomic<AudioProcess> audioProcess_{nullptr};
  std::atomic<ChangeNotice> audioNotice_{nullptr};
  std::atomic<void*> audioUser_{nullptr};

  std::atomic<ChangeNotice> portsNotice_{nullptr};
  std::atomic<void*> portsUser_{nullptr};
};

}  // namespace platform
