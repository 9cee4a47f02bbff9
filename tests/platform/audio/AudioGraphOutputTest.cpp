// The audio graph on real outputs, in real time: a JACK server with the dummy driver, and the
// null output when no server runs. The server goes away and comes back while the graph plays.

#include "platform/audio/AudioGraph.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

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

}  // namespace
