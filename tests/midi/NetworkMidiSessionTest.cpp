// Network MIDI sessions on real UDP sockets on this machine: the second takes the next free pair
// of ports, invites the first, both see the other join, MIDI sent by one arrives at the other,
// and stopping says goodbye; in the MIDI wrapper each peer is a source like any other.

#include "frameworks/pelma/NetworkMidiSession.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frameworks/pelma/PGMidi.h"
#include "midi/MIDIPacketList.h"
#include "platform/foundation/MainQueue.h"

namespace {

// What a session reports, from its receive thread.
struct Seen {
  std::mutex mutex;
  std::vector<std::string> events;
  std::vector<std::vector<std::uint8_t>> midi;

  NetworkMidiSession::Events listen() {
    return {[this](const rtp_midi::Peer& peer) { add("joined " + std::string(peer.nameView())); },
            [this](const rtp_midi::Peer& peer, std::string_view why) {
              add("left " + std::string(peer.nameView()) + ": " + std::string(why));
            },
            [this](const rtp_midi::Peer&, std::uint32_t, const std::uint8_t* bytes,
                   std::size_t length) {
              std::lock_guard lock(mutex);
              midi.emplace_back(bytes, bytes + length);
            }};
  }
  void add(std::string event) {
    std::lock_guard lock(mutex);
    events.push_back(std::move(event));
  }
  template <typename Condition>
  bool waitFor(Condition condition) {
    for (int i = 0; i < 200; ++i) {
      {
        std::lock_guard lock(mutex);
        if (condition()) return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
};

TEST(NetworkMidiSession, TwoSessionsJoinOverUdpExchangeMidiAndSayGoodbye) {
  Seen hostSeen, laptopSeen;
  NetworkMidiSession host("Pelma", hostSeen.listen());
  NetworkMidiSession laptop("Laptop", laptopSeen.listen());
  ASSERT_TRUE(host.start(15004));
  ASSERT_TRUE(laptop.start(host.controlPort()));  // taken: the next free pair
  EXPECT_GT(laptop.controlPort(), host.controlPort());

  ASSERT_TRUE(laptop.invite("127.0.0.1", host.controlPort()));
  ASSERT_TRUE(hostSeen.waitFor([&] { return !hostSeen.events.empty(); }));
  ASSERT_TRUE(laptopSeen.waitFor([&] { return !laptopSeen.events.empty(); }));
  EXPECT_EQ(hostSeen.events.front(), "joined Laptop");
  EXPECT_EQ(laptopSeen.events.front(), "joined Pelma");

  const std::uint8_t chord[] = {0x90, 60, 100, 0x90, 64, 100};
  laptop.sendMidi(chord, sizeof chord);
  ASSERT_TRUE(hostSeen.waitFor([&] { return hostSeen.midi.size() == 2; }));
  EXPECT_EQ(hostSeen.midi[1], (std::vector<std::uint8_t>{0x90, 64, 100}));

  laptop.stop();
  EXPECT_TRUE(hostSeen.waitFor([&] { return hostSeen.events.back() == "left Laptop: goodbye"; }));
  EXPECT_EQ(host.joinedPeers(), 0u);
}

}  // namespace

namespace {

class SourceRecorder : public PGMidiDelegate, public PGMidiSourceDelegate {
 public:
  void sourceAdded(PGMidi*, PGMidiSource* source) override {
    added.push_back(source);
    source->addDelegate(this);
  }
  void sourceRemoved(PGMidi*, PGMidiSource* source) override { removed.push_back(source->name()); }
  void destinationAdded(PGMidi*, PGMidiDestination*) override {}
  void destinationRemoved(PGMidi*, PGMidiDestination*) override {}
  void midiReceived(PGMidiSource*, const std::uint8_t* list, std::size_t) override {
    received.fetch_add(midi::readUInt32(list));  // the packet count
  }

  std::vector<PGMidiSource*> added;
  std::vector<std::string> removed;
  std::atomic<int> received{0};
};

TEST(NetworkMidiSession, EachPeerIsASourceOfTheMidiWrapperThatObeysItsActiveFlag) {
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  auto pump = [&](const std::function<bool()>& done) {
    for (int i = 0; i < 200 && !done(); ++i) {
      mainQueue.runPending();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return done();
  };
  {
    PGMidi wrapper("PelmaNetTest");
    SourceRecorder recorder;
    wrapper.setDelegate(&recorder);
    wrapper.setNetworkEnabled(true);
    ASSERT_NE(wrapper.networkPort(), 0);
    NetworkMidiSession laptop("Laptop", {});
    ASSERT_TRUE(laptop.start(wrapper.networkPort() + 2));
    ASSERT_TRUE(laptop.invite("127.0.0.1", wrapper.networkPort()));
    ASSERT_TRUE(pump([&] { return recorder.added.size() == 1; }));
    PGMidiSource* source = recorder.added.front();
    EXPECT_EQ(source->name(), "Laptop");
    EXPECT_TRUE(source->isNetworkSession());
    wrapper.refresh();  // the MIDI system's port list does not take network peers away
    EXPECT_EQ(wrapper.sources().size(), 1u);

    const std::uint8_t note[] = {0x90, 60, 100};
    laptop.sendMidi(note, sizeof note);
    ASSERT_TRUE(pump([&] { return recorder.received.load() == 1; }));
    source->setIsActive(false);
    laptop.sendMidi(note, sizeof note);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(recorder.received.load(), 1) << "an inactive source delivers nothing";

    laptop.stop();
    ASSERT_TRUE(pump([&] { return recorder.removed.size() == 1; }));
    EXPECT_EQ(recorder.removed.front(), "Laptop");
    EXPECT_TRUE(wrapper.sources().empty());
    wrapper.setDelegate(nullptr);
  }
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
