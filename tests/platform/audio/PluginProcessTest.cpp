// Instruments in a process of their own: a real one plays as it does in this process, and hostile
// ones (crashing, aborting, hanging, crashing while being made, slow to be made) leave this
// process running, silent for that instrument, with the instance invalidated once.

#include "platform/audio/PluginProcess.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <any>
#include <cmath>
#include <thread>

#include "AudioAnalysis.h"
#include "OfflineRig.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"

using namespace testing_support;
using platform::kAudioComponentInstantiationLoadOutOfProcess;

namespace {

constexpr std::uint32_t kOutOfProcess = kAudioComponentInstantiationLoadOutOfProcess;

const bool outOfProcessEnabled = [] {
  platform::AudioUnitComponentManager::shared().setOutOfProcessEnabled(true);
  return true;
}();

bool processExists(int pid) {
  return pid > 0 && kill(pid, 0) == 0;
}

// Counts the invalidation notifications posted on the main queue, with their senders.
struct Invalidations {
  Invalidations() {
    platform::MainQueue::setMain(&mainQueue);
    id = platform::NotificationCenter::defaultCenter().addObserver(
        platform::kAudioComponentInstanceInvalidationNotification, nullptr,
        [this](const platform::Notification& note) {
          const auto* instance =
              std::any_cast<platform::AudioComponentInstance>(&note.userInfo.at("audioUnit"));
          senders.push_back(note.object);
          instances.push_back(instance ? *instance : nullptr);
        });
  }
  // Runs the main queue until a notification came (the host is reaped before it is posted).
  void await() {
    for (int tries = 0; tries < 50 && senders.empty(); ++tries) {
      mainQueue.waitForTask(std::chrono::milliseconds(100));
      mainQueue.runPending();
    }
  }
  ~Invalidations() {
    platform::NotificationCenter::defaultCenter().removeObserver(id);
    platform::MainQueue::setMain(nullptr);
  }
  platform::ManualMainQueue mainQueue;
  platform::NotificationCenter::ObserverId id;
  std::vector<const void*> senders;
  std::vector<platform::AudioComponentInstance> instances;
};

TEST(PluginProcess, PlaysARealInstrumentAsItPlaysInThisProcess) {
  OfflineRig inside("MDA JX10");
  OfflineRig outside("MDA JX10", 256, 48000.0, kOutOfProcess);
  ASSERT_TRUE(outside.unit->isOutOfProcess());
  EXPECT_TRUE(processExists(outside.unit->pluginProcessId()));
  std::vector<float> played[2];
  OfflineRig* rigs[2] = {&inside, &outside};
  for (int i = 0; i < 2; ++i) {
    rigs[i]->unit->setParameterValue("vcf_freq", 0.3f);  // control values cross too
    rigs[i]->unit->sendMIDIEvent(0x90, 57, 100, 0);
    played[i] = rigs[i]->render(24000);
    rigs[i]->unit->sendMIDIEvent(0x80, 57, 0, 0);
    const auto release = rigs[i]->render(24000);
    played[i].insert(played[i].end(), release.begin(), release.end());
  }
  EXPECT_GT(rms(played[1].data(), 24000), 0.01);
  EXPECT_EQ(played[0], played[1]);
}

class HostileInstrument : public ::testing::TestWithParam<const char*> {};

// Each crashes, aborts or spins in run() after 100 good blocks.
TEST_P(HostileInstrument, LeavesThisProcessRunningAndIsInvalidatedOnce) {
  Invalidations invalidations;
  OfflineRig rig(GetParam(), 256, 48000.0, kOutOfProcess);
  ASSERT_TRUE(rig.unit);
  const int pid = rig.unit->pluginProcessId();
  std::vector<float> left(256), right(256);
  float* const out[2] = {left.data(), right.data()};
  int blocks = 0;
  for (; blocks < 5000 && rig.unit->isValid(); ++blocks) {
    rig.graph.renderOffline(256, out);
    if (blocks < 100) {
      ASSERT_EQ(left[0], 0.5f) << blocks;  // it played until it failed
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));  // rendering faster than real time
    }
  }
  ASSERT_FALSE(rig.unit->isValid());
  for (int block = 0; block < 10; ++block) {
    rig.graph.renderOffline(256, out);
    for (std::size_t i = 0; i < 256; ++i)
      ASSERT_TRUE(left[i] == 0.0f && right[i] == 0.0f);
  }
  invalidations.await();
  EXPECT_FALSE(processExists(pid));  // killed and reaped
  ASSERT_EQ(invalidations.senders.size(), 1u);
  EXPECT_EQ(invalidations.senders[0], rig.unit.get());
  EXPECT_EQ(invalidations.instances[0], rig.unit.get());
}

INSTANTIATE_TEST_SUITE_P(RunFaults, HostileInstrument,
                         ::testing::Values("Hostile Segfault", "Hostile Abort", "Hostile Spin"));

// An instrument whose host crashes while making it arrives invalid, and silent.
TEST(PluginProcess, AnInstrumentThatCrashesWhileBeingMadeArrivesInvalid) {
  Invalidations invalidations;
  OfflineRig rig("Hostile Crash In Instantiate", 256, 48000.0, kOutOfProcess);
  ASSERT_TRUE(rig.unit);
  EXPECT_FALSE(rig.unit->isValid());
  const auto audio = rig.render(1024);
  EXPECT_EQ(rms(audio.data(), audio.size()), 0.0);
  invalidations.await();
  EXPECT_EQ(invalidations.senders.size(), 1u);
}

// Quitting while an instrument takes 10 s to be made: its host is killed, and the instantiation
// ends with an instance that never became valid (had it been waited for, it would be valid),
// reported as nothing that crashed.
TEST(PluginProcess, QuittingWhileAnInstrumentIsMadeDoesNotWaitForIt) {
  Invalidations invalidations;
  auto& manager = platform::AudioUnitComponentManager::shared();
  std::shared_ptr<platform::AudioUnit> made;
  manager.instantiate(instrumentNamed("Hostile Slow Instantiate"), 48000.0, 256, kOutOfProcess,
                      [&](std::shared_ptr<platform::AudioUnit> unit, std::string) { made = unit; });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the host is making it
  manager.finishInstantiations();
  invalidations.mainQueue.runPending();
  ASSERT_TRUE(made);
  EXPECT_FALSE(made->isValid());
  EXPECT_TRUE(invalidations.senders.empty());
}

}  // namespace
