#include "keyboard/KRWheelControl.h"

#include <gtest/gtest.h>

#include <QTest>
#include <vector>

namespace {

// A wheel 40 wide and 60 high, recording the value at every reported change.
class KRWheelControlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    wheel.addTarget(&receiver, [this] { reported.push_back(wheel.value()); });
  }
  void press(int y) { QTest::mousePress(&wheel, Qt::LeftButton, {}, QPoint(20, y)); }
  void moveTo(int y) { QTest::mouseMove(&wheel, QPoint(20, y)); }
  void release(int y) { QTest::mouseRelease(&wheel, Qt::LeftButton, {}, QPoint(20, y)); }

  QObject receiver;
  KRWheelControl wheel{QRect(0, 0, 40, 60)};
  std::vector<float> reported;
};

// Setting the value (as the keyboard screen does) moves the thumb and reports nothing.
TEST_F(KRWheelControlTest, DragMapsThePointerHeightAbsolutelyMovesTheThumbAndReportsOnlyChanges) {
  wheel.setValue(0.5f);
  EXPECT_EQ(wheel.thumbLayer().position, QPointF(0, 25));
  press(40);  // touching does not move the wheel
  EXPECT_EQ(wheel.value(), 0.5f);
  moveTo(0);
  moveTo(25);
  moveTo(50);
  moveTo(58);  // below height - 10 the value stays 0: no event
  EXPECT_EQ(wheel.thumbLayer().position, QPointF(0, 50));
  moveTo(-20);   // above the control: 1
  release(-20);  // no spring: nothing more
  EXPECT_EQ(reported, (std::vector<float>{1.0f, 0.5f, 0.0f, 1.0f}));
}

// A spring wheel let go springs back with one event (PianoViewControllerTest's pitch wheel); so
// must it when hiding a held wheel cancels its touch, or the bend would stay.
TEST_F(KRWheelControlTest, HidingAHeldSpringWheelReturnsItToCentre) {
  wheel.setValue(0.5f);
  wheel.setResetToZero(true);
  wheel.show();
  press(25);
  moveTo(0);
  wheel.hide();
  EXPECT_EQ(reported, (std::vector<float>{1.0f, 0.5f}));
}

}  // namespace
