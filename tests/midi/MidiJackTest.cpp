// MIDI from another process over a real JACK server (dummy driver): a JACK MIDI client of its own
// process plays notes on channel 5 into our virtual input "Pelma". The instrument (mda ePiano, in a
// graph rendered here at real-time pace) must get the notes and sound with the channel setting at
// 5, and the sequencer in write mode must record the chord. A port that
// appears and goes while running must be registered and unregistered, and a server that goes away
// and comes back must find the virtual input again.

#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <gtest/gtest.h>
#include <jack/jack.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "midi/MidiEventRouter.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/UserDefaults.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRSequencerController.h"
#include "sequencer/KRStepSequence.h"
#include "support/AudioAnalysis.h"
#include "support/JackServer.h"
#include "support/OfflineRig.h"
#include "support/Processes.h"
#include "support/StepKeys.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using testing_support::waitFor;

bool finished(pid_t pid) {
  int status = 0;
  return waitpid(pid, &status, WNOHANG) == pid;
}

class MidiOverJack : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.start()) << "jackd did not start";
    platform::MainQueue::setMain(&mainQueue);
    wrapper = std::make_unique<PGMidi>("pelma-midi-test");
    ASSERT_EQ(wrapper->system(), PGMidi::System::jack);
    router = std::make_unique<ConnectedMidiRouter>(rig.unit.get(), &sequencer, wrapper.get());
    wrapper->setDelegate(router.get());
    wrapper->virtualDestinationSource()->addDelegate(router.get());
    for (const auto& source : wrapper->sources())
      source->addDelegate(router.get());
  }
  void TearDown() override {
    if (wrapper && wrapper->virtualDestinationSource()) {
      wrapper->virtualDestinationSource()->removeDelegate(router.get());
      for (const auto& source : wrapper->sources())
        source->removeDelegate(router.get());
    }
    wrapper.reset();
    mainQueue.runPending();
    platform::MainQueue::setMain(nullptr);
  }

  // Renders at about real-time pace (running the main queue between blocks) until `pid` ends;
  // returns the left channel.
  std::vector<float> renderWhile(pid_t pid) {
    std::vector<float> out;
    const auto start = std::chrono::steady_clock::now();
    std::size_t frames = 0;
    while (!finished(pid)) {
      const auto block = rig.render(256, [&] { mainQueue.runPending(); });
      out.insert(out.end(), block.begin(), block.end());
      frames += 256;
      std::this_thread::sleep_until(start + std::chrono::microseconds(frames * 1000000 / 48000));
    }
    return out;
  }

  // Renders at about real-time pace until `done` holds or `limit` seconds of audio have gone by;
  // returns whether it held.
  template <typename Done>
  bool renderUntil(Done done, double limit = 10.0) {
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t frames = 0; frames < limit * 48000; frames += 256) {
      rig.render(256, [&] { mainQueue.runPending(); });
      if (done()) return true;
      std::this_thread::sleep_until(start + std::chrono::microseconds(frames * 1000000 / 48000));
    }
    return false;
  }
  long received(std::uint8_t status, std::uint8_t key) const {
    return std::count_if(rig.received.begin(), rig.received.end(), [&](const auto& m) {
      return m.status == status && m.data1 == key && (status != 0x90 || m.data2 > 0);
    });
  }

  testing_support::Chord chordKeys() {
    return testing_support::chordAt(*sequencer.stepSequence(), 0);
  }

  testing_support::JackServer server;
  platform::ManualMainQueue mainQueue;
  testing_support::OfflineRig rig{"MDA ePiano"};
  KRSequencerController sequencer{KRSequencerController::kTabletInterface};
  std::unique_ptr<PGMidi> wrapper;
  std::unique_ptr<ConnectedMidiRouter> router;
};

// The channel setting's other cases (0 takes all, 1 filters channel 5 out) are the router's test:
// what arrives over JACK is read there the same way.
TEST_F(MidiOverJack, NotesOnChannelFiveSoundAndRecordWithTheChannelSetToFive) {
  sequencer.writeModeButtonPressed(sequencer.writeModeButton());
  sequencer.trackView()->updateSelection(0, 0);
  wrapper->setChannel(5);
  // A4 and A5 for half a beat, played by another process on channel 5. It keeps its port for
  // 1.5 s so that the notes' sound is rendered in full even when this machine is busy.
  const pid_t player =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, wrapper->virtualDestinationPortName(), "120",
                              "1.5", "69@0:0.5:100,81@0:0.5:100", "5"});
  ASSERT_GT(player, 0);
  const std::vector<float> left = renderWhile(player);
  mainQueue.runPending();

  EXPECT_GT(testing_support::rms(left.data(), left.size()), 0.01) << left.size() << " frames";
  ASSERT_GE(rig.received.size(), 2u) << left.size() << " frames rendered";
  // The notes sent, played on channel 1 (that mda plays an A for 69 is mda's own business).
  EXPECT_EQ(rig.received[0], (testing_support::ReceivedMidi{rig.received[0].frame, 0x90, 69, 100}));
  EXPECT_EQ(rig.received[1], (testing_support::ReceivedMidi{rig.received[1].frame, 0x90, 81, 100}));
  EXPECT_EQ(chordKeys(), (testing_support::Chord{{69, 100 / 128.0f}, {81, 100 / 128.0f}}));
}

// Nothing that stops reaching the instrument may leave a note sounding: a note held on channel 5
// while the channel setting moves to 6, and a note held by a source that goes away mid-note
// (killed, so it sends no note off of its own).
TEST_F(MidiOverJack, HeldNotesEndWhenTheirChannelIsFilteredOutOrTheirSourceGoes) {
  wrapper->startHotPlugPolling();
  wrapper->setChannel(5);
  const pid_t held =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, wrapper->virtualDestinationPortName(), "120",
                              "4", "69@0:3.9", "5"});
  ASSERT_GT(held, 0);
  ASSERT_TRUE(renderUntil([&] { return received(0x90, 69) >= 1; }));
  wrapper->setChannel(6);
  EXPECT_TRUE(renderUntil([&] { return received(0x80, 69) >= 1; }, 0.5))
      << "the note on channel 5 ends when channel 6 is chosen";
  kill(held, SIGTERM);
  testing_support::waitForExit(held);

  wrapper->setChannel(0);
  const pid_t source =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, "-", "120", "30", "62@0:3.9", "1"});
  ASSERT_GT(source, 0);
  ASSERT_TRUE(renderUntil([&] { return received(0x90, 62) >= 1; }));
  kill(source, SIGKILL);
  testing_support::waitForExit(source);
  EXPECT_TRUE(renderUntil([&] { return received(0x80, 62) >= 1; }, 4.0))
      << "the note of a source that went ends";
}

// A program connected both ways, through the port the host made for it and straight to the
// virtual input, reaches the instrument once.
TEST_F(MidiOverJack, AProgramConnectedTwiceIsHeardOnce) {
  wrapper->startHotPlugPolling();
  const pid_t source =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, "-", "120", "3", "60@2:0.5", "1"});
  ASSERT_GT(source, 0);
  ASSERT_TRUE(waitFor(
      [&] {
        mainQueue.runPending();
        return wrapper->sources().size() == 1;
      },
      6s));
  ASSERT_EQ(testing_support::runAndWait(
                {"jack_connect", "pelma-pattern:out", wrapper->virtualDestinationPortName()}),
            0);
  renderWhile(source);
  EXPECT_EQ(received(0x90, 60), 1);
}

// MIDI input follows the JACK server when it starts after the host, as the audio output does.
TEST_F(MidiOverJack, StartsWhenTheServerStartsLater) {
  TearDown();
  server.stop();
  platform::MainQueue::setMain(&mainQueue);
  wrapper = std::make_unique<PGMidi>("pelma-midi-test");
  EXPECT_EQ(wrapper->system(), PGMidi::System::none);
  router = std::make_unique<ConnectedMidiRouter>(rig.unit.get(), &sequencer, wrapper.get());
  wrapper->setDelegate(router.get());
  if (auto* input = wrapper->virtualDestinationSource()) input->addDelegate(router.get());
  wrapper->startHotPlugPolling();
  ASSERT_TRUE(server.start());
  ASSERT_TRUE(waitFor(
      [&] {
        mainQueue.runPending();
        return wrapper->system() == PGMidi::System::jack;
      },
      6s));
  const pid_t player =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, wrapper->virtualDestinationPortName(), "120",
                              "1", "64@0:0.5", "1"});
  ASSERT_GT(player, 0);
  renderWhile(player);
  EXPECT_GE(received(0x90, 64), 1);
}

// A note keeps its frame within the period on its way through the host, as in any JACK host:
// sent at frame 100 of a period it sounds 100 frames after one sent at frame 0, so the latency the
// probe measures from the send is the same, not 100 frames shorter.
TEST_F(MidiOverJack, ANoteKeepsItsFrameWithinThePeriod) {
  TemporaryFolder folder;
  const pid_t host = testing_support::spawn(
      {PELMA_EXECUTABLE, "--listen", "--plugin", "MDA JX10", "--seconds", "40"});
  ASSERT_GT(host, 0);
  // The shortest of five (an instrument's onset varies by a few frames from note to note).
  const auto latency = [&](const char* frame) {
    const std::string output = (folder.path() / (std::string(frame) + ".txt")).string();
    testing_support::runAndWait({PELMA_LATENCY_PROBE, "MDA JX10:Pelma", "^MDA JX10:", "5", frame},
                                output);
    const std::string text = testing_support::readFile(output);
    const auto at = text.find("min ");
    return at == std::string::npos ? -1L : std::stol(text.substr(at + 4));
  };
  const std::string ports = (folder.path() / "ports.txt").string();
  ASSERT_TRUE(waitFor(
      [&] {
        testing_support::runAndWait({"jack_lsp"}, ports);
        return testing_support::readFile(ports).find("MDA JX10:Pelma\n") != std::string::npos;
      },
      10s));
  const long fromStart = latency("0");
  const long fromFrame100 = latency("100");
  kill(host, SIGINT);
  testing_support::waitForExit(host);
  ASSERT_GT(fromStart, 0);
  EXPECT_NEAR(fromFrame100, fromStart, 8) << "not 100 frames sooner";
}

// A port that appears and goes while the server runs, then the server stops with a source
// connected and starts again: the source is removed, and on the new server the virtual input is
// there again and plays the instrument. Also: the stored choices (a real preferences file in a
// folder of the test's own) are restored into the wrapper, and into a source that appears later.
TEST_F(MidiOverJack, FollowsPortsThatComeAndGoAndTheServerAwayAndBack) {
  TemporaryFolder preferences;
  setenv("XDG_CONFIG_HOME", preferences.path().c_str(), 1);
  platform::UserDefaults& defaults = platform::UserDefaults::standardUserDefaults();
  defaults.setInteger("MIDI-CHANNEL", 7);
  defaults.setBool("MIDI-pelma-pattern:out", false);
  wrapper->restoreStoredChoices(&defaults);
  EXPECT_EQ(wrapper->channel(), 7);

  platform::LogCapture log;
  wrapper->startHotPlugPolling();
  const auto logged = [&](const char* line, long times = 1) {
    mainQueue.runPending();
    const auto lines = log.lines();
    return std::count(lines.begin(), lines.end(), line) >= times;
  };
  // The project's JACK MIDI pattern player, with its own output port for three seconds.
  const pid_t extra =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, "-", "120", "3", "60@0:1", "1"});
  ASSERT_GT(extra, 0);
  EXPECT_TRUE(waitFor([&] { return logged("MIDI source added pelma-pattern:out"); }, 6s));
  ASSERT_EQ(wrapper->sources().size(), 1u);
  EXPECT_EQ(wrapper->sources()[0]->name(), "pelma-pattern:out");
  EXPECT_FALSE(wrapper->sources()[0]->isActive());
  testing_support::waitForExit(extra);
  EXPECT_TRUE(waitFor([&] { return logged("MIDI source removed pelma-pattern:out"); }, 4s));
  EXPECT_TRUE(wrapper->sources().empty());

  const pid_t source =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, "-", "120", "30", "60@0:1", "1"});
  ASSERT_GT(source, 0);
  EXPECT_TRUE(waitFor([&] { return logged("MIDI source added pelma-pattern:out", 2); }, 6s));
  server.stop();
  kill(source, SIGTERM);
  testing_support::waitForExit(source);
  EXPECT_TRUE(waitFor([&] { return logged("MIDI source removed pelma-pattern:out", 2); }, 4s));
  EXPECT_TRUE(log.contains("MIDI: the JACK server went away"));
  EXPECT_TRUE(wrapper->sources().empty());

  ASSERT_TRUE(server.start());
  EXPECT_TRUE(waitFor(
      [&] { return logged("MIDI: JACK server back; virtual input \"Pelma:pelma-midi-test\""); },
      4s));
  rig.received.clear();
  // On channel 7, the one restored.
  const pid_t player =
      testing_support::spawn({PELMA_JACK_MIDI_PATTERN, wrapper->virtualDestinationPortName(), "120",
                              "1", "64@0:0.5", "7"});
  ASSERT_GT(player, 0);
  renderWhile(player);
  ASSERT_FALSE(rig.received.empty());
  EXPECT_EQ(rig.received[0].data1, 64);
}

}  // namespace

namespace {

// Every port `port` is connected to now, on the server `client` is a client of.
std::vector<std::string> connectionsOf(jack_client_t* client, const std::string& port) {
  std::vector<std::string> names;
  jack_port_t* handle = jack_port_by_name(client, port.c_str());
  if (const char** connected = handle ? jack_port_get_all_connections(client, handle) : nullptr) {
    for (const char** name = connected; *name; ++name)
      names.emplace_back(*name);
    jack_free(connected);
  }
  return names;
}

// Two instruments side by side on one server, each a JACK client named after its instrument. The
// one started with --no-connect connects nothing, audio or MIDI, while the other connects both its
// outputs and the MIDI source it finds; a third launch asking exactly for a taken name is refused.
TEST(JackStudio, InstrumentsRunSideBySideUnderTheirNamesAndNoConnectConnectsNothing) {
  testing_support::JackServer server;
  ASSERT_TRUE(server.start());
  jack_client_t* probe = jack_client_open("studio-probe", JackNoStartServer, nullptr);
  ASSERT_NE(probe, nullptr);
  ASSERT_NE(jack_port_register(probe, "midi_out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0),
            nullptr);
  jack_activate(probe);
  const pid_t jx10 = testing_support::spawn(
      {PELMA_EXECUTABLE, "--listen", "--plugin", "MDA JX10", "--seconds", "30"});
  const pid_t pelma =
      testing_support::spawn({PELMA_EXECUTABLE, "--listen", "--no-connect", "--seconds", "30"});
  const auto ready = [&] {
    return !connectionsOf(probe, "MDA JX10:out_1").empty() &&
           jack_port_by_name(probe, "Pelma:out_1") && jack_port_by_name(probe, "Pelma:Pelma") &&
           !connectionsOf(probe, "studio-probe:midi_out").empty();
  };
  ASSERT_TRUE(waitFor(ready, 20s));
  std::this_thread::sleep_for(1s);  // time enough to connect what it would connect

  EXPECT_EQ(connectionsOf(probe, "MDA JX10:out_1"), std::vector<std::string>{"system:playback_1"});
  EXPECT_EQ(connectionsOf(probe, "MDA JX10:out_2"), std::vector<std::string>{"system:playback_2"});
  for (const std::string& from : connectionsOf(probe, "studio-probe:midi_out"))
    EXPECT_EQ(from.rfind("MDA JX10:", 0), 0u) << from;
  const char** ours = jack_get_ports(probe, "^Pelma:", nullptr, 0);
  ASSERT_NE(ours, nullptr);
  for (const char** port = ours; *port; ++port)
    EXPECT_EQ(connectionsOf(probe, *port), std::vector<std::string>{}) << *port;
  jack_free(ours);

  EXPECT_EQ(testing_support::runAndWait({PELMA_EXECUTABLE, "--listen", "--plugin", "MDA JX10",
                                         "--exact-name", "--seconds", "1"}),
            2);
  kill(jx10, SIGINT);
  kill(pelma, SIGINT);
  EXPECT_EQ(testing_support::waitForExit(jx10), 0);
  EXPECT_EQ(testing_support::waitForExit(pelma), 0);
  jack_client_close(probe);
}

}  // namespace
