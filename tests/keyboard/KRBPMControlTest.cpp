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

// The label shows the tempo; setting it (each drag starts with one) reports nothing.
TEST_F(KRBPMControlTest, DragsChangeTempoByThreeEveryTenPointsTruncatedFrom40To200) {
  EXPECT_EQ(labelText(), "<  120 BPM  >");
  EXPECT_EQ(dragFrom120(10), 123);
  EXPECT_EQ(dragFrom120(-0.5), 119);
  EXPECT_EQ(dragFrom120(-10), 117);
  EXPECT_EQ(dragFrom120(-400), 40);
  EXPECT_EQ(dragFrom120(400), 200);
  EXPECT_EQ(labelText(), "<  200 BPM  >");
  EXPECT_EQ(reported, (std::vector<std::int32_t>{123, 119, 117, 40, 200}));

  // Relative to the touch-down point, reporting only changes.
  reported.clear();
  tempo.setValue(100);
  QTest::mousePress(&tempo, Qt::LeftButton, {}, QPoint(250, 20));
  for (int x : {253, 254, 260, 250})
    QTest::mouseMove(&tempo, QPoint(x, 20));
  QTest::mouseRelease(&tempo, Qt::LeftButton, {}, QPoint(250, 20));
  EXPECT_EQ(reported, (std::vector<std::int32_t>{101, 103, 100}));
}

}  // namespace
