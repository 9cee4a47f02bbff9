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

KRStepSequenceStep stepWith(std::vector<int> notes, bool tie) {
  KRStepSequenceStep step;
  for (int note : notes) {
    auto key = std::make_shared<KRStepSequenceKey>();
    key->setNumber(note);
    key->setVelocity(0.5f);
    step.keys().push_back(key);
  }
  step.setTie(tie);
  return step;
}

const QColor kEmpty = QColor::fromRgbF(0.2669f, 0.3196f, 0.3536f, 0.5f);
const QColor kNonEmpty = QColor::fromRgbF(0.314f, 0.376f, 0.416f, 1.0f);

TEST(KRSeqBlockViewTest, ShapesAreInsetFourAndEightWithATabForTies) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  EXPECT_EQ(corners(block.bkgNormal().path),
            (std::vector<QPointF>{{4, 4}, {52, 4}, {52, 92}, {4, 92}, {4, 4}}));
  EXPECT_EQ(corners(block.bkgTie().path),
            (std::vector<QPointF>{
                {4, 4}, {52, 4}, {52, 46}, {60, 50}, {52, 54}, {52, 92}, {4, 92}, {4, 4}}));
  EXPECT_EQ(block.labelFrame(), QRectF(6, 6, 48, 88));
}

TEST(KRSeqBlockViewTest, StartsAsAnEmptyRestWithTransparentThinOutline) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  EXPECT_FALSE(block.bkgNormal().hidden);
  EXPECT_TRUE(block.bkgTie().hidden);
  EXPECT_EQ(block.bkgNormal().fillColor, kEmpty);
  EXPECT_EQ(block.bkgNormal().strokeColor.alpha(), 0);
  EXPECT_EQ(block.bkgNormal().lineWidth, 0.5);
  EXPECT_EQ(block.labelText(), "");
  EXPECT_EQ(block.labelFont().pixelSize(), 14);
  EXPECT_EQ(block.labelFont().weight(), QFont::ExtraLight);
}

TEST(KRSeqBlockViewTest, TiedChordShowsTabNonEmptyFillAndNoteNames) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  block.setStep(stepWith({60, 64}, true));
  EXPECT_TRUE(block.bkgNormal().hidden);
  EXPECT_FALSE(block.bkgTie().hidden);
  EXPECT_EQ(block.bkgTie().fillColor, kNonEmpty);
  EXPECT_EQ(block.bkgNormal().fillColor, kNonEmpty);
  EXPECT_EQ(block.labelText(), "C5 E5 ");

  block.setStep(KRStepSequenceStep{});
  EXPECT_FALSE(block.bkgNormal().hidden);
  EXPECT_TRUE(block.bkgTie().hidden);
  EXPECT_EQ(block.bkgNormal().fillColor, kEmpty);
  EXPECT_EQ(block.labelText(), "");
}

TEST(KRSeqBlockViewTest, NoteNamesCountOctavesFromZeroInKeyOrder) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  block.setStep(stepWith({67, 0, 61, 127, 11}, false));
  EXPECT_EQ(block.labelText(), "G5 C0 C#5 G10 B0 ");
  // A negative number still gets a name instead of reading outside the table.
  block.setStep(stepWith({-1}, false));
  EXPECT_EQ(block.labelText(), "B0 ");
}

TEST(KRSeqBlockViewTest, SelectionOutlinesInAmberAndDeselectionInThinBlack) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  block.setSelected(true);
  for (const KRShapeLayer* shape : {&block.bkgNormal(), &block.bkgTie()}) {
    EXPECT_EQ(shape->strokeColor, QColor::fromRgbF(1.0f, 0.82f, 0.459f, 1.0f));
    EXPECT_EQ(shape->lineWidth, 1.0);
  }
  block.setSelected(false);
  for (const KRShapeLayer* shape : {&block.bkgNormal(), &block.bkgTie()}) {
    EXPECT_EQ(shape->strokeColor, QColor(Qt::black));
    EXPECT_EQ(shape->lineWidth, 0.5);
  }
}

TEST(KRSeqBlockViewTest, ResizeRebuildsShapesAndDrawsTheTab) {
  KRSeqBlockView block(QRect(0, 0, 60, 100));
  block.setStep(stepWith({}, true));
  block.resize(40, 80);
  const QImage image = block.grab().toImage();  // lays out first
  EXPECT_EQ(block.bkgTie().path.boundingRect(), QRectF(4, 4, 36, 68));
  // The tab's tip reaches into the right inset at mid-height; above it the inset stays empty.
  const QColor background = image.pixelColor(1, 1);
  EXPECT_NE(image.pixelColor(36, 40), background);
  EXPECT_EQ(image.pixelColor(36, 20), background);
}

}  // namespace
