// The root screen, headless: its layout arithmetic for phones and tablets of several sizes, the
// phone's sequencer strip, and saving the instrument's state. A real audio engine with a real
// instrument (mda JX10; no sound device, so the null output) is made by the screen itself.

#include "app/ViewController.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QPushButton>
#include <QTest>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "platform/app/QtMainQueue.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/PropertyListFile.h"
#include "platform/ui/Button.h"
#include "platform/ui/DeviceIdiom.h"
#include "support/TemporaryFolder.h"

namespace {

using platform::UserInterfaceIdiom;

class ViewControllerTest : public ::testing::Test {
 protected:
  void SetUp() override { platform::MainQueue::setMain(&mainQueue); }
  void TearDown() override {
    screen.reset();
    platform::MainQueue::setMain(nullptr);
    platform::setUserInterfaceIdiom(UserInterfaceIdiom::pad);
  }

  // A root screen of `size` for `idiom`, loaded, with the instrument's own editor delivered (so
  // that no instantiation is still under way when the test goes on).
  void load(UserInterfaceIdiom idiom, QSize size) {
    platform::setUserInterfaceIdiom(idiom);
    screen = std::make_unique<ViewController>(QStringLiteral("MDA JX10"), nullptr);
    screen->resize(size);
    screen->show();  // resize events reach a shown widget only
    screen->viewDidLoad();
    ASSERT_TRUE(waitForEditor());
  }
  // The editor the instrument delivers, once the engine has it ready.
  bool waitForEditor() {
    QElapsedTimer clock;
    clock.start();
    while (!screen->audioUnitViewCotnroller() && clock.elapsed() < 10000)
      QTest::qWait(20);
    return screen->audioUnitViewCotnroller() != nullptr;
  }
  static std::shared_ptr<AudioUnitViewController> editorWithView() {
    return std::make_shared<AudioUnitViewController>(new QWidget);
  }

  platform::QtMainQueue mainQueue;
  std::unique_ptr<ViewController> screen;
};

// The instrument's own process is killed: the editor's place says it stopped and offers to make
// it again, which brings the same instrument back, with its control values.
TEST_F(ViewControllerTest, AnInstrumentThatStoppedIsShownAndMadeAgainWithItsValues) {
  load(UserInterfaceIdiom::pad, {1024, 768});
  const auto first = screen->audioEngine()->synthAU();
  ASSERT_TRUE(first->isOutOfProcess());
  first->setParameterValue("vcf_freq", 0.25f);
  kill(first->pluginProcessId(), SIGKILL);
  QPushButton* again = nullptr;
  for (int i = 0; i < 500 && !again; ++i) {
    QTest::qWait(20);
    again = screen->auContainerView()->findChild<QPushButton*>("makeInstrumentAgain");
  }
  ASSERT_TRUE(again);
  EXPECT_FALSE(screen->audioUnitViewCotnroller()->view()->isVisible());
  QTest::mouseClick(again, Qt::LeftButton);
  for (int i = 0; i < 500 && screen->audioEngine()->synthAU() == first; ++i)
    QTest::qWait(20);
  ASSERT_TRUE(waitForEditor());
  const auto remade = screen->audioEngine()->synthAU();
  ASSERT_NE(remade, first);
  EXPECT_TRUE(remade->isValid());
  EXPECT_EQ(remade->name(), "MDA JX10");
  EXPECT_EQ(remade->parameterValue("vcf_freq"), 0.25f);
  QTest::qWait(50);
  EXPECT_EQ(screen->auContainerView()->findChild<QWidget*>("instrumentStopped"), nullptr);
}

TEST_F(ViewControllerTest, PhoneOf667PointsStacksEditorStripAndKeyboard) {
  load(UserInterfaceIdiom::phone, {667, 375});
  EXPECT_TRUE(screen->seqController()->isHidden());
  auto editor = editorWithView();
  screen->embedPlugInView(editor);
  EXPECT_EQ(editor->view()->geometry(), QRect(0, 0, 667, 200));
  EXPECT_EQ(screen->pianoViewController()->geometry(), QRect(0, 200, 667, 175));

  // The Seq button (lit while the strip shows) shows the strip directly above the keyboard, and
  // hides it again.
  platform::Button* seq = screen->pianoViewController()->seqButton();
  platform::LogCapture log;
  QTest::mouseClick(seq, Qt::LeftButton);
  EXPECT_FALSE(screen->seqController()->isHidden());
  EXPECT_TRUE(seq->isSelected());
  QTest::mouseClick(seq, Qt::LeftButton);
  EXPECT_TRUE(screen->seqController()->isHidden());
  EXPECT_FALSE(seq->isSelected());
  EXPECT_EQ(screen->seqController()->geometry(), QRect(0, 100, 667, 100));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"SEQ", "SEQ"}));
}

// Desktop windows far wider than a tablet for their height (maximised laptop and desktop
// screens, at 100 % to 150 % scaling) or smaller than the editor's design size: the editor is
// shown whole inside the window, the sequencer below it, and the keyboard keeps at least a
// quarter of the height. A phone window re-lays its sequencer strip above the keyboard.
TEST_F(ViewControllerTest, EveryWindowShowsTheWholeEditorAndAPlayableKeyboard) {
  load(UserInterfaceIdiom::pad, {1024, 768});
  for (const QSize size : {QSize(1366, 740), QSize(1920, 1050), QSize(1280, 770), QSize(1093, 580),
                           QSize(853, 450), QSize(760, 420), QSize(2560, 1400)}) {
    screen->resize(size);
    const QRect editor = screen->auContainerView()->geometry();
    const QRect seq = screen->seqController()->geometry();
    const QRect keyboard = screen->pianoViewController()->geometry();
    EXPECT_TRUE(QRect(QPoint(0, 0), size).contains(editor)) << size.width() << "x" << size.height();
    EXPECT_LE(editor.bottom(), seq.top()) << size.width();
    EXPECT_LE(seq.bottom(), keyboard.top()) << size.width();
    EXPECT_EQ(keyboard.bottom(), size.height() - 1) << size.width();
    EXPECT_GE(keyboard.height(), size.height() / 4) << size.width();
  }
  screen.reset();

  load(UserInterfaceIdiom::phone, {667, 375});
  screen->resize(900, 500);
  EXPECT_EQ(screen->seqController()->geometry().bottom() + 1,
            screen->pianoViewController()->geometry().top());
}

// The instrument's editor arrives in its container, which a wide tablet's screen resizes and
// centres; its state is saved over one file; an editor without a view is reported.
TEST_F(ViewControllerTest, WideTabletResizesAndCentresTheArrivingEditorAndSavesItsState) {
  load(UserInterfaceIdiom::pad, {1366, 1024});  // embeds the instrument's editor
  const auto& editor = screen->audioUnitViewCotnroller();
  ASSERT_NE(editor->view(), nullptr);
  EXPECT_EQ(editor->view()->parentWidget(), screen->auContainerView());
  const float ratio = 1366 * 0.0009765625f;
  const QRect container = screen->auContainerView()->geometry();
  EXPECT_EQ(container.size(), QSizeF(ratio * 1024, ratio * 335).toSize());  // about 1366 x 447
  EXPECT_NEAR(container.center().x(), 683, 1);
  EXPECT_NEAR(container.y() + container.height() / 2.0, std::trunc(ratio * 335 * 0.5) + 47, 1);
  EXPECT_EQ(editor->view()->geometry(), QRect(QPoint(0, 0), container.size()));
  // Below the editor: the keyboard in the lower third, the sequencer's band (1024 x 128 / 768)
  // above it.
  EXPECT_LE(container.y() + container.height(), 512);
  EXPECT_EQ(screen->seqController()->geometry(), QRect(0, 512, 1366, 171));
  EXPECT_EQ(screen->pianoViewController()->geometry(), QRect(0, 683, 1366, 341));

  // A desktop window is resized at will: narrower and back, the same layout, no drift.
  const QRect seq = screen->seqController()->geometry();
  screen->resize(1024, 768);
  EXPECT_EQ(screen->auContainerView()->geometry(), QRect(0, 0, 1024, 335));
  EXPECT_EQ(screen->seqController()->geometry(), QRect(0, 384, 1024, 128));
  screen->resize(1366, 1024);
  EXPECT_EQ(screen->auContainerView()->geometry(), container);
  EXPECT_EQ(screen->seqController()->geometry(), seq);

  // The documents folder does not exist yet, as on a fresh account.
  TemporaryFolder scratch;
  const auto documents = scratch.path() / "Documents" / "Pelma";
  setenv("PELMA_DOCUMENTS_DIR", documents.c_str(), 1);
  const auto file = documents / "testpreset.aupreset";
  screen->savePreset(nullptr);
  const auto first = platform::readPropertyList(file);
  ASSERT_TRUE(first);
  EXPECT_TRUE(first->count("ports"));
  screen->audioEngine()->synthAU()->setParameterValue(
      screen->audioEngine()->synthAU()->parameterSymbols().front(), 0.25f);
  screen->savePreset(nullptr);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(documents), {}), 1);
  const auto second = platform::readPropertyList(file);
  ASSERT_TRUE(second);
  EXPECT_NE(*first, *second);
  unsetenv("PELMA_DOCUMENTS_DIR");

  // An editor without a view is reported and the screen keeps its layout.
  platform::LogCapture log;
  screen->embedPlugInView(std::make_shared<AudioUnitViewController>(nullptr));
  EXPECT_TRUE(log.contains("Alert no view in AU!"));
  EXPECT_EQ(screen->seqController()->geometry(), seq);
}

}  // namespace
