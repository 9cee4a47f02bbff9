// The settings menu and the sessions screens with a real preferences file, real MIDI sources (ports
// of a JACK client of this test on a JACK dummy server) and the real keyboard screen presenting it.

#include "menus/AppMenuController.h"

#include <jack/jack.h>
#include <stdlib.h>

#include <gtest/gtest.h>

#include <QTest>

#include "frameworks/pelma/PGMidi.h"
#include "keyboard/PianoViewController.h"
#include "menus/SessionsMenuController.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/ui/Button.h"
#include "platform/ui/NavigationController.h"
#include "platform/ui/Popover.h"
#include "support/JackServer.h"
#include "support/TemporaryFolder.h"

namespace {

using platform::CellAccessory;
using platform::IndexPath;

class AppMenuTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    static TemporaryFolder preferences;
    setenv("XDG_CONFIG_HOME", preferences.path().c_str(), 1);  // a fresh store, before first use
  }
  void SetUp() override {
    ASSERT_TRUE(jack.start());
    client = jack_client_open("keys", JackNoStartServer, nullptr);
    ASSERT_TRUE(client);
    for (const char* name : {"left", "right"})
      jack_port_register(client, name, JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    jack_activate(client);
    midi = std::make_unique<PGMidi>("pelma-menu-test");
    menu = std::make_unique<AppMenuController>(midi.get(), &defaults);
    menu->reloadData();
  }
  void TearDown() override {
    menu.reset();
    midi.reset();
    if (client) jack_client_close(client);
  }
  int checkedChannelRows() {
    int checked = 0;
    for (int row = 0; row < 17; ++row)
      checked += menu->visibleCell({2, row}).accessory == CellAccessory::checkmark;
    return checked;
  }

  testing_support::JackServer jack;
  jack_client_t* client = nullptr;
  platform::UserDefaults& defaults = platform::UserDefaults::standardUserDefaults();
  std::unique_ptr<PGMidi> midi;
  std::unique_ptr<AppMenuController> menu;
};

// Background audio, the sources and the channel: each tap shows and stores the choice.
TEST_F(AppMenuTest, EachChoiceIsCheckedAndStored) {
  defaults.removeObjectForKey("background-audio");
  menu->reloadData();
  EXPECT_EQ(menu->visibleCell({0, 0}).text, QStringLiteral("Background audio"));
  EXPECT_EQ(menu->visibleCell({0, 0}).accessory, CellAccessory::none);  // off at first
  menu->tapRow({0, 0});
  EXPECT_EQ(defaults.boolForKey("background-audio"), true);
  EXPECT_EQ(menu->visibleCell({0, 0}).accessory, CellAccessory::checkmark);
  menu->tapRow({0, 0});
  EXPECT_EQ(defaults.boolForKey("background-audio"), false);

  // Sources are stored by name.
  ASSERT_EQ(menu->numberOfRowsInSection(1), 2);
  EXPECT_EQ(menu->visibleCell({1, 0}).text, QStringLiteral("keys:left"));
  EXPECT_EQ(menu->visibleCell({1, 0}).accessory, CellAccessory::checkmark);
  menu->tapRow({1, 0});
  EXPECT_FALSE(midi->sources()[0]->isActive());
  EXPECT_EQ(defaults.boolForKey("MIDI-keys:left"), false);
  EXPECT_EQ(menu->visibleCell({1, 0}).accessory, CellAccessory::none);
  menu->tapRow({1, 0});
  EXPECT_TRUE(midi->sources()[0]->isActive());
  EXPECT_EQ(defaults.boolForKey("MIDI-keys:left"), true);
  EXPECT_TRUE(midi->sources()[1]->isActive());

  // Exactly one channel is checked.
  EXPECT_EQ(menu->visibleCell({2, 0}).text, QStringLiteral("Omni"));
  EXPECT_EQ(menu->visibleCell({2, 16}).text, QStringLiteral("16"));
  menu->tapRow({2, 16});
  EXPECT_EQ(midi->channel(), 16);
  EXPECT_EQ(defaults.integerForKey("MIDI-CHANNEL"), 16);
  EXPECT_EQ(menu->visibleCell({2, 16}).accessory, CellAccessory::checkmark);
  EXPECT_EQ(checkedChannelRows(), 1);
  menu->tapRow({2, 0});
  EXPECT_EQ(defaults.integerForKey("MIDI-CHANNEL"), 0);
  EXPECT_EQ(checkedChannelRows(), 1);
}

TEST(SessionsScreens, AnEmptyListWhoseSaveOpensASaveScreenThatDoesNothing) {
  auto* sessions = new SessionsMenuController;
  platform::NavigationController navigation(sessions);
  navigation.show();
  EXPECT_EQ(navigation.barTitle(), QStringLiteral("Sessions"));
  EXPECT_EQ(sessions->visibleRowCount(), 0);
  QTest::mouseClick(navigation.rightBarButton(), Qt::LeftButton);
  EXPECT_EQ(navigation.depth(), 2);
  EXPECT_EQ(navigation.barTitle(), QStringLiteral("Save session"));
  QTest::mouseClick(navigation.rightBarButton(), Qt::LeftButton);  // saving does nothing
  EXPECT_EQ(navigation.depth(), 2);
}

TEST(SettingsPopover, EachPresentationMakesANewMenuAndDoneClosesIt) {
  PianoViewController keyboard(PianoViewController::kTabletInterface);
  keyboard.resize(1024, 256);
  keyboard.show();
  keyboard.appMenuButtonPressed(keyboard.appMenuButton());
  QPointer<platform::Popover> first = keyboard.presentedPopover();
  ASSERT_TRUE(first);
  auto* navigation = static_cast<platform::NavigationController*>(first->content());
  QWidget* firstMenu = navigation->topViewController();
  EXPECT_NE(dynamic_cast<AppMenuController*>(firstMenu), nullptr);
  EXPECT_EQ(navigation->barTitle(), QStringLiteral("Settings"));
  QTest::mouseClick(navigation->rightBarButton(), Qt::LeftButton);  // Done
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_FALSE(first);

  keyboard.appMenuButtonPressed(keyboard.appMenuButton());
  auto* second =
      static_cast<platform::NavigationController*>(keyboard.presentedPopover()->content());
  EXPECT_NE(second->topViewController(), nullptr);
  keyboard.dismissAppMenu();
}

}  // namespace
