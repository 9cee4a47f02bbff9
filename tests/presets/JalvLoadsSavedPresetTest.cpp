// A preset saved here is an ordinary LV2 preset: lv2info lists it for its plug-in, and jalv, an
// outside host, loads it (jalv -l FILE) and sounds as this host does with it. mda JX10 and Pelma,
// each with a dark cutoff saved; a low note's spectral centroid from jalv (recorded on a JACK
// dummy server) is compared with the one rendered here, and with the instrument's bright default.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <iostream>

#include "presets/PresetLibrary.h"
#include "support/AudioAnalysis.h"
#include "support/JackListener.h"
#include "support/JackServer.h"
#include "support/OfflineRig.h"
#include "support/Processes.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace testing_support;
using namespace std::chrono_literals;
constexpr std::size_t kSecond = 48000;

struct DarkPreset {
  const char* instrument;
  const char* cutoff;
  float value;
  const char* midiIn;
  const char* audioOut;
};

void PrintTo(const DarkPreset& tested, std::ostream* out) {
  *out << tested.instrument;
}

std::string output(const std::string& command) {
  std::string text;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    while (std::size_t n = fread(buffer, 1, sizeof buffer, pipe))
      text.append(buffer, n);
    pclose(pipe);
  }
  return text;
}

class JalvLoadsSavedPreset : public ::testing::TestWithParam<DarkPreset> {
 protected:
  static void SetUpTestSuite() {
    home = new TemporaryFolder;
    setenv("HOME", home->path().c_str(), 1);
  }
  static void TearDownTestSuite() { delete home; }

  // The centroid of a low note held for a second, rendered here.
  double renderedCentroid() {
    rig.unit->sendMIDIEvent(0x90, 48, 100, 0);
    const auto sound = rig.render(kSecond);
    rig.unit->sendMIDIEvent(0x80, 48, 0, 0);
    rig.render(kSecond);
    return spectralCentroid(sound.data() + kSecond / 4, 4096, 48000.0);
  }

  static inline TemporaryFolder* home = nullptr;
  OfflineRig rig{GetParam().instrument};
};

TEST_P(JalvLoadsSavedPreset, ListedByLv2infoAndSoundingTheSameInJalv) {
  ASSERT_TRUE(rig.unit);
  const double bright = renderedCentroid();  // the default state
  // Saved as it sounds: after the plug-in has run with the new cutoff (Pelma keeps its sound in
  // its own state too, taken while it runs).
  rig.unit->setParameterValue(GetParam().cutoff, GetParam().value);
  const double here = renderedCentroid();
  presets::PresetLibrary library(rig.unit);
  ASSERT_EQ(library.save("Jalv Check"), "");
  const auto bundle = library.bundleFor("Jalv Check");
  const auto file = bundle / (bundle.stem().stem().string() + ".ttl");

  const std::string path = "LV2_PATH=" + (home->path() / ".lv2").string() + ":$LV2_PATH ";
  EXPECT_NE(output(path + "lv2info '" + rig.unit->uri() + "'").find("Jalv Check"),
            std::string::npos);

  JackServer server;
  ASSERT_TRUE(server.start());
  TemporaryFolder scratch;
  const std::string log = (scratch.path() / "jalv.log").string();
  const pid_t jalv =
      spawn({"sh", "-c", "mkfifo \"$0\" && exec jalv -n preset_jalv -x -l \"$1\" 0<>\"$0\"",
             (scratch.path() / "stdin").string(), file.string()},
            log);
  JackListener listener;
  listener.record(kSecond, 1e-3);
  ASSERT_TRUE(waitFor(
      [&] { return listener.connect(std::string("preset_jalv:") + GetParam().audioOut); }, 20s))
      << readFile(log);
  runAndWait({PELMA_JACK_MIDI_PATTERN, std::string("preset_jalv:") + GetParam().midiIn, "60", "3",
              "48@0:1:100"});
  EXPECT_TRUE(waitFor([&] { return listener.recorded(); }, 5s)) << readFile(log);
  kill(jalv, SIGTERM);
  waitForExit(jalv);
  ASSERT_TRUE(listener.recorded());
  const double there = spectralCentroid(listener.recording().data() + kSecond / 4, 4096, 48000.0);
  std::cout << GetParam().instrument << ": centroid " << bright << " Hz by default, " << here
            << " Hz with the preset here, " << there << " Hz with the preset in jalv\n";
  EXPECT_LT(here, bright * 0.6);
  EXPECT_NEAR(there, here, here * 0.25);
}

INSTANTIATE_TEST_SUITE_P(
    Instruments, JalvLoadsSavedPreset,
    ::testing::Values(DarkPreset{"MDA JX10", "vcf_freq", 0.15f, "event_in", "left_out"},
                      DarkPreset{"Pelma", "cutoff", 300.0f, "control", "out_left"}),
    [](const auto& info) {
      return std::string(info.param.instrument == std::string("Pelma") ? "Pelma" : "MdaJX10");
    });

}  // namespace
