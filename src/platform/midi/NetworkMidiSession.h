#pragma once

// The network MIDI session on UDP: a control port and the next port (5004/5005 by default, the
// next free pair when taken), a receive thread that hands every datagram to the session state
// machine and ticks its timers, and MIDI sent to every joined peer. Events arrive on the receive
// thread. Receiving allocates nothing. Datagrams that cannot be used (malformed, or from no peer)
// are counted and logged at most once a second, so that a flood cannot flood the log.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/midi/DnsSdAnnouncement.h"
#include "platform/midi/network/AppleMidiSession.h"

class NetworkMidiSession : private rtp_midi::SessionListener {
 public:
  struct Events {
    std::function<void(const rtp_midi::Peer&)> peerJoined;
    std::function<void(const rtp_midi::Peer&, std::string_view why)> peerLeft;
    std::function<void(const rtp_midi::Peer&, std::uint32_t timestamp, const std::uint8_t* bytes,
                       std::size_t length)>
        midiReceived;
  };

  // `peerTimeout`: how long a silent peer is kept (shorter only in tests).
  NetworkMidiSession(std::string name, Events events,
                     rtp_midi::SessionTime peerTimeout = rtp_midi::kPeerTimeout);
  ~NetworkMidiSession() override;

  // Binds the first free pair from `firstPort` on (20 tries), starts the receive thread and
  // announces the session over mDNS as "_apple-midi._udp". False, with one log line, when no
  // pair is free.
  bool start(std::uint16_t firstPort = 5004);
  // Says goodbye to every peer, withdraws the announcement and closes the ports.
  void stop();
  // Invites the peer whose control port is `port` at `host` (an IPv4 address or name).
  bool invite(const std::string& host, std::uint16_t port);
  // Sends whole MIDI messages to every joined peer, as one packet.
  void sendMidi(const std::uint8_t* bytes, std::size_t length);

  std::uint16_t controlPort() const { return controlPort_; }
  std::size_t joinedPeers();

 private:
  void send(rtp_midi::SessionPort port, const rtp_midi::Endpoint& to, const std::uint8_t* data,
            std::size_t size) override;
  void peerJoined(const rtp_midi::Peer& peer) override;
  void peerLeft(const rtp_midi::Peer& peer, std::string_view why) override;
  void midiReceived(const rtp_midi::Peer& peer, std::uint32_t timestamp, const std::uint8_t* bytes,
                    std::size_t length) override;
  void run();
  void reportDroppedDatagrams(rtp_midi::SessionTime now);
  static rtp_midi::SessionTime now();

  std::string name_;
  Events events_;
  int control_ = -1, data_ = -1, wake_[2] = {-1, -1};
  std::uint16_t controlPort_ = 0;
  // The session is used by the receive thread; the main thread takes the lock to invite, send
  // and end (the receive thread holds it while it handles a datagram).
  std::mutex sessionMutex_;
  rtp_midi::AppleMidiSession session_;
  std::vector<rtp_midi::Endpoint> dataPeers_;  // joined peers' data ports, for sendMidi
  std::uint16_t sequence_ = 0;
  // Unusable datagrams are logged as a count, at most once a second.
  std::uint64_t droppedReported_ = 0;
  rtp_midi::SessionTime nextDropReport_ = 0;
  std::atomic<bool> running_{false};
  std::thread thread_;
  std::unique_ptr<DnsSdAnnouncement> announcement_;
};
