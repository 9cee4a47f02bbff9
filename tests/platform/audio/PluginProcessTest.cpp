// Instruments in a process of their own: a real one plays as it does in this process, and hostile
// ones (crashing, aborting, hanging, crashing while being made, slow to be made) leave this
// process running, silent for that instrument, with the instance invalidated once. Its state
// (controls and stored properties) crosses both ways as it does in this process.

#include "platform/audio/PluginProcess.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <any>
#include <cmath>
#include <fstream>
#include <map>
#include <thread>

#include "AudioAnalysis.h"
#include "OfflineRig.h"
#include "TemporaryFolder.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"

using namespace testing_support;
using platform::kAudioComponentInstantiationLoadOutOfProcess;

namespace {

constexpr std::uint32_t kOutOfProcess = kAudioComponentInstantiationLoadOutOfProcess;

bool processExists(int pid) {
  return pid > 0 && kill(pid, 0) == 0;
}

// Waits until the process is stopped (a signal takes effect a moment after it was sent).
bool waitUntilStopped(int pid) {
  for (int tries = 0; tries < 500; ++tries) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const auto end = line.rfind(')');  // the state follows the command's name
    if (end != std::string::npos && line.size() > end + 2 && line[end + 2] == 'T') return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
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

// A note played from a fresh start: the sound a state gives.
std::vector<float> playNote(OfflineRig& rig) {
  rig.unit->sendMIDIEvent(0x90, 60, 100, 0);
  auto played = rig.render(9600);
  rig.unit->sendMIDIEvent(0x80, 60, 0, 0);
  const auto release = rig.render(4800);
  played.insert(played.end(), release.begin(), release.end());
  return played;
}

std::map<std::string, float> parameters(platform::AudioUnit& unit) {
  std::map<std::string, float> values;
  for (const auto& symbol : unit.parameterSymbols())
    values[symbol] = unit.parameterValue(symbol);
  return values;
}

// Pelma keeps its bank, patch and sound as stored properties. A patch chosen in either process
// gives the same full state; that state, and lilv's Turtle of it, restored into a fresh instance
// in the other process, sounds the same as there, and not as the default patch.
TEST(PluginProcess, StoredPropertiesCrossBothWaysWithTheSameSound) {
  OfflineRig inside("Pelma");
  OfflineRig outside("Pelma", 256, 48000.0, kOutOfProcess);
  for (OfflineRig* rig : {&inside, &outside}) {
    rig->unit->sendMIDIEvent(0xC0, 5, 0, 0);  // program change: another patch
    rig->render(1024);
  }
  const auto stateIn = inside.unit->fullState(), stateOut = outside.unit->fullState();
  const auto* properties = stateOut.at("properties").get<platform::PropertyDictionary>();
  ASSERT_TRUE(properties);
  EXPECT_EQ(properties->size(), 3u);  // bank, program, sound
  EXPECT_EQ(stateIn, stateOut);

  OfflineRig plain("Pelma"), freshIn("Pelma"), fromTurtleIn("Pelma");
  OfflineRig freshOut("Pelma", 256, 48000.0, kOutOfProcess);
  OfflineRig fromTurtleOut("Pelma", 256, 48000.0, kOutOfProcess);
  ASSERT_TRUE(freshIn.unit->restoreFullState(stateOut));
  ASSERT_TRUE(freshOut.unit->restoreFullState(stateIn));
  const std::string turtleIn = inside.unit->stateAsTurtle();
  const std::string turtleOut = outside.unit->stateAsTurtle();
  EXPECT_NE(turtleOut.find("urn:pelma:state"), std::string::npos) << turtleOut;
  ASSERT_TRUE(fromTurtleIn.unit->restoreStateFromTurtle(turtleOut));
  ASSERT_TRUE(fromTurtleOut.unit->restoreStateFromTurtle(turtleIn));
  const auto sound = playNote(freshIn);
  EXPECT_GT(rms(sound.data(), sound.size()), 0.01);
  EXPECT_NE(sound, playNote(plain));
  EXPECT_EQ(sound, playNote(freshOut));
  EXPECT_EQ(sound, playNote(fromTurtleIn));
  EXPECT_EQ(sound, playNote(fromTurtleOut));
}

// Presets, the defaults, a state file, lilv's Turtle both ways, the block length and another
// sample rate: the same controls and the same sound as in this process.
TEST(PluginProcess, PresetsDefaultsFilesAndSampleRatesWorkAsInThisProcess) {
  OfflineRig inside("MDA JX10");
  OfflineRig outside("MDA JX10", 256, 48000.0, kOutOfProcess);
  platform::AudioUnit& in = *inside.unit;
  platform::AudioUnit& out = *outside.unit;
  const auto defaults = parameters(out);
  const auto presets = out.presets();
  ASSERT_GT(presets.size(), 10u);
  ASSERT_TRUE(in.loadPreset(presets[3].uri));
  ASSERT_TRUE(out.loadPreset(presets[3].uri));
  EXPECT_NE(parameters(out), defaults);
  EXPECT_EQ(parameters(out), parameters(in));

  ASSERT_TRUE(out.loadDefaultState());
  EXPECT_EQ(parameters(out), defaults);
  ASSERT_TRUE(out.restoreStateFromTurtle(in.stateAsTurtle()));
  EXPECT_EQ(parameters(out), parameters(in));
  out.setParameterValue("osc_mix", 0.125f);
  ASSERT_TRUE(in.restoreStateFromTurtle(out.stateAsTurtle()));
  EXPECT_EQ(in.parameterValue("osc_mix"), 0.125f);

  TemporaryFolder folder;
  const auto stateFile = folder.write("state.ttl", R"(
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
<> a pset:Preset ;
   lv2:appliesTo <http://drobilla.net/plugins/mda/JX10> ;
   lv2:port [ lv2:symbol "osc_mix" ; pset:value 0.75 ] .
)");
  for (platform::AudioUnit* unit : {&in, &out}) {
    ASSERT_TRUE(unit->restoreStateFromFile(stateFile));
    EXPECT_FALSE(unit->restoreStateFromFile(folder.path() / "missing.ttl"));
    unit->setNominalBlockLength(128);
    ASSERT_TRUE(unit->setSampleRate(44100.0));
  }
  EXPECT_EQ(out.parameterValue("osc_mix"), 0.75f);
  EXPECT_EQ(out.sampleRate(), 44100.0);
  EXPECT_EQ(parameters(out), parameters(in));
  const auto sound = playNote(inside);
  EXPECT_GT(rms(sound.data(), sound.size()), 0.01);
  EXPECT_EQ(sound, playNote(outside));
}

// After its process died, an instrument still gives the stored properties it last reported (it
// reports them every few seconds: here a patch chosen by MIDI, never asked for), so that the one
// made again in its place sounds as it did.
TEST(PluginProcess, AStoppedInstrumentKeepsTheStateItLastReported) {
  Invalidations invalidations;
  OfflineRig outside("Pelma", 256, 48000.0, kOutOfProcess), chosen("Pelma");
  for (OfflineRig* rig : {&outside, &chosen}) {
    rig->unit->sendMIDIEvent(0xC0, 7, 0, 0);
    rig->render(1024);
  }
  const auto state = chosen.unit->fullState();
  std::this_thread::sleep_for(
      std::chrono::seconds(2 * platform::PluginProcess::kPeriodicSeconds + 1));
  ASSERT_EQ(kill(outside.unit->pluginProcessId(), SIGKILL), 0);
  invalidations.await();
  ASSERT_FALSE(outside.unit->isValid());
  EXPECT_EQ(outside.unit->fullState(), state);
  EXPECT_TRUE(outside.unit->stateAsTurtle().empty());

  OfflineRig remade("Pelma", 256, 48000.0, kOutOfProcess), inside("Pelma"), plain("Pelma");
  ASSERT_TRUE(remade.unit->restoreFullState(outside.unit->fullState()));
  ASSERT_TRUE(inside.unit->restoreFullState(state));
  const auto sound = playNote(remade);
  EXPECT_EQ(sound, playNote(inside));
  EXPECT_NE(sound, playNote(plain));  // the patch chosen, not the default one
}

// A host still busy with a late block is not handed the next one; what that block carried (a
// note, an editor's request) reaches the plug-in with the block after, not lost.
TEST(PluginProcess, WhatABusyHostMissedReachesItInTheNextBlock) {
  OfflineRig rig("Pelma", 256, 48000.0, kOutOfProcess);
  rig.render(1024);
  const int pid = rig.unit->pluginProcessId();
  ASSERT_EQ(kill(pid, SIGSTOP), 0);
  ASSERT_TRUE(waitUntilStopped(pid));
  rig.render(256);  // no answer in time: silent
  rig.unit->sendMIDIEvent(0x90, 60, 100, 0);
  const auto missed = rig.render(256);  // the host is still on the block before
  ASSERT_EQ(kill(pid, SIGCONT), 0);
  EXPECT_EQ(rms(missed.data(), missed.size()), 0.0);
  // Not faster than real time: the host gets going again meanwhile.
  const auto played =
      rig.render(9600, [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
  EXPECT_GT(rms(played.data(), played.size()), 0.01);
  EXPECT_TRUE(rig.unit->isValid());
}

}  // namespace
