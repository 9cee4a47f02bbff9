// Network MIDI against an independent implementation: the npm package rtpmidi, run by node in its
// own process (tests/support/rtpmidi-peer.js). It joins the application's session and plays a
// chord that the instrument (mda ePiano, rendered here at real-time pace) sounds and the
// sequencer records, a source of the MIDI wrapper until it says goodbye; our session invites it
// and it hears our notes, with every datagram of the exchange decoded by tshark; and a peer
// killed without a goodbye is dropped after the time-out.

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "midi/MidiEventRouter.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/midi/NetworkMidiSession.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRSequencerController.h"
#include "sequencer/KRStepSequence.h"
#include "support/AudioAnalysis.h"
#include "support/OfflineRig.h"
#include "support/Processes.h"
#include "support/StepKeys.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using testing_support::readFile;
using testing_support::waitFor;

// A control port whose next port is free too, for the peer (node binds both).
std::uint16_t freePortPair() {
  for (std::uint16_t port = 21000 + 2 * (getpid() % 2000);; port += 2) {
    int fds[2] = {-1, -1};
    bool free = true;
    for (int i = 0; i < 2; ++i) {
      fds[i] = socket(AF_INET, SOCK_DGRAM, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons(static_cast<std::uint16_t>(port + i));
      free = free && bind(fds[i], reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    close(fds[0]);
    close(fds[1]);
    if (free) return port;
  }
}

// The node peer, its output in a file of the test's folder.
class NodePeer {
 public:
  NodePeer(const TemporaryFolder& folder, std::vector<std::string> arguments)
      : output_((folder.path() / "peer.txt").string()) {
    setenv("NODE_PATH", PELMA_NODE_MODULES, 1);
    arguments.insert(arguments.begin(), {"node", PELMA_RTPMIDI_PEER});
    pid_ = testing_support::spawn(arguments, output_);
  }
  ~NodePeer() { stop(SIGKILL); }
  bool says(const std::string& line, std::chrono::milliseconds limit = 10s) const {
    return waitFor([&] { return output().find(line + "\n") != std::string::npos; }, limit);
  }
  std::string output() const { return readFile(output_); }
  void stop(int signal) {
    if (pid_ <= 0) return;
    kill(pid_, signal);
    testing_support::waitForExit(pid_);
    pid_ = 0;
  }

 private:
  std::string output_;
  pid_t pid_ = 0;
};

// What a session reports on its receive thread.
struct Events {
  std::mutex mutex;
  std::vector<std::string> lines;
  NetworkMidiSession::Events listen() {
    return {[this](const rtp_midi::Peer& peer) { add("joined " + std::string(peer.nameView())); },
            [this](const rtp_midi::Peer& peer, std::string_view why) {
              add("left " + std::string(peer.nameView()) + ": " + std::string(why));
            },
            {}};
  }
  void add(const std::string& line) {
    std::lock_guard lock(mutex);
    lines.push_back(line);
  }
  bool has(const std::string& line) {
    std::lock_guard lock(mutex);
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
};

TEST(NetworkMidiPeer, APeerJoinsAndPlaysTheInstrumentWhileTheSequencerRecords) {
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  TemporaryFolder folder;
  testing_support::OfflineRig rig{"MDA ePiano"};
  KRSequencerController sequencer{KRSequencerController::kTabletInterface};
  sequencer.writeModeButtonPressed(sequencer.writeModeButton());
  sequencer.trackView()->updateSelection(0, 0);
  {
    PGMidi wrapper("PelmaPeerTest");
    ConnectedMidiRouter router(rig.unit.get(), &sequencer, &wrapper);
    wrapper.setDelegate(&router);
    platform::LogCapture log;
    wrapper.setNetworkEnabled(true);
    ASSERT_NE(wrapper.networkPort(), 0);
    NetworkMidiSession second("Second", {});  // the wrapper's ports are taken: the next free pair
    ASSERT_TRUE(second.start(wrapper.networkPort()));
    EXPECT_GT(second.controlPort(), wrapper.networkPort());

    NodePeer peer(folder, {"play", std::to_string(freePortPair()),
                           std::to_string(wrapper.networkPort()), "69", "81"});
    // Render at about real-time pace until the peer has played and a little after.
    std::vector<float> left;
    const auto start = std::chrono::steady_clock::now();
    bool played = false;
    for (auto end = start + 15s; std::chrono::steady_clock::now() < end;) {
      const auto block = rig.render(256, [&] { mainQueue.runPending(); });
      left.insert(left.end(), block.begin(), block.end());
      std::this_thread::sleep_until(start + left.size() * 1000000us / 48000);
      if (!played && peer.output().find("played\n") != std::string::npos) {
        played = true;
        end = std::chrono::steady_clock::now() + 500ms;
      }
    }
    ASSERT_TRUE(played) << peer.output();
    EXPECT_TRUE(log.contains("MIDI source added Node peer"));
    wrapper.refresh();  // the MIDI system's port list does not take network peers away
    ASSERT_EQ(wrapper.sources().size(), 1u);
    EXPECT_TRUE(wrapper.sources()[0]->isNetworkSession());
    ASSERT_GE(rig.received.size(), 4u);
    const std::size_t onset = rig.received[0].frame;
    ASSERT_LT(onset + 24000, left.size());
    EXPECT_GT(testing_support::rms(left.data() + onset, 24000), 0.01);
    EXPECT_EQ(rig.received[0].status, 0x90);
    EXPECT_EQ(rig.received[0].data1, 69);
    EXPECT_EQ(rig.received[3].status, 0x80) << "the chord ends";
    EXPECT_EQ(testing_support::chordAt(*sequencer.stepSequence(), 0),
              (testing_support::Chord{{69, 100 / 128.0f}, {81, 100 / 128.0f}}));

    peer.stop(SIGTERM);  // a goodbye
    EXPECT_TRUE(waitFor(
        [&] {
          mainQueue.runPending();
          return log.contains("MIDI source removed Node peer");
        },
        5s));
    EXPECT_TRUE(wrapper.sources().empty());
    wrapper.setDelegate(nullptr);
  }
  platform::MainQueue::setMain(nullptr);
}

TEST(NetworkMidiPeer, OurSessionInvitesAPeerThatHearsUsAndTsharkReadsEveryDatagram) {
  TemporaryFolder folder;
  const std::uint16_t peerPort = freePortPair();
  const std::string capture = (folder.path() / "exchange.pcapng").string();
  const bool capturing = access("/usr/bin/tshark", X_OK) == 0;
  const std::string port = std::to_string(peerPort), log = (folder.path() / "tshark.txt").string();
  const pid_t tshark =
      capturing ? testing_support::spawn(
                      {"tshark", "-i", "lo", "-f",
                       "udp portrange " + port + "-" + std::to_string(peerPort + 1), "-w", capture},
                      log)
                : 0;
  ASSERT_TRUE(!capturing ||
              waitFor([&] { return readFile(log).find("Capturing") != std::string::npos; }, 10s));
  NodePeer peer(folder, {"listen", std::to_string(peerPort)});
  Events events;
  NetworkMidiSession session("Pelma", events.listen());
  ASSERT_TRUE(session.start(static_cast<std::uint16_t>(peerPort + 2)));
  ASSERT_TRUE(session.invite("127.0.0.1", peerPort));
  ASSERT_TRUE(peer.says("joined Pelma")) << peer.output();
  ASSERT_TRUE(waitFor([&] { return events.has("joined Node peer"); }, 5s));

  const std::uint8_t chord[] = {0x90, 69, 100, 0x90, 81, 100};
  session.sendMidi(chord, sizeof chord);
  EXPECT_TRUE(peer.says("received 90 45 64")) << peer.output();
  EXPECT_TRUE(peer.says("received 90 51 64"));
  std::this_thread::sleep_for(2500ms);  // a clock exchange each way, and the feedback
  session.stop();
  EXPECT_TRUE(peer.says("left Pelma")) << "our goodbye reached it";

  if (!capturing) GTEST_SKIP() << "tshark is not installed: the capture was not decoded";
  std::this_thread::sleep_for(500ms);
  kill(tshark, SIGINT);
  testing_support::waitForExit(tshark);
  const std::string fields = capture + ".txt";
  testing_support::runAndWait(
      {"tshark", "-r", capture, "-Y", "applemidi or rtpmidi", "-T", "fields", "-e",
       "applemidi.command", "-e", "rtpmidi.note", "-e", "_ws.malformed"},
      fields);
  const std::string decoded = readFile(fields);
  // tshark prints the commands as numbers: IN, OK, CK, RS, BY.
  for (const char* command : {"0x494e", "0x4f4b", "0x434b", "0x5253", "0x4259"})
    EXPECT_NE(decoded.find(std::string(command) + "\t"), std::string::npos) << command;
  EXPECT_NE(decoded.find("69,81"), std::string::npos) << "the chord, decoded from our packet";
  EXPECT_EQ(decoded.find("alformed"), std::string::npos) << decoded;
}

TEST(NetworkMidiPeer, APeerThatVanishesWithoutAGoodbyeIsDroppedAfterTheTimeOut) {
  TemporaryFolder folder;
  Events events;
  // A 3 s time-out instead of 60 s; the session's clock exchanges keep a live peer well inside it.
  NetworkMidiSession session("Pelma", events.listen(), 3 * rtp_midi::kSecond);
  ASSERT_TRUE(session.start(freePortPair()));
  NodePeer peer(folder,
                {"play", std::to_string(freePortPair()), std::to_string(session.controlPort())});
  ASSERT_TRUE(waitFor([&] { return events.has("joined Node peer"); }, 10s)) << peer.output();
  std::this_thread::sleep_for(4500ms);
  EXPECT_EQ(session.joinedPeers(), 1u) << "a live peer answers the clock exchanges and stays";

  peer.stop(SIGKILL);
  EXPECT_TRUE(waitFor([&] { return events.has("left Node peer: silent for 3 s"); }, 6s));
  EXPECT_EQ(session.joinedPeers(), 0u);
}

// A peer that says goodbye while its chord is held leaves nothing sounding: its notes end when
// its source goes.
TEST(NetworkMidiPeer, AChordHeldByAPeerThatLeavesEnds) {
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  TemporaryFolder folder;
  testing_support::OfflineRig rig{"MDA ePiano"};
  {
    PGMidi wrapper("PelmaPeerTest");
    ConnectedMidiRouter router(rig.unit.get(), nullptr, &wrapper);
    wrapper.setDelegate(&router);
    wrapper.setNetworkEnabled(true);
    NodePeer peer(folder, {"hold", std::to_string(freePortPair()),
                           std::to_string(wrapper.networkPort()), "60", "64"});
    const auto renderUntil = [&](auto done) {
      for (int blocks = 0; blocks < 15 * 48000 / 256 && !done(); ++blocks) {
        rig.render(256, [&] { mainQueue.runPending(); });
        std::this_thread::sleep_for(5ms);
      }
      return done();
    };
    const auto heard = [&](std::uint8_t status) {
      return std::count_if(rig.received.begin(), rig.received.end(),
                           [&](const auto& m) { return m.status == status; });
    };
    ASSERT_TRUE(renderUntil([&] { return heard(0x90) == 2; })) << peer.output();
    peer.stop(SIGTERM);  // a goodbye, the chord still held
    EXPECT_TRUE(renderUntil([&] { return heard(0x80) == 2; })) << "the chord ends";
    wrapper.setDelegate(nullptr);
  }
  mainQueue.runPending();
  platform::MainQueue::setMain(nullptr);
}

// A sender of hand-made datagrams joins under a name with a line break in it: the name is logged
// escaped, on one line. MIDI with its SSRC from another port is not played; from the port it
// joined from, it is.
TEST(NetworkMidiPeer, ASpoofedSenderIsNotPlayedAndANameCannotBreakTheLog) {
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  testing_support::OfflineRig rig{"MDA ePiano"};
  platform::LogCapture log;
  {
    PGMidi wrapper("PelmaPeerTest");
    ConnectedMidiRouter router(rig.unit.get(), nullptr, &wrapper);
    wrapper.setDelegate(&router);
    wrapper.setNetworkEnabled(true);
    const std::uint16_t own = freePortPair();
    const auto bound = [](std::uint16_t port) {
      const int fd = socket(AF_INET, SOCK_DGRAM, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      address.sin_port = htons(port);
      EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
      return fd;
    };
    const int control = bound(own), data = bound(own + 1), stranger = bound(0);
    const auto sendTo = [&](int fd, std::uint16_t port, const std::uint8_t* bytes, std::size_t n) {
      sockaddr_in to{};
      to.sin_family = AF_INET;
      to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      to.sin_port = htons(port);
      sendto(fd, bytes, n, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    };
    std::uint8_t buffer[256];
    const auto invitation = rtp_midi::makeSessionCommand(rtp_midi::CommandType::invitation, 7,
                                                         0x12345678, "Evil\nMIDI source added X");
    const std::size_t size = rtp_midi::writeSessionCommand(invitation, buffer, sizeof buffer);
    sendTo(control, wrapper.networkPort(), buffer, size);
    std::this_thread::sleep_for(200ms);
    sendTo(data, wrapper.networkPort() + 1, buffer, size);
    EXPECT_TRUE(waitFor(
        [&] { return log.contains("Network MIDI: \"Evil\\nMIDI source added X\" joined"); }, 5s));
    const auto play = [&](int fd, std::uint8_t key) {
      const std::uint8_t note[3] = {0x90, key, 100};
      const std::size_t n =
          rtp_midi::writePayload({key, 0, 0x12345678}, note, sizeof note, buffer, sizeof buffer);
      sendTo(fd, wrapper.networkPort() + 1, buffer, n);
      std::this_thread::sleep_for(200ms);
      rig.render(256, [&] { mainQueue.runPending(); });
    };
    play(stranger, 61);
    play(data, 62);
    ASSERT_EQ(rig.received.size(), 1u);
    EXPECT_EQ(rig.received[0].data1, 62);
    for (const int fd : {control, data, stranger})
      close(fd);
    wrapper.setNetworkEnabled(false);  // its receive thread ends before the router goes
    wrapper.setDelegate(nullptr);
  }
  mainQueue.runPending();
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
