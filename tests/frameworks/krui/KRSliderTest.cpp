#include "frameworks/krui/KRSlider.h"

#include <gtest/gtest.h>

#include <QTest>
#include <vector>

namespace {

// 216 wide: the track runs from x 8 to 208, so every 2 points are 0.01.
class KRSliderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    slider.resize(216, 30);
    slider.addTarget(&receiver, [this] { reported.push_back(slider.value()); });
  }

  QObject receiver;
  KRSlider slider;
  std::vector<float> reported;
};

TEST_F(KRSliderTest, SetValueClampsAndReportsNothing) {
  slider.setValue(0.25f);
  EXPECT_EQ(slider.value(), 0.25f);
  slider.setValue(-1.0f);
  EXPECT_EQ(slider.value(), 0.0f);
  slider.setValue(3.0f);
  EXPECT_EQ(slider.value(), 1.0f);
  EXPECT_TRUE(reported.empty());
}

TEST_F(KRSliderTest, PressAndDragSetTheValueUnderThePointer) {
  QTest::mousePress(&slider, Qt::LeftButton, {}, QPoint(108, 15));
  QTest::mouseMove(&slider, QPoint(158, 15));
  QTest::mouseMove(&slider, QPoint(300, 15));
  QTest::mouseMove(&slider, QPoint(400, 15));  // still 1: no event
  QTest::mouseMove(&slider, QPoint(-5, 15));
  QTest::mouseRelease(&slider, Qt::LeftButton, {}, QPoint(-5, 15));
  QTest::mouseMove(&slider, QPoint(108, 15));  // not pressed
  EXPECT_EQ(reported, (std::vector<float>{0.5f, 0.75f, 1.0f, 0.0f}));
}

}  // namespace
