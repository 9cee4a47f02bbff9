// The real application in a real X server (Xvfb) with a real JACK server (dummy driver): it
// starts, finds the instrument, shows its editor, and a key clicked on the on-screen keyboard
// (with xdotool) and a note from another JACK client both sound at its JACK output, measured by
// a JACK client of this test. A screenshot of the window is written beside the test.

#include <signal.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/AudioAnalysis.h"
#include "support/CatalogServer.h"
#include "support/JackListener.h"
#include "support/JackServer.h"
#include "support/Processes.h"

namespace {

using namespace std::chrono_literals;
using namespace testing_support;

// An instrument, in a process of its own (the default) or with --in-process.
struct Instrument {
  const char* name;
  bool inProcess;
};

class ApplicationWindow : public ::testing::TestWithParam<Instrument> {
 protected:
  void SetUp() override {
    // Preferences of their own: a window size or MIDI choice kept by another run (or the user's)
    // must not move the buttons this test clicks, and nothing here reaches the user's settings.
    const std::filesystem::path config = std::string(PELMA_TEST_OUTPUT) + "/config";
    std::filesystem::remove_all(config);
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    // Each launch starts from the defaults, not from the session another run left.
    const std::filesystem::path state = std::string(PELMA_TEST_OUTPUT) + "/state";
    std::filesystem::remove_all(state);
    setenv("XDG_STATE_HOME", state.c_str(), 1);
    ASSERT_TRUE(jack.start());
    // Xvfb picks a free display and writes its number once it accepts clients: no guessed
    // number that another X server may hold, and no guessed start-up time on a busy machine.
    const std::string announced =
        std::string(PELMA_TEST_OUTPUT) + "/xvfb-" + std::to_string(getpid()) + ".txt";
    // A screen with room for the window's design size (1024 x 768) and a title bar, so the
    // clicks below land where that layout puts the buttons.
    xvfb_ = spawn({"Xvfb", "-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp"},
                  announced);
    ASSERT_GT(xvfb_, 0);
    ASSERT_TRUE(waitFor([&] { return !(display_ = displayIn(readFile(announced))).empty(); }, 20s))
        << readFile(announced);
    std::filesystem::remove(announced);
    setenv("DISPLAY", display_.c_str(), 1);
    unsetenv("QT_QPA_PLATFORM");
  }
  void TearDown() override {
    if (app_ > 0) {
      kill(app_, SIGTERM);
      int status = 0;
      waitpid(app_, &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a clean stop";
    }
    if (xvfb_ > 0) {
      kill(xvfb_, SIGTERM);
      waitpid(xvfb_, nullptr, 0);
    }
  }

  // Starts the application with its output in `log` and waits for its window's first frame.
  void startApplication(std::vector<std::string> arguments, const std::string& log) {
    app_ = spawn(std::move(arguments), log);
    ASSERT_GT(app_, 0);
    ASSERT_TRUE(waitFor([&] { return readFile(log).find("FRAME ") != std::string::npos; }, 20s))
        << readFile(log);
  }
  void screenshot(const std::string& png) const {
    runAndWait({"sh", "-c", "xwd -root -silent -display " + display_ + " | convert xwd:- " + png});
  }

  testing_support::JackServer jack;
  // ":N" from the line of digits Xvfb writes (its warnings share the file), or "".
  static std::string displayIn(const std::string& output) {
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty() && line.find_first_not_of("0123456789") == std::string::npos)
        return ":" + line;
    }
    return {};
  }

  std::string display_;
  pid_t xvfb_ = 0;
  pid_t app_ = 0;
};

TEST_P(ApplicationWindow, StartsShowsTheEditorAndPlaysFromTheKeyboardAndFromMidi) {
  const std::string instrument = GetParam().name;
#ifdef PELMA_REALTIME_SANITIZER
  // synthv1's own run() calls into Qt on the audio thread, which RealtimeSanitizer stops: that is
  // the plug-in's, not the host's; the host's audio path is checked with the other instruments.
  if (instrument == "synthv1") GTEST_SKIP() << "synthv1 is not real-time safe itself";
#endif
  std::string fileName = "window-" + instrument + (GetParam().inProcess ? "-in-process" : "");
  std::replace(fileName.begin(), fileName.end(), ' ', '-');
  const std::string log = std::string(PELMA_TEST_OUTPUT) + "/" + fileName + ".log";
  std::vector<std::string> arguments = {PELMA_EXECUTABLE, "--plugin", instrument};
  if (GetParam().inProcess) arguments.emplace_back("--in-process");
  ASSERT_NO_FATAL_FAILURE(startApplication(arguments, log));
  const std::string text = readFile(log);
  EXPECT_NE(text.find("Checking components"), std::string::npos);
  EXPECT_NE(text.find("GOT IT"), std::string::npos);
  // synthv1 and Pelma bring their own X11 editors; mda JX10 has none: the generic one. Pelma's
  // works through ports and messages and opens for the plug-in in its own process too; synthv1's
  // reaches into the plug-in (instance-access) and opens only in process, else the generic one
  // says why.
  const bool ownEditor = instrument == "Pelma" || (instrument == "synthv1" && GetParam().inProcess);
  EXPECT_NE(text.find(ownEditor ? "(X11)" : "Plug-in editor: generic"), std::string::npos);
  EXPECT_EQ(text.find("its own editor needs it in this process") != std::string::npos,
            instrument == "synthv1" && !GetParam().inProcess);

  JackListener listener;
  // The JACK client is named after the instrument, its MIDI input after the host.
  ASSERT_TRUE(waitFor([&] { return listener.connect("^" + instrument + ":"); }, 5s));
  std::this_thread::sleep_for(500ms);
  const double quiet = listener.takeLoudest();

  // A white key of the on-screen keyboard held for half a second near its front, with the
  // Velocity button off as at start-up: full velocity, which every instrument must play. (No
  // window manager in Xvfb: the pointer is moved over the window, no activation.)
  ASSERT_EQ(runAndWait({"xdotool", "search", "--sync", "--name", "^Pelma$", "mousemove", "--window",
                        "%1", "600", "745", "mousedown", "1", "sleep", "0.5", "mouseup", "1"}),
            0);
  const double fromKeyboard = listener.takeLoudest();
  std::this_thread::sleep_for(1s);
  listener.takeLoudest();

  // A note from another JACK client into our MIDI input.
  ASSERT_EQ(runAndWait({PELMA_JACK_MIDI_PATTERN, instrument + ":Pelma", "120", "1", "64@0:1"}), 0);
  const double fromMidi = listener.takeLoudest();

  screenshot(std::string(PELMA_TEST_OUTPUT) + "/" + fileName + ".png");
  EXPECT_LT(quiet, 1e-4);
  EXPECT_GT(fromKeyboard, 0.005) << "the clicked key sounds";
  EXPECT_GT(fromMidi, 0.005) << "the JACK MIDI note sounds";
}

// The bank shop in the running application, on an HTTP catalog: opened from the keyboard's Shop
// button, a bank bought through the payment sheet, installed, listed by the instrument, chosen
// by a JACK MIDI bank and program change and played.
using ApplicationShop = ApplicationWindow;

TEST_F(ApplicationShop, BuysABankThatTheInstrumentThenPlays) {
  const std::filesystem::path scratch = std::string(PELMA_TEST_OUTPUT) + "/shop";
  std::filesystem::remove_all(scratch);
  std::filesystem::create_directories(scratch / "banks");
  std::filesystem::copy(PELMA_CATALOG, scratch / "catalog");
  CatalogServer server(scratch / "catalog");
  setenv("PELMA_STORE_URL", server.url("catalog.json").c_str(), 1);
  setenv("PELMA_STORE_DIR", (scratch / "store").c_str(), 1);
  setenv("PELMA_BANKS_DIR", (scratch / "banks").c_str(), 1);
  const std::string log = (scratch / "application.log").string();
  ASSERT_NO_FATAL_FAILURE(startApplication({PELMA_EXECUTABLE}, log));
  // The keyboard's Shop button, then the first row once the products have come.
  ASSERT_EQ(runAndWait({"xdotool", "search", "--sync", "--name", "^Pelma$", "mousemove", "--window",
                        "%1", "983", "539", "click", "1"}),
            0);
  ASSERT_TRUE(waitFor(
      [&] {
        return readFile(log).find("Product request did receive response number: 3") !=
               std::string::npos;
      },
      10s))
      << readFile(log);
  std::this_thread::sleep_for(500ms);
  screenshot(scratch / "shop-rows.png");
  ASSERT_EQ(runAndWait({"xdotool", "mousemove", "780", "470", "click", "1"}), 0);
  std::this_thread::sleep_for(700ms);
  screenshot(scratch / "shop-payment-sheet.png");
  ASSERT_EQ(runAndWait({"xdotool", "key", "Return"}), 0);  // Buy, the sheet's default
  ASSERT_TRUE(waitFor(
      [&] { return readFile(log).find("Pelma: banks: Factory, Glass Keys") != std::string::npos; },
      20s))
      << readFile(log);
  std::this_thread::sleep_for(500ms);
  screenshot(scratch / "shop-bought.png");
  EXPECT_TRUE(std::filesystem::exists(scratch / "banks" / "GlassKeys.plb"));

  JackListener listener;
  ASSERT_TRUE(waitFor([&] { return listener.connect("^Pelma:"); }, 5s));
  listener.takeLoudest();
  // Bank 1 (the bought one, after the factory bank), its first sound, one note.
  ASSERT_EQ(
      runAndWait({PELMA_JACK_MIDI_PATTERN, "Pelma:Pelma", "120", "1", "72@0:1:100", "1", "1:0"}),
      0);
  EXPECT_GT(listener.takeLoudest(), 0.005) << "the bought bank sounds";
}

// --seconds ends the application even while the instrument's editor is still being set up: a
// window still coming up used to turn a polite quit down about every other time, under X only.
using ApplicationTimeLimit = ApplicationWindow;

TEST_F(ApplicationTimeLimit, EndsOnTimeEvenInItsFirstMoments) {
  for (int launch = 0; launch < 4; ++launch) {
    EXPECT_EQ(runAndWait({"timeout", "15", PELMA_EXECUTABLE, "--seconds", "0.05"}), 0)
        << "launch " << launch;
  }
}

// The window's shortcuts work while the keyboard focus is in the instrument's own (X11) editor,
// which X11 would otherwise hand every key to: a click in the editor, then Ctrl+Q quits.
using ApplicationShortcuts = ApplicationWindow;

TEST_F(ApplicationShortcuts, QuitWorksAfterAClickInTheEditor) {
  const std::string log = std::string(PELMA_TEST_OUTPUT) + "/shortcuts.log";
  ASSERT_NO_FATAL_FAILURE(startApplication({PELMA_EXECUTABLE}, log));
  ASSERT_TRUE(waitFor([&] { return readFile(log).find("(X11)") != std::string::npos; }, 10s));
  // A panel title of the editor (below the menu bar): it takes the focus, and the click changes
  // no sound.
  ASSERT_EQ(runAndWait({"xdotool", "search", "--sync", "--name", "^Pelma$", "mousemove", "--window",
                        "%1", "620", "75", "click", "1", "sleep", "0.3"}),
            0);
  // Typed as a person would (a chained "key" would be sent to the window, past the X server's
  // keyboard focus and grabs).
  ASSERT_EQ(runAndWait({"xdotool", "key", "ctrl+q"}), 0);
  int status = -1;
  EXPECT_TRUE(waitFor([&] { return waitpid(app_, &status, WNOHANG) == app_; }, 10s))
      << "still running after Ctrl+Q";
  if (status != -1) {
    app_ = 0;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Instruments, ApplicationWindow,
                         ::testing::Values(Instrument{"Pelma", false},
                                           Instrument{"MDA JX10", false},
                                           Instrument{"synthv1", false},
                                           Instrument{"synthv1", true}),
                         [](const auto& info) {
                           std::string name = info.param.name;
                           std::erase(name, ' ');
                           return name + (info.param.inProcess ? "InProcess" : "");
                         });

}  // namespace
