#include "sequencer/KRSeqTrackView.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "frameworks/krui/KRControl.h"
#include "frameworks/krui/KRShapeLayer.h"
#include "platform/foundation/Log.h"
#include "sequencer/KRSeqBlockView.h"
#include "sequencer/KRStepSequence.h"

// The playhead: a green translucent rectangle covering the inner rectangle of one block. It is a
// child widget raised above the blocks so that it is drawn over them, and it lets the pointer
// through to the grid.
class KRSeqTrackView::Playhead : public QWidget {
 public:
  explicit Playhead(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    layer_.fillColor = QColor::fromRgbF(0.0f, 1.0f, 0.0f, 0.3f);
  }

  // The rectangle inset like a block's shape, for a block cw wide and h high.
  void setBlockSize(std::int32_t cw, std::int32_t h) {
    QPainterPath path;
    path.addRect(4, 4, cw - 12, h - 12);
    layer_.path = path;
    resize(std::max(cw, 0), std::max(h, 0));
    update();
  }
  const QPainterPath& path() const { return layer_.path; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    layer_.paint(painter);
  }

 private:
  KRShapeLayer layer_;
};

KRSeqTrackView::KRSeqTrackView(const QRect& frame, QWidget* parent) : QWidget(parent) {
  setGeometry(frame);
  layoutGeometry();
  for (int i = 0; i < kBlockCount; ++i) {
    auto* block = new KRSeqBlockView(QRect(cw_ * i, 0, cw_, h_), this);
    blocks_.push_back(block);
    // Only block 0 gets an outline now; the others keep the transparent initial outline until the
    // selection first changes.
    if (i == 0) block->setSelected(true);
  }
  playheadLayer_ = new Playhead(this);
  playheadLayer_->setBlockSize(cw_, h_);
  playheadLayer_->move(0, 0);
  playheadLayer_->raise();
}

void KRSeqTrackView::layoutGeometry() {
  w_ = width();
  h_ = height();
  cw_ = w_ / kBlockCount;
}

void KRSeqTrackView::resizeEvent(QResizeEvent* /*event*/) {
  layoutGeometry();
  for (int i = 0; i < static_cast<int>(blocks_.size()); ++i) {
    blocks_[i]->setGeometry(cw_ * i, 0, cw_, h_);
  }
  // The playhead's shape follows the new size; its position waits for the next
  // setPlayheadPosition.
  playheadLayer_->setBlockSize(cw_, h_);
}

void KRSeqTrackView::setStepSequence(std::shared_ptr<KRStepSequence> sequence) {
  stepSeq_ = std::move(sequence);
  if (stepSeq_) stepSeq_->setDelegate(this);
}

void KRSeqTrackView::sequenceUpdatedAtRange(platform::Range range) {
  if (!stepSeq_) return;
  const std::uint64_t end = range.location + range.length;
  if (!(range.location < end)) return;  // empty or wrapped around
  if (end > static_cast<std::uint64_t>(kBlockCount)) {
    platform::log("KRSeqTrackView: ignored an update of steps {} to {}; the grid has 16 steps",
                  range.location, end - 1);
    return;
  }
  for (std::uint64_t i = range.location; i < end; ++i) {
    const auto index = static_cast<std::int32_t>(i);
    blocks_[i]->setStep(stepSeq_->stepAtIndex(index));
  }
}

void KRSeqTrackView::updateSelection(std::int32_t from, std::int32_t to) {
  if (from == selStart_ && to == selEnd_) return;
  selStart_ = from;
  selEnd_ = to;
  if (selStart_ < 0) selStart_ = 0;
  if (to >= kBlockCount) selEnd_ = kBlockCount - 1;
  for (std::int32_t i = 0; i < kBlockCount; ++i) {
    blocks_[i]->setSelected(selStart_ <= i && i <= selEnd_);
  }
}

platform::Range KRSeqTrackView::selectionRange() const {
  // The length is computed in 32 bits (wrapping like the hardware does) and then sign-extended.
  const auto length = static_cast<std::int32_t>(static_cast<std::uint32_t>(selEnd_) -
                                                static_cast<std::uint32_t>(selStart_) + 1u);
  return platform::Range{static_cast<std::uint64_t>(static_cast<std::int64_t>(selStart_)),
                         static_cast<std::uint64_t>(static_cast<std::int64_t>(length))};
}

void KRSeqTrackView::setPlayheadPosition(std::int32_t step) {
  playheadLayer_->move(truncateToInt32(static_cast<double>(cw_) * step), 0);
}

QPoint KRSeqTrackView::playheadPosition() const {
  return playheadLayer_->pos();
}

QPainterPath KRSeqTrackView::playheadPath() const {
  return playheadLayer_->path();
}

void KRSeqTrackView::setCell(std::int32_t /*cell*/, std::int32_t /*index*/) {}

std::int32_t KRSeqTrackView::stepIndexAt(qreal x) const {
  const auto scaled = static_cast<float>(x / static_cast<double>(w_) * 16.0);
  return truncateToInt32(std::floor(scaled));
}

void KRSeqTrackView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || w_ <= 0) return;
  const std::int32_t step = stepIndexAt(event->position().x());
  updateSelection(step, step);
}

void KRSeqTrackView::mouseMoveEvent(QMouseEvent* event) {
  if (!(event->buttons() & Qt::LeftButton) || w_ <= 0) return;
  updateSelection(selStart_, stepIndexAt(event->position().x()));
}

void KRSeqTrackView::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || w_ <= 0) return;
  updateSelection(selStart_, stepIndexAt(event->position().x()));
}
