// The audio engine with a real graph (the null output: no JACK server is named here), a real
// instrument from Debian and the real preferences store in a folder of the build.

#include "audio/AudioEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include "platform/foundation/ApplicationNotifications.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/UserDefaults.h"
#include "support/OfflineRig.h"

using platform::NotificationCenter;

namespace {

class AudioEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::MainQueue::setMain(&mainQueue);
    platform::UserDefaults::standardUserDefaults().removeObjectForKey("background-audio");
  }
  void TearDown() override { platform::MainQueue::setMain(nullptr); }

  // Sets the engine up with `instrument` and waits for its completion on the main queue.
  bool setUp(AudioEngine& engine, const platform::AudioComponentDescription& instrument) {
    bool completed = false;
    engine.setupAUWithComponentDescription(instrument, [&] { completed = true; });
    for (int i = 0; i < 1000 && !completed; ++i) {
      mainQueue.runPending();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return completed;
  }
  void post(const char* name) { NotificationCenter::defaultCenter().postNotificationName(name); }

  platform::ManualMainQueue mainQueue;
};

TEST_F(AudioEngineTest, AnInstrumentThatCannotBeFoundLeavesTheEngineRunningSilent) {
  AudioEngine engine;
  platform::LogCapture log;
  EXPECT_TRUE(setUp(engine, {}));
  EXPECT_EQ(engine.synth(), nullptr);
  EXPECT_TRUE(engine.getAVAudioEngine()->isRunning());
  EXPECT_TRUE(
      log.contains("Audio engine: no installed instrument matches the component description"));
}

TEST_F(AudioEngineTest, SetsUpTheInstrumentStartsAndPausesInTheBackgroundUnlessAskedNotTo) {
  AudioEngine engine;
  EXPECT_EQ(engine.synth(), nullptr);
  {
    platform::LogCapture startup;
    ASSERT_TRUE(setUp(engine, testing_support::instrumentNamed("MDA Piano")));
    EXPECT_TRUE(startup.contains("Start audio engine"));
  }
  ASSERT_NE(engine.synth(), nullptr);
  EXPECT_EQ(engine.synthAU()->name(), "MDA Piano");
  EXPECT_TRUE(engine.getAVAudioEngine()->isRunning());
  EXPECT_EQ(engine.getAVAudioEngine()->outputName(), "null output");
  EXPECT_EQ(engine.synthAU()->sampleRate(), engine.getAVAudioEngine()->outputFormat(0).sampleRate);
  platform::LogCapture log;

  post(platform::kApplicationDidBecomeActiveNotification);  // already running: nothing
  EXPECT_TRUE(log.lines().empty());

  post(platform::kApplicationDidEnterBackgroundNotification);  // preference absent: pause
  EXPECT_FALSE(engine.getAVAudioEngine()->isRunning());
  post(platform::kApplicationDidBecomeActiveNotification);
  EXPECT_TRUE(engine.getAVAudioEngine()->isRunning());
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Pause audio engine", "Start audio engine"}));

  auto& defaults = platform::UserDefaults::standardUserDefaults();
  defaults.setBool("background-audio", true);
  post(platform::kApplicationDidEnterBackgroundNotification);
  EXPECT_TRUE(engine.getAVAudioEngine()->isRunning());
  EXPECT_EQ(log.lines().size(), 2u);
  defaults.setBool("background-audio", false);
  post(platform::kApplicationDidEnterBackgroundNotification);
  EXPECT_FALSE(engine.getAVAudioEngine()->isRunning());
}

TEST_F(AudioEngineTest, AConfigurationChangeOfItsGraphReactivatesAndStarts) {
  AudioEngine engine;
  ASSERT_TRUE(setUp(engine, testing_support::instrumentNamed("MDA Piano")));
  platform::AudioGraph* graph = engine.getAVAudioEngine();
  platform::LogCapture log;
  auto& center = NotificationCenter::defaultCenter();
  center.postNotificationName(platform::kAudioGraphConfigurationChangeNotification, graph);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"AUDIO ENGINE interruption"});  // running
  graph->pause();
  center.postNotificationName(platform::kAudioGraphConfigurationChangeNotification, graph);
  EXPECT_TRUE(graph->isRunning());
  center.postNotificationName(platform::kAudioGraphConfigurationChangeNotification, &engine);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"AUDIO ENGINE interruption", "AUDIO ENGINE interruption",
                                      "Start audio engine"}));
}

TEST_F(AudioEngineTest, EveryEngineLogsAnInvalidatedInstrument) {
  AudioEngine first;
  AudioEngine second;
  platform::LogCapture log;
  NotificationCenter::defaultCenter().post(
      {kAudioComponentInstanceInvalidationNotification,
       nullptr,
       {{"audioUnit", platform::AudioComponentInstance{nullptr}}}});
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);  // one per engine (each test runs in its own process)
  EXPECT_EQ(lines.back(),
            "Received kAudioComponentInstanceInvalidationNotification: auAudioUnit (null), "
            "audioUnit 0x0 (Crash?)");
}

// An instrument in a process of its own that crashes while playing: the engine logs it once, in
// the Part's words, and keeps running, silent.
TEST_F(AudioEngineTest, AnInstrumentThatCrashesInItsOwnProcessIsLoggedOnceAndTheEngineRunsOn) {
  AudioEngine engine;
  platform::LogCapture log;
  ASSERT_TRUE(setUp(engine, testing_support::instrumentNamed("Hostile Segfault")));
  ASSERT_TRUE(engine.synthAU() && engine.synthAU()->isOutOfProcess());
  const std::string line = fmt::format(
      "Received kAudioComponentInstanceInvalidationNotification: auAudioUnit Hostile Segfault, "
      "audioUnit {} (Crash?)",
      static_cast<const void*>(engine.synth()));
  for (int i = 0; i < 1000 && !log.contains(line); ++i) {
    mainQueue.waitForTask(std::chrono::milliseconds(10));
    mainQueue.runPending();
  }
  EXPECT_FALSE(engine.synthAU()->isValid());
  EXPECT_TRUE(engine.getAVAudioEngine()->isRunning());
  const auto lines = log.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1);
}

// An instrument still loading when the application quits would use what exit destroys.
TEST_F(AudioEngineTest, NothingOfAnEngineRunsOnAfterItIsDestroyedWhileItsInstrumentLoads) {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                         std::filesystem::directory_iterator());
  };
  const auto instrument = testing_support::instrumentNamed("MDA Piano");
  {
    AudioEngine warmUp;  // whatever the first engine starts for good (the output probes)
    ASSERT_TRUE(setUp(warmUp, instrument));
  }
  const auto before = threads();
  {
    AudioEngine engine;
    engine.setupAUWithComponentDescription(instrument, [] {});
  }
  mainQueue.runPending();  // the completion finds the engine gone and lets the instrument go
  EXPECT_EQ(threads(), before);
}

TEST_F(AudioEngineTest, ObserversOfADestroyedEngineDoNothing) {
  {
    AudioEngine engine;
    ASSERT_TRUE(setUp(engine, testing_support::instrumentNamed("MDA Piano")));
  }
  platform::LogCapture log;
  post(platform::kApplicationDidEnterBackgroundNotification);
  post(platform::kApplicationDidBecomeActiveNotification);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
