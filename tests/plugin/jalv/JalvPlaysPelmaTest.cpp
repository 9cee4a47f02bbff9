// jalv, an outside LV2 host, plays the built plug-in under a private JACK dummy server, with MIDI
// from the project's pattern player; the shared JACK listener records and measures the output.

#include <gtest/gtest.h>
#include <signal.h>

#include "support/AudioAnalysis.h"
#include "support/JackListener.h"
#include "support/JackServer.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace testing_support;
using namespace std::chrono_literals;

TEST(Jalv, PlaysPelmaInTuneAndSilentAfterTheRelease) {
  JackServer server;  // 48 kHz
  ASSERT_TRUE(server.start());
  TemporaryFolder scratch(/*asBankFolder=*/true);
  const std::string log = (scratch.path() / "jalv.log").string();
  // jalv's console reads commands from standard input and quits at its end: a FIFO opened
  // read-write never ends.
  const pid_t jalv = spawn({"sh", "-c",
                            "mkfifo \"$0\" && exec jalv -n pelma_jalv -x -c osc1_wave=3 -c "
                            "cutoff=20000 urn:pelma:synth 0<>\"$0\"",
                            (scratch.path() / "stdin").string()},
                           log);
  JackListener listener;
  constexpr std::size_t kSecond = 48000;
  listener.record(2 * kSecond, 1e-3);
  ASSERT_TRUE(waitFor([&] { return listener.connect("pelma_jalv:out_left"); }, 20s))
      << readFile(log);
  // A4 held for one second (one beat at 60 bpm) in a looped bar of four, played for three.
  runAndWait({PELMA_JACK_MIDI_PATTERN, "pelma_jalv:control", "60", "3", "69@0:1"});
  EXPECT_TRUE(waitFor([&] { return listener.recorded(); }, 5s)) << readFile(log);
  kill(jalv, SIGTERM);
  waitForExit(jalv);

  // The pitch only has to be the right note: a loaded machine drops blocks (xruns), which breaks
  // the waveform's periods.
  const float* held = listener.recording().data() + kSecond / 4;
  EXPECT_GT(rms(held, 3 * kSecond / 4), 0.01);
  EXPECT_NEAR(cents(estimatePitch(held, 3 * kSecond / 4, 48000, 200, 1000), 440), 0, 50);
  EXPECT_LT(rms(listener.recording().data() + 3 * kSecond / 2, kSecond / 2), 1e-4);
}

}  // namespace
