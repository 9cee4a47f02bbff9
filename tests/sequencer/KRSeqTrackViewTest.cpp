#include "sequencer/KRSeqTrackView.h"

#include <gtest/gtest.h>

#include <QTest>
#include <limits>
#include <memory>

#include "sequencer/KRSeqBlockView.h"
#include "sequencer/KRStepSequence.h"
#include "support/StepKeys.h"

using platform::Range;
using testing_support::stepKey;

namespace {

const QColor kAmber = QColor::fromRgbF(1.0f, 0.82f, 0.459f, 1.0f);

std::uint64_t asUnsigned(std::int64_t length) {
  return static_cast<std::uint64_t>(length);
}

// A 320 x 64 grid (blocks 20 wide) on a fresh sequence.
class KRSeqTrackViewTest : public ::testing::Test {
 protected:
  void SetUp() override { grid.setStepSequence(sequence); }

  void tap(int x) {
    QTest::mousePress(&grid, Qt::LeftButton, {}, QPoint(x, 30));
    QTest::mouseRelease(&grid, Qt::LeftButton, {}, QPoint(x, 30));
  }
  void drag(int fromX, int toX) {
    QTest::mousePress(&grid, Qt::LeftButton, {}, QPoint(fromX, 30));
    QTest::mouseMove(&grid, QPoint((fromX + toX) / 2, 30));
    QTest::mouseMove(&grid, QPoint(toX, 30));
    QTest::mouseRelease(&grid, Qt::LeftButton, {}, QPoint(toX, 30));
  }
  std::vector<int> amberBlocks() const {
    std::vector<int> result;
    for (int i = 0; i < 16; ++i) {
      if (grid.blocks()[i]->bkgNormal().strokeColor == kAmber) result.push_back(i);
    }
    return result;
  }

  std::shared_ptr<KRStepSequence> sequence = std::make_shared<KRStepSequence>();
  KRSeqTrackView grid{QRect(0, 0, 320, 64)};
};

TEST_F(KRSeqTrackViewTest, TapsAndDragsSelectConsecutiveStepsAndMayEndReversedOrBeyondTheEdges) {
  EXPECT_EQ(amberBlocks(), std::vector<int>{0});
  tap(319);
  EXPECT_EQ(grid.selectionRange(), (Range{15, 1}));
  EXPECT_EQ(amberBlocks(), std::vector<int>{15});
  drag(65, 145);
  EXPECT_EQ(grid.selectionRange(), (Range{3, 5}));
  EXPECT_EQ(amberBlocks(), (std::vector<int>{3, 4, 5, 6, 7}));

  drag(145, 65);
  EXPECT_EQ(grid.selectionRange(), (Range{7, asUnsigned(-3)}));
  EXPECT_TRUE(amberBlocks().empty());
  // Beyond the edges.
  drag(100, 500);
  EXPECT_EQ(grid.selectionRange(), (Range{5, 11}));
  drag(100, -30);  // floor(-1.5) = -2
  EXPECT_EQ(grid.selectionRange(), (Range{5, asUnsigned(-6)}));
  EXPECT_TRUE(amberBlocks().empty());
  grid.updateSelection(-4, 2);
  EXPECT_EQ(grid.selectionRange(), (Range{0, 3}));
}

TEST_F(KRSeqTrackViewTest, PointerMapsOverTheFullWidthNotSixteenBlocks) {
  grid.resize(330, 64);
  (void)grid.grab();  // delivers the resize
  EXPECT_EQ(grid.blockWidth(), 20);
  EXPECT_EQ(grid.blocks()[15]->geometry(), QRect(300, 0, 20, 64));
  tap(300);  // 300 / 330 * 16 = 14.5; blocks of 20 would say 15
  EXPECT_EQ(grid.selStart(), 14);
}

TEST_F(KRSeqTrackViewTest, PlayheadJumpsOverTheInnerRectangleOfItsStep) {
  grid.setPlayheadPosition(5);
  EXPECT_EQ(grid.playheadPosition(), QPoint(100, 0));
  // Drawn over the block: green shows there and not on the block beside it.
  const QImage image = grid.grab().toImage();
  EXPECT_GT(image.pixelColor(108, 20).green(), image.pixelColor(88, 20).green() + 20);
}

TEST_F(KRSeqTrackViewTest, BlocksFollowModelChanges) {
  sequence->setKeysToRange({stepKey(60), stepKey(64)}, Range{2, 1});
  sequence->setTieAtRange(true, Range{2, 1});
  const KRSeqBlockView* block = grid.blocks()[2];
  EXPECT_FALSE(block->bkgTie().hidden);
  EXPECT_TRUE(block->bkgNormal().hidden);
  EXPECT_EQ(block->labelText(), "C5 E5 ");
  EXPECT_EQ(grid.blocks()[3]->labelText(), "");

  sequence->clearStepsInRange(Range{2, 1});
  EXPECT_TRUE(block->bkgTie().hidden);
  EXPECT_FALSE(block->bkgNormal().hidden);
  EXPECT_EQ(block->labelText(), "");
}

// A selection dragged leftwards gives the model a wrapped range, which it passes on.
TEST_F(KRSeqTrackViewTest, IgnoresWrappedUpdates) {
  sequence->setKeysAtPosition({stepKey(62)}, 3);  // single edits tell the delegate too
  EXPECT_EQ(grid.blocks()[3]->labelText(), "D5 ");
  sequence->stepAtIndex(3).clear();
  grid.sequenceUpdatedAtRange(Range{3, std::numeric_limits<std::uint64_t>::max()});
  EXPECT_EQ(grid.blocks()[3]->labelText(), "D5 ");
}

}  // namespace
