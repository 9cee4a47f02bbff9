#include "keyboard/KRBPMControl.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QTest>
#include <vector>

#include "support/PointerEvents.h"

namespace {

class KRBPMControlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tempo.addTarget(&receiver, [this] { reported.push_back(tempo.value()); });
  }

  // One drag of `distance` points to the right, starting at 120 BPM.
  std::int32_t dragFrom120(double distance) {
    tempo.setValue(120);
    testing_support::press(&tempo, QPointF(150, 20));
    testing_support::moveTo(&tempo, QPointF(150 + distance, 20));
    testing_support::release(&tempo, QPointF(150 + distance, 20));
    return tempo.value();
  }

  QString labelText() const { return tempo.label()->text(); }

  QObject receiver;
  KRBPMControl tempo{QRect(0, 0, 300, 40)};
  std::vector<std::int32_t> reported;
};

TEST_F(KRBPMControlTest, OpensAt120WithItsLimits) {
  EXPECT_EQ(tempo.value(), 120);
  EXPECT_EQ(tempo.minValue(), 40);
  EXPECT_EQ(tempo.maxValue(), 200);
  EXPECT_EQ(labelText(), "<  120 BPM  >");
  EXPECT_EQ(tempo.label()->geometry(), QRect(0, 12, 300, 16));
}

TEST_F(KRBPMControlTest, SetValueClampsRewritesLabelOnChangeAndReportsNothing) {
  tempo.setValue(20);
  EXPECT_EQ(tempo.value(), 40);
  EXPECT_EQ(labelText(), "<  40 BPM  >");
  tempo.setValue(250);
  EXPECT_EQ(tempo.value(), 200);
  EXPECT_EQ(labelText(), "<  200 BPM  >");
  // The same value again leaves the label as it is.
  const_cast<QLabel*>(tempo.label())->setText("untouched");
  tempo.setValue(200);
  EXPECT_EQ(labelText(), "untouched");
  // New limits apply to the next set only.
  tempo.setMaxValue(150);
  EXPECT_EQ(tempo.value(), 200);
  EXPECT_TRUE(reported.empty());
}

TEST_F(KRBPMControlTest, DragsChangeTempoByThreeEveryTenPointsTruncated) {
  EXPECT_EQ(dragFrom120(10), 123);
  EXPECT_EQ(dragFrom120(-0.5), 119);
  EXPECT_EQ(dragFrom120(-10), 117);
  EXPECT_EQ(dragFrom120(400), 200);
  EXPECT_EQ(reported, (std::vector<std::int32_t>{123, 119, 117, 200}));
  EXPECT_EQ(labelText(), "<  200 BPM  >");
}

TEST_F(KRBPMControlTest, DragIsRelativeToTouchDownAndReportsOnlyChanges) {
  tempo.setValue(100);
  QTest::mousePress(&tempo, Qt::LeftButton, {}, QPoint(250, 20));
  QTest::mouseMove(&tempo, QPoint(253, 20));  // +0.9: still 100
  QTest::mouseMove(&tempo, QPoint(254, 20));  // +1.2
  QTest::mouseMove(&tempo, QPoint(260, 20));  // +3
  QTest::mouseMove(&tempo, QPoint(250, 20));  // back to the start
  QTest::mouseRelease(&tempo, Qt::LeftButton, {}, QPoint(250, 20));
  EXPECT_EQ(reported, (std::vector<std::int32_t>{101, 103, 100}));
  // Moving without a press does nothing.
  QTest::mouseMove(&tempo, QPoint(10, 20));
  EXPECT_EQ(tempo.value(), 100);
}

TEST_F(KRBPMControlTest, LayoutPlacesLabelLeftOfCentre) {
  tempo.show();
  EXPECT_EQ(tempo.label()->geometry(), QRect(50, 10, 100, 20));
  tempo.resize(400, 60);
  EXPECT_EQ(tempo.label()->geometry(), QRect(100, 20, 100, 20));
}

}  // namespace
