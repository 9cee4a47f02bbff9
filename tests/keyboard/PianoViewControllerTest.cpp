// The keyboard screen, headless, with real widgets: what reaches its delegate when the user
// clicks its buttons, plays its keys and moves its wheels, in both layouts.

#include "keyboard/PianoViewController.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QTest>
#include <memory>
#include <string>
#include <vector>

#include "frameworks/krui/KRPianoView.h"
#include "frameworks/krui/PianoView.h"
#include "keyboard/KRWheelControl.h"
#include "platform/ui/Button.h"
#include "platform/ui/DeviceIdiom.h"
#include "support/KeyRecorder.h"
#include "support/PointerEvents.h"

namespace {

using platform::UserInterfaceIdiom;

class PianoViewControllerTest : public ::testing::TestWithParam<UserInterfaceIdiom> {
 protected:
  void SetUp() override {
    platform::setUserInterfaceIdiom(GetParam());
    screen = std::make_unique<PianoViewController>(phone() ? PianoViewController::kPhoneInterface
                                                           : PianoViewController::kTabletInterface);
    screen->resize(phone() ? QSize(667, 175) : QSize(1024, 256));
    screen->show();  // lays the interface file's widgets out
    recorder = std::make_shared<KeyRecorder>();
    screen->setDelegate(recorder);
  }
  void TearDown() override { platform::setUserInterfaceIdiom(UserInterfaceIdiom::pad); }

  bool phone() const { return GetParam() == UserInterfaceIdiom::phone; }
  void click(platform::Button* button) { QTest::mouseClick(button, Qt::LeftButton); }
  // A point on the first white key: near its front edge (loud) or its back edge (soft).
  QPoint firstWhiteKey(bool front) const {
    const QRectF key = screen->pianoView2()->keys().front().rect;
    return QPointF(key.center().x(), front ? key.bottom() - 2 : key.top() + 2).toPoint();
  }

  std::unique_ptr<PianoViewController> screen;
  std::shared_ptr<KeyRecorder> recorder;
};

TEST_P(PianoViewControllerTest, VelocityIsExactlyOneUnlessTheVelocityButtonIsOn) {
  auto velocityOfFirstKey = [&](bool front) {
    QTest::mouseClick(screen->pianoView2(), Qt::LeftButton, {}, firstWhiteKey(front));
    return recorder->velocities.at(48);
  };
  EXPECT_EQ(velocityOfFirstKey(false), 1.0f);
  EXPECT_EQ(velocityOfFirstKey(true), 1.0f);
  click(screen->velocityButton());
  EXPECT_TRUE(screen->velocityButton()->isSelected());
  EXPECT_LT(velocityOfFirstKey(false), 0.3f);  // the back edge plays softly
  EXPECT_GT(velocityOfFirstKey(true), 0.95f);
}

TEST_P(PianoViewControllerTest, PitchWheelSpringsBackModWheelStays) {
  // How a wheel maps the pointer, and a held spring wheel hidden, are KRWheelControlTest's; here,
  // which wheel springs back (with one event) and where its values go.
  KRWheelControl* pitch = screen->pitchWheel();
  const QPointF middle(pitch->width() / 2.0, (pitch->height() - 10) / 2.0);
  testing_support::press(pitch, middle);
  testing_support::moveTo(pitch, QPointF(middle.x(), 0));
  testing_support::release(pitch, QPointF(middle.x(), 0));
  EXPECT_EQ(recorder->take(), (Events{"pitch 1.000", "pitch 0.500"}));
  EXPECT_FLOAT_EQ(pitch->value(), 0.5f);

  KRWheelControl* mod = screen->modWheel();
  testing_support::press(mod, QPointF(mod->width() / 2.0, mod->height()));
  testing_support::moveTo(mod, QPointF(mod->width() / 2.0, 0));
  testing_support::release(mod, QPointF(mod->width() / 2.0, 0));
  EXPECT_EQ(recorder->take(), (Events{"mod 1.000"}));
  EXPECT_FLOAT_EQ(mod->value(), 1.0f);
}

TEST_P(PianoViewControllerTest, SizeAlternatesBetweenTheIdiomsTwoCounts) {
  const int small = phone() ? 8 : 15;
  const int large = phone() ? 15 : 22;
  PianoView* keys = screen->pianoView2();
  click(screen->sizeButton());
  EXPECT_EQ(keys->numKeysVisible(), large);
  EXPECT_TRUE(screen->sizeButton()->isSelected());
  // The keys are laid out again at once.
  EXPECT_NEAR(keys->keys().front().rect.width(), keys->width() / double(large), 1.0);
  click(screen->sizeButton());
  EXPECT_EQ(keys->numKeysVisible(), small);
  EXPECT_FALSE(screen->sizeButton()->isSelected());
}

TEST_P(PianoViewControllerTest, OctaveLabelShowsWhatTheKeyboardKeptAndTheKeysMove) {
  for (int i = 0; i < 5; ++i)
    click(screen->octavePlusButton());
  EXPECT_EQ(screen->octaveLabel()->text(), QStringLiteral("Octave 7"));  // 8 and 9 refused
  EXPECT_EQ(screen->pianoView()->octave(), 7);
  QTest::mouseClick(screen->pianoView2(), Qt::LeftButton, {}, firstWhiteKey(true));

  for (int i = 0; i < 9; ++i)
    click(screen->octaveMinusButton());
  EXPECT_EQ(screen->octaveLabel()->text(), QStringLiteral("Octave 0"));
  QTest::mouseClick(screen->pianoView2(), Qt::LeftButton, {}, firstWhiteKey(true));
  // The notes played follow the octave the buttons set.
  EXPECT_EQ(recorder->take(), (Events{"on 84", "off 84", "on 0", "off 0"}));
}

// What hold and lock do to the keys is PianoViewTest's; here, that the buttons reach the keyboard
// and that panic reaches the delegate before the keyboard lets go of a held key.
TEST_P(PianoViewControllerTest, HoldAndLockReachTheKeyboardAndPanicReleasesEveryKey) {
  click(screen->holdButton());
  click(screen->lockButton());
  EXPECT_TRUE(screen->holdButton()->isSelected());
  EXPECT_TRUE(screen->pianoView2()->hold());
  EXPECT_TRUE(screen->pianoView2()->isLocked());
  QTest::mouseClick(screen->pianoView2(), Qt::LeftButton, {}, firstWhiteKey(true));
  EXPECT_EQ(recorder->take(), (Events{"on 48"}));
  click(screen->panicButton());
  EXPECT_EQ(recorder->take(), (Events{"panic", "off 48"}));
  click(screen->holdButton());
  EXPECT_FALSE(screen->pianoView2()->hold());
}

// In a window larger than the strip's design, its text and buttons grow with it (never past
// 1.75 times), and come back to the design size when the window does.
TEST_P(PianoViewControllerTest, TextAndButtonsGrowWithTheWindowAndComeBack) {
  const QSize design = screen->size();
  const auto textHeight = [](QWidget* widget) { return QFontMetrics(widget->font()).height(); };
  const int buttonHeight = screen->holdButton()->height();
  const int labelText = textHeight(screen->octaveLabel());
  screen->resize(design * 3);
  QTest::qWait(0);
  EXPECT_NEAR(screen->holdButton()->height(), buttonHeight * 1.75, 1.0);
  EXPECT_GE(textHeight(screen->octaveLabel()), labelText * 1.6);
  screen->resize(design);
  QTest::qWait(0);
  EXPECT_EQ(screen->holdButton()->height(), buttonHeight);
  EXPECT_EQ(textHeight(screen->octaveLabel()), labelText);
}

INSTANTIATE_TEST_SUITE_P(Idioms, PianoViewControllerTest,
                         ::testing::Values(UserInterfaceIdiom::pad, UserInterfaceIdiom::phone),
                         [](const auto& info) {
                           return info.param == UserInterfaceIdiom::phone ? "phone" : "tablet";
                         });

}  // namespace
