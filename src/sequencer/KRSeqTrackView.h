#pragma once

// The step grid: one row of 16 blocks, selection of consecutive steps by pressing and dragging,
// and a translucent green playhead over the current step. As the sequence's delegate it redraws
// the blocks of every range the sequence reports changed.
//
// Geometry is in whole points: the block width is the width / 16, rounded down, and any
// remainder stays empty at the right. The selection is not normalised: dragging left of the
// starting step leaves selEnd < selStart, shown as no selected block.

#include <QPainterPath>
#include <QPoint>
#include <QRect>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/foundation/Range.h"
#include "sequencer/KRStepSequenceDelegate.h"

class KRSeqBlockView;
class KRStepSequence;

class KRSeqTrackView : public QWidget, public KRStepSequenceDelegate {
 public:
  static constexpr int kBlockCount = 16;

  explicit KRSeqTrackView(const QRect& frame, QWidget* parent = nullptr);

  // Keeps the sequence and becomes its delegate (the sequence holds the grid weakly). Draws
  // nothing: the blocks show what they showed before.
  void setStepSequence(std::shared_ptr<KRStepSequence> sequence);
  const std::shared_ptr<KRStepSequence>& stepSequence() const { return stepSeq_; }

  void sequenceUpdatedAtRange(platform::Range range) override;

  // Stores and shows the selection; selStart is raised to 0 and selEnd lowered to 15.
  void updateSelection(std::int32_t from, std::int32_t to);
  // location = selStart, length = selEnd - selStart + 1 (sign-extended, so a reversed selection
  // reads as an empty or wrapped-around range that the sequence ignores).
  platform::Range selectionRange() const;
  std::int32_t selStart() const { return selStart_; }
  void setSelStart(std::int32_t step) { selStart_ = step; }
  std::int32_t selEnd() const { return selEnd_; }
  void setSelEnd(std::int32_t step) { selEnd_ = step; }

  // Moves the playhead over `step` at once. Not clamped: other steps put it outside the row.
  void setPlayheadPosition(std::int32_t step);
  // Where the playhead's origin sits, and its rectangle in its own coordinates.
  QPoint playheadPosition() const;
  QPainterPath playheadPath() const;

  // Kept for callers that expect it; it does nothing.
  void setCell(std::int32_t cell, std::int32_t index);

  const std::vector<KRSeqBlockView*>& blocks() const { return blocks_; }
  std::int32_t blockWidth() const { return cw_; }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;

 private:
  class Playhead;

  void layoutGeometry();
  // The step under horizontal position x, mapped over the full width (not 16 block widths).
  std::int32_t stepIndexAt(qreal x) const;

  std::vector<KRSeqBlockView*> blocks_;  // child widgets in step order, owned by Qt
  std::int32_t w_ = 0;
  std::int32_t h_ = 0;
  std::int32_t cw_ = 0;
  Playhead* playheadLayer_ = nullptr;  // a child widget above the blocks, owned by Qt
  std::shared_ptr<KRStepSequence> stepSeq_;
  std::int32_t selStart_ = 0;
  std::int32_t selEnd_ = 0;
};
