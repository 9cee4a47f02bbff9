// The audio graph on real outputs, in real time: a JACK server with the dummy driver, and the
// null output while no server runs. The server goes away, comes back, and changes its period and
// rate while the graph plays.

#include "platform/audio/AudioGraph.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <jack/jack.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AudioAnalysis.h"
#include "JackListener.h"
#include "JackServer.h"
#include "OfflineRig.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/music/MusicPlayer.h"

using namespace std::chrono_literals;
using testing_support::JackListener;
using testing_support::JackServer;
using testing_support::waitFor;

namespace {

struct Playing {
  Playing() {
    std::string error;
    unit = platform::AudioUnitComponentManager::shared().instantiateNow(
        testing_support::instrumentNamed("MDA JX10"), 48000, 4096, &error);
    graph.attach(unit);
    graph.connect(*unit, graph.mainMixerNode(), std::nullopt);
    graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
    sequence.newTrack()->newMIDINoteEvent(0.0, {0, 60, 100, 0, 1.0f});
    player.setSequence(&sequence);
    graph.setMusicSequence(&sequence);
  }
  ~Playing() { graph.setMusicSequence(nullptr); }
  // Whether the audio clock moves: the player's time advances only as blocks are rendered.
  bool clockRuns() {
    const double before = player.getTime();
    return waitFor([&] { return player.getTime() > before + 0.1; });
  }
  std::shared_ptr<platform::AudioUnit> unit;
  platform::AudioGraph graph;
  platform::MusicSequence sequence;
  platform::MusicPlayer player;
};

// A fake output, the only way here to have an output stop calling and later resume (as ALSA or
// PulseAudio do after a suspend): a thread that renders a block every 5 ms unless stalled.
class FakeStallingOutput final : public platform::AudioOutput {
 public:
  explicit FakeStallingOutput(platform::AudioRenderer& renderer) : renderer_(renderer) {}
  ~FakeStallingOutput() override { stop(); }
  bool start() override {
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    return true;
  }
  void stop() override {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
  }
  bool isAlive() const override { return true; }
  double sampleRate() const override { return 48000.0; }
  std::uint32_t bufferFrames() const override { return 256; }
  std::string name() const override { return "fake stalling output"; }
  std::uint64_t blocksRendered() const override { return blocks_; }

  std::atomic<bool> stalled{false};
  std::atomic<double> loudest{0.0};  // the highest peak it has rendered

 private:
  void run() {
    std::vector<float> left(256), right(256);
    float* channels[2] = {left.data(), right.data()};
    while (!stopping_) {
      if (!stalled) {
        renderer_.render(this, channels, 2, 256);
        loudest = std::max<double>(loudest, testing_support::peak(left.data(), left.size()));
        blocks_++;
      }
      std::this_thread::sleep_for(5ms);
    }
  }
  platform::AudioRenderer& renderer_;
  std::atomic<bool> stopping_{false};
  std::atomic<std::uint64_t> blocks_{0};
  std::thread thread_;
};

std::vector<FakeStallingOutput*> fakeOutputs;  // every one opened, owned by the graph

std::unique_ptr<platform::AudioOutput> openFakeOutput(platform::AudioRenderer& renderer, double,
                                                      std::uint32_t) {
  auto output = std::make_unique<FakeStallingOutput>(renderer);
  fakeOutputs.push_back(output.get());
  return output;
}

TEST(AudioGraphOutput, AnOutputThatStalledAndComesBackNoLongerRenders) {
  Playing playing;
  fakeOutputs.clear();
  playing.graph.setOutputOpener(openFakeOutput);
  ASSERT_TRUE(playing.graph.start());
  playing.unit->sendMIDIEvent(0x90, 60, 100, 0);  // a held note: every block renders sound
  ASSERT_TRUE(waitFor([&] { return fakeOutputs[0]->loudest > 0.01; }));

  fakeOutputs[0]->stalled = true;
  ASSERT_TRUE(waitFor([&] { return !playing.graph.isRunning(); }));  // given up on
  ASSERT_TRUE(playing.graph.start());  // what the engine does on the configuration change
  ASSERT_EQ(fakeOutputs.size(), 2u);
  playing.unit->sendMIDIEvent(0x90, 60, 100, 0);
  ASSERT_TRUE(waitFor([&] { return fakeOutputs[1]->loudest > 0.01; }));

  // The old output resumes: its callbacks are turned away, so only the new one renders.
  fakeOutputs[0]->loudest = 0.0;
  fakeOutputs[0]->stalled = false;
  const std::uint64_t before = fakeOutputs[0]->blocksRendered();
  ASSERT_TRUE(waitFor([&] { return fakeOutputs[0]->blocksRendered() > before + 20; }));
  EXPECT_EQ(fakeOutputs[0]->loudest, 0.0);
}

// A spy on libjack's close, in front of the real one: the names of the clients closed. Closing a
// client whose server has gone hangs now and then (libjack's notification thread, cancelled by
// the close, may hold a lock the close then waits for), too rarely to be caught by waiting for it.
std::mutex closedMutex;
std::vector<std::string> closedClients;

}  // namespace

extern "C" int jack_client_close(jack_client_t* client) {
  static const auto real =
      reinterpret_cast<int (*)(jack_client_t*)>(dlsym(RTLD_NEXT, "jack_client_close"));
  {
    std::lock_guard lock(closedMutex);
    closedClients.emplace_back(jack_get_client_name(client));
  }
  return real(client);
}

namespace {

bool closedAClientNamed(const std::string& name) {
  std::lock_guard lock(closedMutex);
  return std::find(closedClients.begin(), closedClients.end(), name) != closedClients.end();
}

TEST(AudioGraphOutput, FollowsTheJackServerAwayAndBack) {
  JackServer server;
  ASSERT_TRUE(server.start());
  platform::LogCapture log;
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  Playing playing;
  // The change is delivered on the main thread (here: the thread that runs the main queue), the
  // only thread that may touch the engine that observes it.
  int changes = 0;
  bool onMainThread = true;
  const auto testThread = std::this_thread::get_id();
  auto& center = platform::NotificationCenter::defaultCenter();
  const auto observer =
      center.addObserver(platform::kAudioGraphConfigurationChangeNotification, &playing.graph,
                         [&](const platform::Notification&) {
                           changes++;
                           onMainThread = onMainThread && std::this_thread::get_id() == testThread;
                         });
  auto changesReach = [&](int count) {
    return waitFor([&] {
      mainQueue.runPending();
      return changes == count;
    });
  };
  ASSERT_TRUE(playing.graph.start());
  EXPECT_EQ(playing.graph.outputName(), "JACK (system)");
  EXPECT_EQ(playing.graph.outputFormat(0).sampleRate, 48000.0);
  ASSERT_TRUE(playing.player.start());
  EXPECT_TRUE(playing.clockRuns());

  server.stop();
  ASSERT_TRUE(changesReach(1));
  EXPECT_FALSE(playing.graph.isRunning());
  EXPECT_FALSE(closedAClientNamed("Pelma")) << "closed after its server went away";
  ASSERT_TRUE(playing.graph.start());  // what the engine does on a configuration change
  EXPECT_EQ(playing.graph.outputName(), "null output");
  EXPECT_TRUE(log.contains("Audio output: null output (no sound device), 48000 Hz, 256 frames"));
  EXPECT_TRUE(playing.clockRuns()) << "the null output keeps time";

  ASSERT_TRUE(server.start());
  ASSERT_TRUE(changesReach(2));
  ASSERT_TRUE(playing.graph.start());
  EXPECT_EQ(playing.graph.outputName(), "JACK (system)");
  EXPECT_TRUE(playing.clockRuns());
  center.removeObserver(observer);
  EXPECT_TRUE(onMainThread);
  EXPECT_TRUE(log.contains("Audio output JACK (system) went away"));
  platform::MainQueue::setMain(nullptr);
}

// The server's period changes while playing (PipeWire does it; jack_set_buffer_size here), then
// the server restarts with another period and rate: the instrument is heard throughout, and is
// made again at the new rate with its settings.
TEST(AudioGraphOutput, KeepsPlayingWhenTheServersPeriodOrRateChanges) {
  auto server = std::make_unique<JackServer>(48000, 256);
  ASSERT_TRUE(server->start());
  platform::LogCapture log;
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  Playing playing;
  playing.unit->setParameterValue("osc_tune", 0.8f);
  ASSERT_TRUE(playing.graph.start());
  auto listener = std::make_unique<JackListener>();
  ASSERT_TRUE(listener->connect("^Pelma:"));
  playing.unit->sendMIDIEvent(0x90, 60, 100, 0);
  ASSERT_TRUE(listener->hears(0.01));
  EXPECT_EQ(playing.unit->nominalBlockLength(), 256u);  // the server's period

  listener->setPeriod(1024);
  EXPECT_TRUE(listener->hears(0.01));
  EXPECT_TRUE(playing.graph.isRunning());

  listener.reset();
  server = std::make_unique<JackServer>(44100, 512);  // the old one stops first
  ASSERT_TRUE(server->start());
  // What the engine does on every configuration change: start the graph on the best output.
  ASSERT_TRUE(waitFor([&] {
    mainQueue.runPending();
    if (!playing.graph.isRunning()) playing.graph.start();
    return playing.graph.isRunning() && playing.graph.outputName() == "JACK (system)";
  }));
  listener = std::make_unique<JackListener>();
  ASSERT_TRUE(listener->connect("^Pelma:"));
  playing.unit->sendMIDIEvent(0x90, 60, 100, 0);
  EXPECT_TRUE(listener->hears(0.01));
  EXPECT_EQ(playing.unit->sampleRate(), 44100.0);
  EXPECT_EQ(playing.unit->nominalBlockLength(), 512u);
  EXPECT_FLOAT_EQ(playing.unit->parameterValue("osc_tune"), 0.8f);
  EXPECT_TRUE(log.contains("Audio output: JACK (system), 44100 Hz, 512 frames"));
  listener.reset();
  playing.graph.pause();
  platform::MainQueue::setMain(nullptr);
}

// On the null output the graph looks for a JACK server about once a second. A server that is
// there but does not answer (stopped here) holds that look until it answers; the main thread,
// asking the graph meanwhile, must not wait with it.
TEST(AudioGraphOutput, AServerThatDoesNotAnswerNeverHoldsTheMainThread) {
  JackServer server;  // not started yet: the graph plays on the null output
  platform::ManualMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  Playing playing;
  ASSERT_TRUE(playing.graph.start());
  ASSERT_EQ(playing.graph.outputName(), "null output");
  ASSERT_TRUE(server.start());
  server.freeze();
  std::this_thread::sleep_for(2s);  // the graph's look has begun, and waits
  auto asked = std::async(std::launch::async, [&] { return playing.graph.outputName(); });
  const bool answered = asked.wait_for(5s) == std::future_status::ready;
  server.thaw();
  EXPECT_TRUE(answered) << "the main thread waited for a server that does not answer";
  // Once it answers, the graph moves to it.
  EXPECT_TRUE(waitFor([&] {
    mainQueue.runPending();
    if (!playing.graph.isRunning()) playing.graph.start();
    return playing.graph.outputName() == "JACK (system)";
  }));
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
