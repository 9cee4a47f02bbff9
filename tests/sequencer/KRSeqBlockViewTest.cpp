#include "sequencer/KRSeqBlockView.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "sequencer/KRStepSequenceStep.h"

namespace {

std::vector<QPointF> corners(const QPainterPath& path) {
  std::vector<QPointF> points;
  for (int i = 0; i < path.elementCount(); ++i)
    points.emplace_back(path.elementAt(i));
  return points;
}

TEST(KRSeqBlockViewTest, ShapesAreInsetFourAndEightWithATabForTies) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  EXPECT_EQ(corners(block.bkgNormal().path),
            (std::vector<QPointF>{{4, 4}, {52, 4}, {52, 92}, {4, 92}, {4, 4}}));
  EXPECT_EQ(corners(block.bkgTie().path),
            (std::vector<QPointF>{
                {4, 4}, {52, 4}, {52, 46}, {60, 50}, {52, 54}, {52, 92}, {4, 92}, {4, 4}}));
  EXPECT_EQ(block.labelFrame(), QRectF(6, 6, 48, 88));
  EXPECT_EQ(block.labelFont().pixelSize(), 14);
  EXPECT_EQ(block.labelFont().weight(), QFont::ExtraLight);

  // Rebuilt on resize; the tab is drawn into the right inset at mid-height only.
  KRStepSequenceStep tied;
  tied.setTie(true);
  block.setStep(tied);
  block.resize(40, 80);
  const QImage image = block.grab().toImage();
  EXPECT_EQ(block.bkgTie().path.boundingRect(), QRectF(4, 4, 36, 68));
  EXPECT_NE(image.pixel(36, 40), image.pixel(1, 1));
  EXPECT_EQ(image.pixel(36, 20), image.pixel(1, 1));
}

TEST(KRSeqBlockViewTest, NoteNamesCountOctavesFromZeroInKeyOrder) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  KRStepSequenceStep step;
  for (int note : {67, 0, 61, 127, -1}) {
    step.keys().push_back(std::make_shared<KRStepSequenceKey>());
    step.keys().back()->setNumber(note);
  }
  block.setStep(step);
  // A negative number still gets a name instead of reading outside the table.
  EXPECT_EQ(block.labelText(), "G5 C0 C#5 G10 B0 ");
}

}  // namespace
