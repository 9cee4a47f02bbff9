#include "frameworks/krui/KRSlider.h"

#include <gtest/gtest.h>

#include <QTest>
#include <vector>

namespace {

TEST(KRSliderTest, PressAndDragSetTheValueUnderThePointerAndReportChanges) {
  QObject receiver;
  KRSlider slider;
  slider.resize(216, 30);  // the track runs from x 8 to 208
  std::vector<float> reported;
  slider.addTarget(&receiver, [&] { reported.push_back(slider.value()); });

  QTest::mousePress(&slider, Qt::LeftButton, {}, QPoint(108, 15));
  for (int x : {158, 300, 400, -5})
    QTest::mouseMove(&slider, QPoint(x, 15));
  QTest::mouseRelease(&slider, Qt::LeftButton, {}, QPoint(-5, 15));
  QTest::mouseMove(&slider, QPoint(108, 15));  // not pressed
  EXPECT_EQ(reported, (std::vector<float>{0.5f, 0.75f, 1.0f, 0.0f}));
}

}  // namespace
