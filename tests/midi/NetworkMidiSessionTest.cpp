// Network MIDI in the MIDI wrapper on real UDP sockets on this machine: a session that finds its
// ports taken moves to the next free pair, and each peer that joins is a source like any other
// (a source's active flag is MidiEventRouterTest's). The session's exchange with an independent
// peer is NetworkMidiPeerTest's.

#include "frameworks/pelma/NetworkMidiSession.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "frameworks/pelma/PGMidi.h"
#include "midi/MIDIPacketList.h"
#include "platform/foundation/MainQueue.h"

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

TEST(NetworkMidiSession, EachPeerIsASourceOfTheMidiWrapperUntilItLeaves) {
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
    ASSERT_TRUE(laptop.start(wrapper.networkPort()));  // taken: the next free pair
    EXPECT_GT(laptop.controlPort(), wrapper.networkPort());
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
    laptop.stop();
    ASSERT_TRUE(pump([&] { return recorder.removed == std::vector<std::string>{"Laptop"}; }));
    EXPECT_TRUE(wrapper.sources().empty());
    wrapper.setDelegate(nullptr);
  }
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
