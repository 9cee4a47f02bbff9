// The audio graph on real outputs, in real time: a JACK server with the dummy driver, and the
// null output when no server runs. The server goes away, comes back, and changes its period and
// rate while the graph plays.

#include "platform/audio/AudioGraph.h"

#include <gtest/gtest.h>
#include <jack/jack.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

#include "AudioAnalysis.h"
#include "JackServer.h"
#include "OfflineRig.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/music/MusicPlayer.h"

using namespace std::chrono_literals;
using testing_support::JackServer;

namespace {

// Waits up to `limit` for `condition`.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = 5000ms) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(10ms);
  }
  return condition();
}

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
    return eventually([&] { return player.getTime() > before + 0.1; });
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
  ASSERT_TRUE(eventually([&] { return fakeOutputs[0]->loudest > 0.01; }));

  fakeOutputs[0]->stalled = true;
  ASSERT_TRUE(eventually([&] { return !playing.graph.isRunning(); }));  // given up on
  ASSERT_TRUE(playing.graph.start());  // what the engine does on the configuration change
  ASSERT_EQ(fakeOutputs.size(), 2u);
  playing.unit->sendMIDIEvent(0x90, 60, 100, 0);
  ASSERT_TRUE(eventually([&] { return fakeOutputs[1]->loudest > 0.01; }));

  // The old output resumes: its callbacks are turned away, so only the new one renders.
  fakeOutputs[0]->loudest = 0.0;
  fakeOutputs[0]->stalled = false;
  const std::uint64_t before = fakeOutputs[0]->blocksRendered();
  ASSERT_TRUE(eventually([&] { return fakeOutputs[0]->blocksRendered() > before + 20; }));
  EXPECT_EQ(fakeOutputs[0]->loudest, 0.0);
}

TEST(AudioGraphOutput, WithoutAServerRunsOnTheClockedNullOutput) {
  JackServer server;  // named, but not started: no server answers
  platform::LogCapture log;
  Playing playing;
  ASSERT_TRUE(playing.graph.start());
  EXPECT_EQ(playing.graph.outputName(), "null output");
  EXPECT_TRUE(log.contains("Audio output: null output (no sound device), 48000 Hz, 256 frames"));
  ASSERT_TRUE(playing.player.start());
  EXPECT_TRUE(playing.clockRuns());
  playing.graph.pause();
  EXPECT_FALSE(playing.graph.isRunning());
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
    return eventually([&] {
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
  ASSERT_TRUE(playing.graph.start());  // what the engine does on a configuration change
  EXPECT_EQ(playing.graph.outputName(), "null output");

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

// A JACK client that listens to the graph's left output and keeps its loudest sample.
class Listener {
 public:
  Listener() {
    client_ = jack_client_open("listener", JackNoStartServer, nullptr);
    if (!client_) return;
    port_ = jack_port_register(client_, "in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    jack_set_process_callback(client_, &process, this);
    jack_activate(client_);
    const char** outputs =
        jack_get_ports(client_, "^Pelma:", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput);
    if (outputs && outputs[0]) jack_connect(client_, outputs[0], "listener:in");
    jack_free(outputs);
  }
  ~Listener() {
    if (client_) jack_client_close(client_);
  }
  // Whether the graph is heard now: a fresh peak, measured from here on.
  bool hears() {
    loudest = 0.0f;
    return eventually([&] { return loudest > 0.01f; });
  }
  void setPeriod(jack_nframes_t frames) { jack_set_buffer_size(client_, frames); }
  std::atomic<float> loudest{0.0f};

 private:
  // JACK hands the buffer from the graph's client to this one inside libjack, which
  // ThreadSanitizer does not see: the reads here are not instrumented.
  __attribute__((no_sanitize("thread"))) static int process(jack_nframes_t frames, void* user) {
    auto* self = static_cast<Listener*>(user);
    const auto* samples = static_cast<const float*>(jack_port_get_buffer(self->port_, frames));
    float loudest = self->loudest;
    for (jack_nframes_t i = 0; i < frames; ++i)
      loudest = std::max(loudest, std::abs(samples[i]));
    self->loudest = loudest;
    return 0;
  }
  jack_client_t* client_ = nullptr;
  jack_port_t* port_ = nullptr;
};

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
  auto listener = std::make_unique<Listener>();
  playing.unit->sendMIDIEvent(0x90, 60, 100, 0);
  ASSERT_TRUE(listener->hears());
  EXPECT_EQ(playing.unit->nominalBlockLength(), 256u);  // the server's period

  listener->setPeriod(1024);
  EXPECT_TRUE(listener->hears());
  EXPECT_TRUE(playing.graph.isRunning());

  listener.reset();
  server = std::make_unique<JackServer>(44100, 512);  // the old one stops first
  ASSERT_TRUE(server->start());
  // What the engine does on every configuration change: start the graph on the best output.
  ASSERT_TRUE(eventually([&] {
    mainQueue.runPending();
    if (!playing.graph.isRunning()) playing.graph.start();
    return playing.graph.isRunning() && playing.graph.outputName() == "JACK (system)";
  }));
  listener = std::make_unique<Listener>();
  playing.unit->sendMIDIEvent(0x90, 60, 100, 0);
  EXPECT_TRUE(listener->hears());
  EXPECT_EQ(playing.unit->sampleRate(), 44100.0);
  EXPECT_EQ(playing.unit->nominalBlockLength(), 512u);
  EXPECT_FLOAT_EQ(playing.unit->parameterValue("osc_tune"), 0.8f);
  EXPECT_TRUE(log.contains("Audio output: JACK (system), 44100 Hz, 512 frames"));
  listener.reset();
  playing.graph.pause();
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
