#pragma once

// The MIDI wrapper: the MIDI ports other programs offer (sources, and destinations), a virtual
// input port named "Pelma" that other programs can play into, the active channel, and hot-plug
// notifications, over the machine's MIDI system (platform/midi/MidiPorts.h: JACK MIDI or the ALSA
// sequencer, chosen at creation and logged); with neither there are no ports. On JACK the wrapper
// follows the server when it goes away and comes back.
//
// Each source hands what it receives to its delegates as a packet list (see MIDIPacketList.h),
// one list per incoming message, on the MIDI system's receive thread (on JACK the audio thread:
// delegates must not allocate, lock or wait). A source that is not active delivers nothing. The
// port lists are refreshed on the main thread: on JACK whenever the server tells of a port that
// appeared or went, otherwise (ALSA, or while no JACK server runs) about once a second. The
// delegate hears of each port that appears or goes, on the main thread.

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/foundation/WeakRef.h"
#include "platform/midi/MidiPorts.h"
#include "platform/midi/NetworkMidiSession.h"

namespace platform {
class UserDefaults;
}

class PGMidiSource;

class PGMidiSourceDelegate {
 public:
  // Receive thread. `packetList` (of `size` bytes) is valid during the call only.
  virtual void midiReceived(PGMidiSource* source, const std::uint8_t* packetList,
                            std::size_t size) noexcept = 0;

 protected:
  ~PGMidiSourceDelegate() = default;
};

// A port of another program (or the virtual input) that MIDI arrives from.
class PGMidiSource {
 public:
  static constexpr std::size_t kMaxDelegates = 8;

  PGMidiSource(std::string name, bool isNetworkSession);
  ~PGMidiSource();
  PGMidiSource(const PGMidiSource&) = delete;
  PGMidiSource& operator=(const PGMidiSource&) = delete;

  const std::string& name() const { return name_; }
  bool isNetworkSession() const { return isNetworkSession_; }
  bool isActive() const { return active_.load(std::memory_order_relaxed); }
  // Switching a source off ends the notes it has sounding.
  void setIsActive(bool active);

  // Main thread: hands the delegates a note off for each note this source has sounding (a note on
  // delivered and not yet ended) on a channel for which `release(channel)` (0..15) is true, and
  // forgets those notes. Used when the source goes, is switched off or its channel is filtered
  // out, so that nothing that stops reaching the instrument leaves a note sounding.
  template <typename Release>
  void releaseSoundingNotes(Release&& release) {
    for (std::uint8_t channel = 0; channel < 16; ++channel) {
      if (release(channel)) releaseChannel(channel);
    }
  }
  void releaseSoundingNotes() {
    releaseSoundingNotes([](std::uint8_t) { return true; });
  }

  // Main thread. A delegate is added once; at most kMaxDelegates (more are logged and ignored).
  // After removeDelegate returns, the delegate is no longer called.
  void addDelegate(PGMidiSourceDelegate* delegate);
  void removeDelegate(PGMidiSourceDelegate* delegate);

  // Receive thread: hands one message to the delegates as a packet list (no allocation), and
  // keeps account of the notes it starts and ends. Longer messages (system exclusive) are split
  // into lists of up to kMaxPacketData bytes.
  void deliver(std::uint64_t timeStamp, const std::uint8_t* data, std::size_t length) noexcept;

  // The input this source reads from, owned by the source; null closes it.
  void setInput(std::unique_ptr<platform::MidiPorts::Input> input) { input_ = std::move(input); }
  platform::MidiPorts::Input* input() const { return input_.get(); }
  // The input's receiver (`source` is the PGMidiSource). The receive thread.
  static void receive(void* source, std::uint32_t frame, const std::uint8_t* data,
                      std::size_t size) noexcept;

 private:
  static constexpr std::size_t kMaxPacketData = 256;

  std::string name_;
  bool isNetworkSession_;
  std::atomic<bool> active_{true};
  std::array<std::atomic<PGMidiSourceDelegate*>, kMaxDelegates> delegates_{};
  std::atomic<int> delivering_{0};  // receive-thread calls in progress
  // The notes sounding, one bit per channel and key byte (the key is not masked, as the router
  // passes it on unmasked). Set and cleared by the receive thread, taken by releaseChannel.
  std::array<std::atomic<std::uint64_t>, 16 * 256 / 64> sounding_{};
  void track(const std::uint8_t* data, std::size_t length) noexcept;
  void handToDelegates(std::uint64_t timeStamp, const std::uint8_t* data,
                       std::size_t length) noexcept;
  void releaseChannel(std::uint8_t channel);
  std::unique_ptr<platform::MidiPorts::Input> input_;
};

// A port of another program that MIDI can be sent to.
class PGMidiDestination {
 public:
  explicit PGMidiDestination(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

class PGMidi;

// Hears of ports that appear and go. Main thread.
class PGMidiDelegate : public platform::WeaklyReferenceable {
 public:
  virtual void sourceAdded(PGMidi* midi, PGMidiSource* source) = 0;
  virtual void sourceRemoved(PGMidi* midi, PGMidiSource* source) = 0;
  virtual void destinationAdded(PGMidi* midi, PGMidiDestination* destination) = 0;
  virtual void destinationRemoved(PGMidi* midi, PGMidiDestination* destination) = 0;

 protected:
  ~PGMidiDelegate() = default;
};

class PGMidi {
 public:
  using System = platform::MidiSystem;

  // Opens the virtual input and reads the ports there are now (without telling the delegate,
  // which is not set yet). `clientName` names our ports' client ("Pelma" in the application).
  explicit PGMidi(std::string clientName = "Pelma");
  ~PGMidi();
  PGMidi(const PGMidi&) = delete;
  PGMidi& operator=(const PGMidi&) = delete;

  System system() const { return ports_ ? ports_->system() : System::none; }
  const std::vector<std::shared_ptr<PGMidiSource>>& sources() const { return sources_; }
  const std::vector<std::shared_ptr<PGMidiDestination>>& destinations() const {
    return destinations_;
  }
  // The virtual input other programs send to (it delivers while there is a MIDI system).
  PGMidiSource* virtualDestinationSource() const { return virtualSource_.get(); }
  // The full port name other programs connect to ("Pelma:Pelma" on JACK, "Pelma MIDI:Pelma" on
  // ALSA), or empty.
  std::string virtualDestinationPortName() const;

  // 0: all channels; 1..16: that channel only. Read by the receive threads without a lock.
  std::int32_t channel() const { return channel_.load(std::memory_order_relaxed); }
  void setChannel(std::int32_t channel);

  PGMidiDelegate* delegate() const { return delegate_.get(); }
  void setDelegate(PGMidiDelegate* delegate) { delegate_ = delegate; }

  // Restores the stored choices from `defaults` now, and into sources that appear later: the
  // channel ("MIDI-CHANNEL") and each source's active flag ("MIDI-" and its name; a source with
  // no stored flag is active). `defaults` must outlive the wrapper.
  void restoreStoredChoices(const platform::UserDefaults* defaults);

  // The network MIDI session "<client name>" on UDP (5004/5005 or the next free pair): every
  // peer that joins is a source with isNetworkSession(), added and removed through the delegate
  // like any other. Disabling it says goodbye to every peer and closes the ports.
  void setNetworkEnabled(bool enabled);
  // The session's control port, 0 while it is off.
  std::uint16_t networkPort() const;
  // Invites a peer (host and control port) into the session, when it is on.
  void connectToNetworkPeer(const std::string& host, std::uint16_t port);

  // Main thread: compares the ports there are with the known ones, opens and closes sources and
  // tells the delegate. Also run from start() when the ports may have changed.
  void refresh();
  // Starts refreshing on the main queue when the ports may have changed.
  void startHotPlugPolling();

 private:
  std::shared_ptr<PGMidiSource> openSource(const std::string& portName);
  // Opens the MIDI system and our virtual input on it; false (ports_ null) when there is none.
  bool openPorts();
  // True while the MIDI system runs; when it has gone, its sources go (told to the delegate) and
  // it is opened again when it is back, or when one starts after the wrapper was made.
  bool followServer();
  // Main thread: lets the ports go, polling again for a system that comes back.
  void releasePorts();
  // A thread of the MIDI system's: a port appeared or went, or the server went away.
  static void portsChanged(void* self) noexcept;
  void applyStoredChoice(PGMidiSource& source) const;
  // Main thread: a source also connected straight to the virtual input is not read twice.
  void hearEachProgramOnce();
  // Main thread: a source has gone; its notes end and the delegate hears of it.
  void removed(PGMidiSource& source);
  static constexpr std::uint16_t kNetworkPort = 5004;

  std::string clientName_;
  bool opened_ = false;  // a MIDI system has been opened before
  std::unique_ptr<platform::MidiPorts> ports_;
  std::atomic<std::int32_t> channel_{0};
  platform::WeakRef<PGMidiDelegate> delegate_;
  std::shared_ptr<PGMidiSource> virtualSource_;
  std::vector<std::shared_ptr<PGMidiSource>> sources_;
  std::vector<std::shared_ptr<PGMidiDestination>> destinations_;
  std::unique_ptr<NetworkMidiSession> network_;
  // The network peers' sources by SSRC, used on the session's receive thread only.
  std::array<std::pair<std::uint32_t, std::shared_ptr<PGMidiSource>>, rtp_midi::kMaximumPeers>
      networkSources_{};
  const platform::UserDefaults* storedChoices_ = nullptr;

  std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
  std::thread pollThread_;
  std::mutex pollMutex_;
  std::condition_variable pollWake_;
  bool stopPolling_ = false;
  bool refreshRequested_ = false;  // by the MIDI system's ports notice
  bool watched_ = false;           // the notice tells of every change: no polling
};
