// The window takes bank files dropped on it: only local ".plb" files, in the order dropped; a
// drag without one is refused so the pointer shows that nothing would happen.

#include "app/MainWindow.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QScreen>
#include <QSlider>
#include <QStyle>
#include <QTest>
#include <QUrl>

#include "app/ViewController.h"
#include "audio/AudioEngine.h"
#include "keyboard/PianoViewController.h"
#include "midi/MidiLearnMenu.h"
#include "platform/app/QtMainQueue.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/UserDefaults.h"
#include "presets/PresetsMenu.h"
#include "support/TemporaryFolder.h"

namespace {

TEST(MainWindow, OpensTheBankFilesDroppedOnItAndRefusesDragsWithoutOne) {
  platform::QtMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  std::vector<std::string> opened;
  {
    app::MainWindow window(QStringLiteral("MDA JX10"), false, nullptr,
                           [&](const std::string& url) { opened.push_back(url); });
    // The instrument is made on a thread of its own: the test ends only after it is there.
    for (int i = 0; i < 500 && !window.root()->audioUnitViewCotnroller(); ++i)
      QTest::qWait(20);
    ASSERT_TRUE(window.root()->audioUnitViewCotnroller());

    QMimeData text;
    text.setUrls({QUrl::fromLocalFile("/tmp/notes.txt"), QUrl("https://example.org/x.plb")});
    QDragEnterEvent refused(QPoint(10, 10), Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    refused.setAccepted(false);
    QCoreApplication::sendEvent(&window, &refused);
    EXPECT_FALSE(refused.isAccepted());

    QMimeData banks;
    banks.setUrls({QUrl::fromLocalFile("/tmp/my bank.plb"), QUrl::fromLocalFile("/tmp/notes.txt"),
                   QUrl::fromLocalFile("/tmp/upper.PLB"), QUrl::fromLocalFile("/tmp/second.plb")});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &banks, Qt::LeftButton, Qt::NoModifier);
    enter.setAccepted(false);
    QCoreApplication::sendEvent(&window, &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &banks, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window, &drop);
  }
  platform::MainQueue::setMain(nullptr);
  EXPECT_EQ(opened,
            (std::vector<std::string>{"file:///tmp/my%20bank.plb", "file:///tmp/second.plb"}));
}

// The window's size kept from the last run, edited to a size no screen shows, is ignored; the
// window opens no larger than the screen's free area leaves room for, title bar included (the
// offscreen screen is 800 x 600, smaller than the window's design size), and the keyboard keeps
// a playable part of it.
TEST(MainWindow, OpensWithinTheScreenWithAPlayableKeyboardWhateverSizeWasStored) {
  TemporaryFolder config;
  setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
  platform::UserDefaults::standardUserDefaults().setString("window-size", "32767x32767");
  platform::QtMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  {
    platform::LogCapture log;
    app::MainWindow window(QStringLiteral("MDA JX10"), false, nullptr, [](const std::string&) {});
    EXPECT_TRUE(log.contains(
        "Preference window-size = 32767x32767 is not a value it can have; the default is used"));
    for (int i = 0; i < 500 && !window.root()->audioUnitViewCotnroller(); ++i)
      QTest::qWait(20);
    const QRect room = window.screen()->availableGeometry();
    EXPECT_LE(window.width(), room.width());
    EXPECT_LE(window.height() + window.style()->pixelMetric(QStyle::PM_TitleBarHeight),
              room.height());
    EXPECT_GE(window.root()->pianoViewController()->height(), window.height() / 4);
  }
  platform::MainQueue::setMain(nullptr);
}

// The window's instrument gets the last session's state when it is made: a sound edited before a
// quit is the sound of the next launch, and the controllers learned then drive it again.
TEST(MainWindow, TheNextLaunchPlaysTheSoundOfTheLastSessionWithItsMidiLearnMap) {
  TemporaryFolder state;
  setenv("XDG_STATE_HOME", state.path().c_str(), 1);
  platform::QtMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  auto instrumentOf = [](app::MainWindow& window) {
    for (int i = 0; i < 500 && !window.root()->audioUnitViewCotnroller(); ++i)
      QTest::qWait(20);
    return window.root()->audioEngine()->synthAU();
  };
  {
    app::MainWindow window(QStringLiteral("MDA JX10"), false, nullptr, [](const std::string&) {});
    window.sessions()->launch(false);
    ASSERT_TRUE(instrumentOf(window));
    instrumentOf(window)->setParameterValue("osc_mix", 0.25f);
    window.root()->midiLearn().bind(21, "osc_mix");
    window.sessions()->keepLastSession();
  }
  {
    app::MainWindow window(QStringLiteral("MDA JX10"), false, nullptr, [](const std::string&) {});
    window.sessions()->launch(false);
    ASSERT_TRUE(instrumentOf(window));
    EXPECT_EQ(instrumentOf(window)->parameterValue("osc_mix"), 0.25f);
    EXPECT_EQ(window.root()->midiLearn().controllerFor("osc_mix"), 21);
  }
  platform::MainQueue::setMain(nullptr);
  unsetenv("XDG_STATE_HOME");
}

}  // namespace

namespace {

// The menu bar's "Presets" lists mda JX10's factory presets and loads one; "MIDI learn" binds the
// next controller to a control chosen from the generic editor, and the editor follows the value
// the controller sets.
TEST(MainWindow, PresetsAndMidiLearnMenusDriveTheInstrumentAndTheEditorFollows) {
  platform::QtMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  {
    app::MainWindow window(QStringLiteral("MDA JX10"), false, nullptr, [](const std::string&) {});
    for (int i = 0; i < 500 && !window.root()->audioUnitViewCotnroller(); ++i)
      QTest::qWait(20);
    ASSERT_TRUE(window.root()->audioUnitViewCotnroller());
    auto unit = window.root()->audioEngine()->synthAU();
    ASSERT_TRUE(unit);

    PresetsMenu* presets = window.root()->presetsMenu();
    presets->rebuild();
    QList<QAction*> factory;
    for (QAction* action : presets->actions()) {
      if (action->data().toString().startsWith("http")) factory.append(action);
    }
    ASSERT_GE(factory.size(), 50);
    unit->setParameterValue("vcf_freq", 0.123f);
    factory.front()->trigger();
    EXPECT_NE(unit->parameterValue("vcf_freq"), 0.123f);

    // The generic editor's cutoff control offers MIDI learn on a right-click.
    QWidget* cutoff = nullptr;
    for (QWidget* control : window.findChildren<QWidget*>()) {
      if (control->property("controlSymbol").toString() == "vcf_freq") cutoff = control;
    }
    ASSERT_TRUE(cutoff);
    EXPECT_EQ(cutoff->contextMenuPolicy(), Qt::CustomContextMenu);
    window.root()->midiLearnMenu()->learn("vcf_freq");
    EXPECT_TRUE(window.root()->midiLearnMenu()->title().contains("VCF Freq"));
    for (int i = 0; i < 250 && !window.root()->midiLearn().controllerFor("vcf_freq"); ++i) {
      unit->sendMIDIEvent(0xB0, 21, 64, 0);
      QTest::qWait(20);
    }
    ASSERT_EQ(window.root()->midiLearn().controllerFor("vcf_freq"), 21);
    EXPECT_EQ(window.root()->midiLearnMenu()->title(), "MIDI learn");
    unit->sendMIDIEvent(0xB0, 21, 0, 0);
    auto* slider = cutoff->findChild<QSlider*>();
    ASSERT_TRUE(slider);
    for (int i = 0; i < 250 && slider->value() != 0; ++i)
      QTest::qWait(20);
    EXPECT_EQ(unit->parameterValue("vcf_freq"), 0.0f);
    EXPECT_EQ(slider->value(), 0);
  }
  platform::MainQueue::setMain(nullptr);
}

}  // namespace
