// Preferences read from a file the user may have edited: values of the wrong kind or out of their
// key's range are ignored, as if absent, with one log line each.

#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/foundation/Log.h"
#include "platform/foundation/UserDefaults.h"
#include "support/TemporaryFolder.h"

namespace platform {
namespace {

TEST(QtUserDefaults, ValuesOutOfTheirRangeAreIgnoredWhenRead) {
  TemporaryFolder config;
  setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
  config.write("pelma/Pelma.conf",
               "[General]\nMIDI-CHANNEL=4294967301\nbackground-audio=maybe\nMIDI-Keys=true\n");
  UserDefaults& defaults = UserDefaults::standardUserDefaults();
  LogCapture log;
  EXPECT_EQ(defaults.integerForKey("MIDI-CHANNEL"), std::nullopt);
  EXPECT_EQ(defaults.boolForKey("background-audio"), std::nullopt);
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(defaults.boolForKey("MIDI-Keys"), true);
  defaults.setInteger("MIDI-CHANNEL", 16);
  EXPECT_EQ(defaults.integerForKey("MIDI-CHANNEL"), 16);
  defaults.setInteger("MIDI-CHANNEL", -1);
  EXPECT_EQ(defaults.integerForKey("MIDI-CHANNEL"), std::nullopt);
}

}  // namespace
}  // namespace platform
