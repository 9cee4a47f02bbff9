#include "frameworks/krui/PianoView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QTest>
#include <memory>

#include "support/KeyRecorder.h"

namespace {

// 15 white keys of 30 x 120 from note 48 (C), black keys 0.62 x 120 = 74 high.
class PianoViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    piano.resize(450, 120);
    piano.setDelegate(&recorder);
    piano.refreshKeyboard();
  }

  // The centre of white key `i` (counted from the left) at height y.
  static QPoint white(int i, int y = 100) { return QPoint(30 * i + 15, y); }
  void press(QPoint p) { QTest::mousePress(&piano, Qt::LeftButton, {}, p); }
  void moveTo(QPoint p) { QTest::mouseMove(&piano, p); }
  void release(QPoint p) { QTest::mouseRelease(&piano, Qt::LeftButton, {}, p); }
  void click(QPoint p) {
    press(p);
    release(p);
  }

  KeyRecorder recorder;
  PianoView piano;
};

TEST_F(PianoViewTest, LaysOutWhiteKeysFromCWithBlackKeysBetween) {
  EXPECT_EQ(piano.lowestKey(), 48);  // shift 11 at octave 4
  std::vector<int> whites;
  std::vector<int> blacks;
  for (const auto& key : piano.keys())
    (key.black ? blacks : whites).push_back(key.note);
  EXPECT_EQ(whites, (std::vector<int>{48, 50, 52, 53, 55, 57, 59, 60, 62, 64, 65, 67, 69, 71, 72}));
  EXPECT_EQ(blacks, (std::vector<int>{49, 51, 54, 56, 58, 61, 63, 66, 68, 70}));
  EXPECT_EQ(piano.keyAt(QPoint(30, 10))->note, 49);   // black keys lie on top
  EXPECT_EQ(piano.keyAt(QPoint(30, 100))->note, 50);  // below them the white key
  // Another shift is KRPianoViewTest's; other counts are the keyboard screen's size button's.
}

// Velocity from the height of the press is the keyboard screen's test, with its velocity button.
TEST_F(PianoViewTest, GlissandoMovesTheNoteAndPairsEveryRelease) {
  press(white(0));
  moveTo(white(0, 60));  // same key: nothing
  moveTo(white(1));
  moveTo(QPoint(60, 10));    // the black key between D and E
  moveTo(QPoint(460, 100));  // off the keyboard: silence
  moveTo(white(3));
  release(white(3));
  EXPECT_EQ(recorder.take(),
            (Events{"on 48", "off 48", "on 50", "off 50", "on 51", "off 51", "on 53", "off 53"}));
  piano.setIsLocked(true);  // a locked keyboard keeps the note where the drag began
  press(white(0));
  moveTo(white(4));
  release(white(4));
  EXPECT_EQ(recorder.take(), (Events{"on 48", "off 48"}));
}

TEST_F(PianoViewTest, HoldKeepsReleasedKeysUntilPressedAgainOrHoldEnds) {
  piano.setHold(true);
  click(white(0));
  click(white(1));
  click(white(0));  // pressing a held key stops it
  press(white(3));
  moveTo(white(1));  // gliding over a held key leaves it held
  moveTo(white(2));
  EXPECT_EQ(recorder.take(), (Events{"on 48", "on 50", "off 48", "on 53", "on 52"}));
  piano.setHold(false);  // releases what only hold kept, not the key under the pointer
  EXPECT_EQ(recorder.take(), (Events{"off 50", "off 53"}));
  release(white(2));
  EXPECT_EQ(recorder.take(), Events{"off 52"});
}

TEST_F(PianoViewTest, PanicReleasesEveryKeyOnce) {
  piano.setHold(true);
  click(white(0));
  click(white(1));
  press(white(2));
  recorder.take();
  piano.panic();
  EXPECT_EQ(recorder.take(), (Events{"off 48", "off 50", "off 52"}));
  piano.panic();
  moveTo(white(2, 60));  // the pointer that was down stays silent on its key
  release(white(2));
  EXPECT_TRUE(recorder.take().empty());
  // A pointer still down after panic plays again once it moves to another key.
  piano.setHold(false);
  press(white(5));
  piano.panic();
  moveTo(white(6));
  release(white(6));
  EXPECT_EQ(recorder.take(), (Events{"on 57", "off 57", "on 59", "off 59"}));
}

TEST_F(PianoViewTest, SeveralTouchesPlayTogether) {
  std::unique_ptr<QPointingDevice> screen(QTest::createTouchDevice());
  piano.show();  // touches reach widgets through their window
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&piano));
  QTest::touchEvent(&piano, screen.get()).press(0, white(0)).press(1, white(4));
  QTest::touchEvent(&piano, screen.get()).move(0, white(1)).stationary(1);
  QTest::touchEvent(&piano, screen.get()).press(2, white(1)).stationary(0).stationary(1);
  QTest::touchEvent(&piano, screen.get()).release(0, white(1)).stationary(1).stationary(2);
  QTest::touchEvent(&piano, screen.get()).release(1, white(4)).release(2, white(1));
  EXPECT_EQ(recorder.take(), (Events{"on 48", "on 55", "off 48", "on 50", "off 55", "off 50"}));
}

TEST_F(PianoViewTest, ComputerKeyboardPlaysTwoRowsFromTheLowestC) {
  QTest::keyPress(&piano, Qt::Key_Z);
  QTest::keyPress(&piano, Qt::Key_S);
  QTest::keyRelease(&piano, Qt::Key_Z);
  QTest::keyRelease(&piano, Qt::Key_S);
  QTest::keyClick(&piano, Qt::Key_P);
  QTest::keyClick(&piano, Qt::Key_A);  // not a piano key
  EXPECT_EQ(recorder.take(), (Events{"on 48", "on 49", "off 48", "off 49", "on 76", "off 76"}));
  EXPECT_EQ(recorder.velocities.at(48), PianoView::kComputerKeyVelocity);

  // Comma and Q are the same note: one press, released with the last key.
  QTest::keyPress(&piano, Qt::Key_Comma);
  QTest::keyPress(&piano, Qt::Key_Q);
  QTest::keyRelease(&piano, Qt::Key_Comma);
  EXPECT_EQ(recorder.take(), Events{"on 60"});
  QTest::keyRelease(&piano, Qt::Key_Q);
  EXPECT_EQ(recorder.take(), Events{"off 60"});
}

TEST_F(PianoViewTest, AutoRepeatAndLostFocusDoNotLeaveKeysOrDoublePresses) {
  QTest::keyPress(&piano, Qt::Key_X);
  QKeyEvent repeat(QEvent::KeyPress, Qt::Key_X, Qt::NoModifier, "x", true);
  QApplication::sendEvent(&piano, &repeat);
  QFocusEvent focusOut(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
  QApplication::sendEvent(&piano, &focusOut);
  QTest::keyRelease(&piano, Qt::Key_X);  // arrives late: nothing left to release
  EXPECT_EQ(recorder.take(), (Events{"on 50", "off 50"}));
}

TEST_F(PianoViewTest, ADestroyedDelegateIsNoLongerCalled) {
  auto shortLived = std::make_unique<KeyRecorder>();
  piano.setDelegate(shortLived.get());
  shortLived.reset();
  click(white(0));
  EXPECT_EQ(piano.delegate(), nullptr);
}

}  // namespace
