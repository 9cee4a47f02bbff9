#pragma once

// A network MIDI session ("Pelma" on a control port and the next port), as a state machine
// without sockets: datagrams are handed in with the port they came to, the sender and the time;
// what to send goes out through the listener. It answers invitations (and invites, as the
// initiator), answers every CK0 and starts its own clock exchanges on a schedule (never in reply
// to a CK2), drops a peer on goodbye or after 60 s of silence, reads each peer's MIDI with its own
// payload reader and tells the peer, once a second at most, the last packet it got (receiver
// feedback, so that the peer can shorten its recovery journal). A joined peer's datagrams count
// only from the endpoints it joined from (another sender using its SSRC is dropped), and an
// invitation that is not completed on the data port within seconds gives its slot back. Peers
// live in fixed storage: receiving allocates nothing. One thread.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/midi/network/AppleMidiCommand.h"
#include "platform/midi/network/RtpMidiPayload.h"

namespace rtp_midi {

enum class SessionPort { control, data };

// An IPv4 address and port, in host byte order.
struct Endpoint {
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  bool operator==(const Endpoint&) const = default;
};

// Time in the session's units: 100 µs, as the clock exchange counts it.
using SessionTime = std::uint64_t;
inline constexpr SessionTime kSecond = 10000;
inline constexpr SessionTime kPeerTimeout = 60 * kSecond;
inline constexpr SessionTime kClockSyncInterval = 10 * kSecond;
inline constexpr SessionTime kFeedbackInterval = kSecond;
inline constexpr SessionTime kInvitationRetry = kSecond;
inline constexpr int kInvitationAttempts = 12;
// How long a peer that invited us may take to invite our data port too.
inline constexpr SessionTime kInvitationTimeout = 5 * kSecond;
inline constexpr std::size_t kMaximumPeers = 16;

struct Peer {
  std::uint32_t ssrc = 0;
  std::array<char, kMaximumNameLength + 1> name{};
  Endpoint control, data;
  std::string_view nameView() const { return name.data(); }
};

class SessionListener {
 public:
  virtual ~SessionListener() = default;
  virtual void send(SessionPort port, const Endpoint& to, const std::uint8_t* data,
                    std::size_t size) = 0;
  // A peer has joined on both ports.
  virtual void peerJoined(const Peer& peer) = 0;
  // A joined peer is gone ("goodbye", "silent for 60 s", "session ended", "restarted").
  virtual void peerLeft(const Peer& peer, std::string_view why) = 0;
  virtual void midiReceived(const Peer& peer, std::uint32_t timestamp, const std::uint8_t* bytes,
                            std::size_t length) = 0;
};

class AppleMidiSession {
 public:
  // `peerTimeout`: the silence after which a peer is dropped; our own clock exchanges run six
  // times in that span (every 10 s for the usual 60 s), so a live peer always answers in time.
  AppleMidiSession(std::uint32_t ssrc, std::string_view name, SessionListener& listener,
                   SessionTime peerTimeout = kPeerTimeout);

  // A datagram that came to `port` from `from`.
  void receive(SessionPort port, const Endpoint& from, const std::uint8_t* data, std::size_t size,
               SessionTime now);
  // Timers: invitations retried, clock exchanges started, silent peers dropped. Call it often
  // (every 100 ms or so).
  void tick(SessionTime now);
  // Invites a peer whose control port is `control` (its data port is the next one).
  void invite(const Endpoint& control, SessionTime now);
  // Says goodbye to every peer and forgets them.
  void endAll();

  std::size_t joinedPeers() const;
  // Datagrams that were not understood or came from no peer.
  std::uint64_t droppedDatagrams() const { return dropped_; }
  std::uint32_t ssrc() const { return ssrc_; }

 private:
  enum class State { free, invitingControl, invitingData, awaitingData, joined };
  struct Slot {
    State state = State::free;
    Peer peer;
    std::uint32_t token = 0;
    bool initiator = false;
    int attempts = 0;
    SessionTime lastHeard = 0, nextAction = 0, nextFeedback = 0;
    PayloadReader reader;
    bool unacknowledgedMidi = false;  // MIDI read since the last receiver feedback
  };

  Slot* findBySsrc(std::uint32_t ssrc);
  Slot* findByToken(std::uint32_t token);
  Slot* freeSlot();
  // Whether a datagram came from one of the two endpoints the slot's peer joined from.
  static bool isFrom(const Slot& slot, const Endpoint& from);
  void sendCommand(SessionPort port, const Endpoint& to, const SessionCommand& command);
  void answerInvitation(SessionPort port, const Endpoint& from, const SessionCommand& command,
                        SessionTime now);
  void handleClockSync(const Endpoint& from, const SessionCommand& command, SessionTime now);
  void startClockSync(Slot& slot, SessionTime now);
  void drop(Slot& slot, std::string_view why, bool sayGoodbye);
  void sendFeedback(Slot& slot, SessionTime now);

  std::uint32_t ssrc_;
  std::array<char, kMaximumNameLength + 1> name_{};
  SessionTime peerTimeout_, clockSyncInterval_;
  std::array<char, 32> silentReason_{};  // "silent for 60 s"
  SessionListener& listener_;
  std::array<Slot, kMaximumPeers> slots_{};
  std::uint32_t nextToken_;
  std::uint64_t dropped_ = 0;
};

}  // namespace rtp_midi
