// The network MIDI session's state machine: two real sessions (an initiator and a responder)
// joined through a test network that carries their datagrams, on a test clock, and sessions
// driven by hand-made datagrams for rejections, silence and clock exchanges. Unreadable
// datagrams are RtpMidiTest's and the fuzzer's.

#include "platform/midi/network/AppleMidiSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

namespace {

using namespace rtp_midi;
using Bytes = std::vector<std::uint8_t>;

struct Datagram {
  SessionPort port;
  Endpoint from, to;
  Bytes data;
};

// Records what a session does; what it sends goes into the shared network queue.
class Recorder : public SessionListener {
 public:
  Recorder(std::deque<Datagram>& network, Endpoint self) : network_(network), self_(self) {}
  void send(SessionPort port, const Endpoint& to, const std::uint8_t* data,
            std::size_t size) override {
    const Endpoint from{self_.address,
                        static_cast<std::uint16_t>(self_.port + (port == SessionPort::data))};
    network_.push_back({port, from, to, Bytes(data, data + size)});
    sent.push_back(readSessionCommand(data, size));
  }
  void peerJoined(const Peer& peer) override {
    events.push_back("joined " + std::string(peer.nameView()));
  }
  void peerLeft(const Peer& peer, std::string_view why) override {
    events.push_back("left " + std::string(peer.nameView()) + ": " + std::string(why));
  }
  void midiReceived(const Peer&, std::uint32_t, const std::uint8_t* bytes,
                    std::size_t length) override {
    midi.emplace_back(bytes, bytes + length);
  }
  int sentClockSyncs(int count) const {
    int n = 0;
    for (const auto& command : sent)
      n += command && command->type == CommandType::clockSync && command->count == count;
    return n;
  }

  std::vector<std::string> events;
  std::vector<Bytes> midi;
  std::vector<std::optional<SessionCommand>> sent;

 private:
  std::deque<Datagram>& network_;
  Endpoint self_;
};

class Sessions : public ::testing::Test {
 protected:
  const Endpoint here{0x7F000001, 5004}, there{0x7F000001, 6004};
  std::deque<Datagram> network;
  Recorder hostEvents{network, here}, peerEvents{network, there};
  AppleMidiSession host{0x11111111, "Pelma", hostEvents};
  AppleMidiSession peer{0x22222222, "Laptop", peerEvents};
  SessionTime now = 0;

  // Carries every datagram in flight to its session, while the clock moves `step` per datagram.
  void deliverAll(SessionTime step = 10) {
    while (!network.empty()) {
      const Datagram datagram = network.front();
      network.pop_front();
      now += step;
      const bool toHost = datagram.to.port == here.port || datagram.to.port == here.port + 1;
      (toHost ? host : peer)
          .receive(datagram.port, datagram.from, datagram.data.data(), datagram.data.size(), now);
    }
  }
  void runFor(SessionTime duration) {
    for (const SessionTime end = now + duration; now < end; now += kSecond / 10) {
      host.tick(now);
      peer.tick(now);
      deliverAll(0);
    }
  }
};

// Both sides reporting the join is the independent peer's test too, in either role.
TEST_F(Sessions, AnInvitationJoinsBothPortsAndMidiFlows) {
  peer.invite(here, now);
  deliverAll();
  EXPECT_EQ(hostEvents.events, std::vector<std::string>{"joined Laptop"});
  std::uint8_t buffer[64];
  const Bytes notes{0x90, 60, 100, 0x80, 60, 0};
  const std::size_t size =
      writePayload({1, 0, 0x22222222}, notes.data(), notes.size(), buffer, sizeof buffer);
  host.receive(SessionPort::data, {there.address, 6005}, buffer, size, now);
  EXPECT_EQ(hostEvents.midi, (std::vector<Bytes>{{0x90, 60, 100}, {0x80, 60, 0}}));
  // The host acknowledges the packet on the control port, once, at its next tick.
  host.tick(now);
  host.tick(now + kSecond);
  const auto feedback = std::count_if(hostEvents.sent.begin(), hostEvents.sent.end(), [](auto& c) {
    return c && c->type == CommandType::receiverFeedback;
  });
  EXPECT_EQ(feedback, 1);
  EXPECT_EQ(network.back().to, there);
  EXPECT_EQ(hostEvents.sent.back()->sequenceNumber, 1);
  network.clear();
  // The same from a stranger's SSRC, or on the control port, is dropped.
  const std::size_t stranger =
      writePayload({2, 0, 0x33333333}, notes.data(), notes.size(), buffer, sizeof buffer);
  host.receive(SessionPort::data, there, buffer, stranger, now);
  host.receive(SessionPort::control, there, buffer, size, now);
  EXPECT_EQ(hostEvents.midi.size(), 2u);
  EXPECT_EQ(host.droppedDatagrams(), 2u);
}

// A goodbye either way is the independent peer's test (NetworkMidiPeerTest); here the default
// time-out, and the goodbye the host sends to a peer it drops.
TEST_F(Sessions, ClockExchangesRunOnAScheduleWithoutAStormAndAPeerSilentForAMinuteIsDropped) {
  peer.invite(here, now);
  deliverAll();
  runFor(35 * kSecond);
  // Each side starts its own exchange about every 10 s; each CK0 is answered once and each CK1
  // completed once; nobody answers a CK2.
  EXPECT_GE(hostEvents.sentClockSyncs(0), 3);
  EXPECT_LE(hostEvents.sentClockSyncs(0), 4);
  EXPECT_EQ(peerEvents.sentClockSyncs(1), hostEvents.sentClockSyncs(0));
  EXPECT_EQ(hostEvents.sentClockSyncs(2), hostEvents.sentClockSyncs(0));
  EXPECT_EQ(hostEvents.sentClockSyncs(1), peerEvents.sentClockSyncs(0));
  EXPECT_EQ(host.joinedPeers(), 1u) << "peers that exchange clocks stay";

  // Now the peer falls silent.
  for (const SessionTime end = now + kPeerTimeout + 2 * kSecond; now < end; now += kSecond)
    host.tick(now);
  EXPECT_EQ(hostEvents.events.back(), "left Laptop: silent for 60 s");
  EXPECT_EQ(hostEvents.sent.back()->type, CommandType::endSession);
}

TEST_F(Sessions, InvitationsThatCannotBeTakenAreRefusedAndUnansweredOnesGiveUp) {
  std::uint8_t buffer[128];
  // A data-port invitation with no control-port one first.
  const auto invitation = makeSessionCommand(CommandType::invitation, 5, 0x44444444, "Odd");
  std::size_t size = writeSessionCommand(invitation, buffer, sizeof buffer);
  host.receive(SessionPort::data, there, buffer, size, now);
  EXPECT_EQ(hostEvents.sent.back()->type, CommandType::invitationRejected);
  // Sixteen peers fill the session; the seventeenth is refused.
  for (std::uint32_t i = 0; i < kMaximumPeers + 1; ++i) {
    const auto next = makeSessionCommand(CommandType::invitation, i, 0x50000000 + i, "Many");
    size = writeSessionCommand(next, buffer, sizeof buffer);
    host.receive(SessionPort::control, {there.address, static_cast<std::uint16_t>(7000 + 2 * i)},
                 buffer, size, now);
  }
  EXPECT_EQ(hostEvents.sent.back()->type, CommandType::invitationRejected);
  // Inviting nobody: retried once a second, given up after twelve tries.
  Recorder lonelyEvents{network, {1, 1}};
  AppleMidiSession lonely{0x66666666, "Lonely", lonelyEvents};
  lonely.invite({2, 2}, 0);
  for (SessionTime t = 0; t < 20 * kSecond; t += kSecond / 10)
    lonely.tick(t);
  EXPECT_EQ(lonelyEvents.sent.size(), static_cast<std::size_t>(kInvitationAttempts));
  network.clear();
}

// A joined peer's packets count only from the address and ports it joined from: MIDI and a
// goodbye with its SSRC from another port are dropped. Invitations that never complete give their
// slot back within seconds, so that they cannot keep a real peer out.
TEST_F(Sessions, ASpoofedSsrcIsIgnoredAndUnfinishedInvitationsExpire) {
  peer.invite(here, now);
  deliverAll();
  ASSERT_EQ(host.joinedPeers(), 1u);
  std::uint8_t buffer[128];
  const Bytes note{0x90, 61, 100};
  const Endpoint elsewhere{there.address, 9999};
  std::size_t size =
      writePayload({1, 0, 0x22222222}, note.data(), note.size(), buffer, sizeof buffer);
  host.receive(SessionPort::data, elsewhere, buffer, size, now);
  size = writeSessionCommand(makeSessionCommand(CommandType::endSession, 0, 0x22222222, "Laptop"),
                             buffer, sizeof buffer);
  host.receive(SessionPort::control, elsewhere, buffer, size, now);
  EXPECT_TRUE(hostEvents.midi.empty());
  EXPECT_EQ(host.joinedPeers(), 1u);

  const auto invite = [&](std::uint32_t ssrc, std::uint16_t port) {
    const auto command = makeSessionCommand(CommandType::invitation, ssrc, ssrc, "Half");
    host.receive(SessionPort::control, {there.address, port}, buffer,
                 writeSessionCommand(command, buffer, sizeof buffer), now);
    return hostEvents.sent.back()->type;
  };
  for (std::uint32_t i = 1; i < kMaximumPeers; ++i)
    invite(0x50000000 + i, static_cast<std::uint16_t>(7000 + 2 * i));
  EXPECT_EQ(invite(0x60000000, 8000), CommandType::invitationRejected) << "the session is full";
  for (const SessionTime end = now + 10 * kSecond; now < end; now += kSecond / 10)
    host.tick(now);
  EXPECT_EQ(invite(0x60000001, 8002), CommandType::invitationAccepted);
  network.clear();
}

}  // namespace
