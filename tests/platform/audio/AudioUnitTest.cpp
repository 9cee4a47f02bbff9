// Real LV2 instruments from Debian, hosted and rendered offline through the audio graph.

#include "platform/audio/AudioUnit.h"

#include <gtest/gtest.h>

#include <xmmintrin.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <map>
#include <thread>

#include "AudioAnalysis.h"
#include "OfflineRig.h"
#include "TemporaryFolder.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/PropertyListFile.h"

using namespace testing_support;
using platform::AudioComponentDescription;
using platform::AudioUnitComponentManager;
using platform::kAudioUnitTypeMusicDevice;

namespace {

constexpr double kRate = 48000.0;

TEST(AudioUnitComponentManager, ListsInstalledInstrumentsAndMatchesDescriptions) {
  auto& manager = AudioUnitComponentManager::shared();
  const auto all = manager.componentsMatchingDescription({kAudioUnitTypeMusicDevice, 0, 0, 0, 0});
  std::vector<std::string> names;
  for (const auto& component : all) {
    names.push_back(component.name);
    EXPECT_EQ(component.audioComponentDescription.componentType, kAudioUnitTypeMusicDevice);
    EXPECT_NE(component.audioComponentDescription.componentSubType, 0u);
  }
  for (const char* expected : {"MDA JX10", "MDA Piano", "synthv1"})
    EXPECT_NE(std::find(names.begin(), names.end(), expected), names.end()) << expected;
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));

  const AudioComponentDescription jx10 = instrumentNamed("MDA JX10");
  const auto exact = manager.componentsMatchingDescription(jx10);
  ASSERT_EQ(exact.size(), 1u);
  EXPECT_EQ(exact[0].uri, "http://drobilla.net/plugins/mda/JX10");
  EXPECT_TRUE(
      manager.componentsMatchingDescription({platform::fourCharCode("aufx"), 0, 0, 0, 0}).empty());
}

TEST(AudioUnitComponentManager, RefusesWhatCannotBeInstantiated) {
  auto& manager = AudioUnitComponentManager::shared();
  std::string error;
  EXPECT_EQ(manager.instantiateNow({}, kRate, 256, &error), nullptr);
  EXPECT_EQ(error, "no installed instrument matches the component description");

  const auto fake = instrumentNamed("Needs Missing Feature");
  EXPECT_EQ(manager.instantiateNow(fake, kRate, 256, &error), nullptr);
  EXPECT_EQ(error,
            "\"Needs Missing Feature\" needs the LV2 feature urn:pelma-test:feature-nobody-has, "
            "which this host lacks");

  // A required port of an unknown type would be left unconnected: refused, naming the port (an
  // optional one of that type is left unconnected, as allowed).
  const auto unknownPort = instrumentNamed("Unknown Port Type");
  EXPECT_EQ(manager.instantiateNow(unknownPort, kRate, 256, &error), nullptr);
  EXPECT_EQ(error,
            "\"Unknown Port Type\" has the port \"hologram\" of a type this host "
            "does not know");
}

// Instantiating in the background, completed on the main queue, is how the audio engine sets
// its instrument up (AudioEngineTest).
TEST(AudioUnit, MidiSentWhilePausedIsDroppedAndNothingHangsOnResume) {
  OfflineRig rig("MDA JX10");
  rig.unit->sendMIDIEvent(0x90, 60, 100, 0);
  rig.render(4800);
  rig.graph.pause();
  // While paused: the note off of the held note, then more messages than the queue holds.
  rig.unit->sendMIDIEvent(0x80, 60, 0, 0);
  for (int i = 0; i < 1500; ++i)
    rig.unit->sendMIDIEvent(0x90, static_cast<std::uint8_t>(30 + i % 60), 100, 0);
  ASSERT_TRUE(rig.graph.start());
  rig.received.clear();
  const auto after = rig.render(24000);
  EXPECT_LT(peak(after.data() + 12000, 12000), 1e-6);  // silent: no note is left hanging
  for (const auto& message : rig.received)
    EXPECT_NE(message.status & 0xF0, 0x90) << "a stale note on burst out on resume";
}

// A message as sent, at the start of the next block, is the router's test (MidiEventRouterTest).
TEST(AudioUnit, MessagesFromTwoThreadsAllArriveInEachThreadsOrder) {
  OfflineRig rig("MDA JX10");
  constexpr int kPerThread = 300;
  std::atomic<bool> go{false};
  auto sender = [&](std::uint8_t status) {
    while (!go)
      std::this_thread::yield();
    for (int i = 0; i < kPerThread; ++i) {
      while (!rig.unit->sendMIDIEvent(status, static_cast<std::uint8_t>(i % 128), 1, 0)) {
        std::this_thread::yield();  // only when the queue is full
      }
    }
  };
  std::thread main(sender, 0x90), midi(sender, 0x80);
  go = true;
  while (rig.received.size() < 2 * kPerThread)
    rig.render(64);
  main.join();
  midi.join();
  int next[2] = {0, 0};
  for (const auto& message : rig.received) {
    int& expected = next[message.status == 0x90 ? 0 : 1];
    EXPECT_EQ(message.data1, expected % 128);
    ++expected;
  }
  EXPECT_EQ(next[0], kPerThread);
  EXPECT_EQ(next[1], kPerThread);
}

// Every way a state comes back, each while the instrument renders on another thread: the
// property list made from fullState, a preset, the defaults, an LV2 state file; a file that is
// not there gives one log line.
TEST(AudioUnit, RestoresItsFullStateAPresetItsDefaultsAndAStateFile) {
  OfflineRig rig("MDA JX10");
  platform::AudioUnit& unit = *rig.unit;
  auto parameters = [&] {
    std::map<std::string, float> values;
    for (const auto& symbol : unit.parameterSymbols())
      values[symbol] = unit.parameterValue(symbol);
    return values;
  };
  const auto defaults = parameters();
  unit.setParameterValue("osc_mix", 0.25f);
  const auto state = unit.fullState();
  EXPECT_EQ(*state.at("uri").get<std::string>(), "http://drobilla.net/plugins/mda/JX10");
  EXPECT_EQ(state.at("ports").get<platform::PropertyDictionary>()->size(), defaults.size());
  TemporaryFolder folder;
  const auto file = folder.path() / "jx10.plist";
  ASSERT_TRUE(platform::writePropertyList(state, file));

  std::atomic<bool> done{false};
  std::thread audio([&] {
    while (!done)
      rig.render(256);
  });
  const auto presets = unit.presets();
  ASSERT_GT(presets.size(), 10u);
  EXPECT_FALSE(presets.front().name.empty());
  ASSERT_TRUE(unit.loadPreset(presets[3].uri));
  EXPECT_NE(parameters(), defaults);
  ASSERT_TRUE(unit.loadDefaultState());
  EXPECT_EQ(parameters(), defaults);
  ASSERT_TRUE(unit.restoreFullState(*platform::readPropertyList(file)));
  EXPECT_EQ(unit.parameterValue("osc_mix"), 0.25f);
  const auto stateFile = folder.write("state.ttl", R"(
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
<> a pset:Preset ;
   lv2:appliesTo <http://drobilla.net/plugins/mda/JX10> ;
   lv2:port [ lv2:symbol "osc_mix" ; pset:value 0.75 ] .
)");
  ASSERT_TRUE(unit.restoreStateFromFile(stateFile));
  EXPECT_EQ(unit.parameterValue("osc_mix"), 0.75f);
  platform::LogCapture log;
  EXPECT_FALSE(unit.restoreStateFromFile(folder.path() / "missing.ttl"));
  EXPECT_EQ(log.lines().size(), 1u);
  done = true;
  audio.join();
}

TEST(AudioUnit, RunsAPluginThatNeedsTheWorker) {
  // synthv1 requires worker:schedule; it must load and sound.
  OfflineRig rig("synthv1", 512);
  rig.unit->sendMIDIEvent(0x90, 57, 100, 0);
  const auto audio = rig.render(48000);
  EXPECT_GT(rms(audio.data() + 24000, 24000), 0.01);
  EXPECT_FALSE(rig.unit->fullState().at("properties").get<platform::PropertyDictionary>() ==
               nullptr);
}

// run() is called with flush-to-zero and denormals-are-zero on (the probe plays 1 only then), and
// the rendering thread gets its own mode back. The probe is mono: it is heard on both sides.
TEST(AudioUnit, RunsPlugInsWithDenormalsFlushedAndRestoresTheThreadsMode) {
  constexpr unsigned kModeBits = ~0x3Fu;  // not the exception flags, which any sum may raise
  const unsigned before = _mm_getcsr() & kModeBits;
  OfflineRig rig("Float Mode Probe", 64);
  std::vector<float> left(64), right(64);
  float* const out[2] = {left.data(), right.data()};
  rig.graph.renderOffline(64, out);
  EXPECT_EQ(left.front(), 1.0f);
  EXPECT_EQ(right.back(), 1.0f);
  EXPECT_EQ(_mm_getcsr() & kModeBits, before);
}

// An instrument that writes NaN and infinity into every other block: those blocks are silent, the
// others pass as played, and the fault is logged once for the instrument (by its worker thread,
// not the audio thread).
TEST(AudioUnit, NeverPassesANonFiniteSampleToTheOutput) {
  platform::LogCapture captured;
  OfflineRig rig("Hostile Not Finite", 64);
  std::vector<float> left(64), right(64);
  float* const out[2] = {left.data(), right.data()};
  for (int block = 0; block < 8; ++block) {
    rig.graph.renderOffline(64, out);
    for (std::size_t i = 0; i < 64; ++i) {
      ASSERT_TRUE(std::isfinite(left[i]) && std::isfinite(right[i])) << block << " " << i;
      ASSERT_EQ(left[i], block % 2 ? 0.0f : 0.5f) << block;
    }
  }
  const std::string line =
      "Hostile Not Finite: wrote samples that are not finite numbers; such blocks are played as "
      "silence";
  for (int tries = 0; tries < 500 && !captured.contains(line); ++tries)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const auto lines = captured.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1);
}

}  // namespace
