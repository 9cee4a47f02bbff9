#include "sequencer/KRSeqBlockView.h"

#include <QPainter>
#include <QTextLayout>
#include <vector>

#include "platform/ui/Palette.h"
#include "sequencer/KRStepSequenceStep.h"

namespace {

// Insets of the block's shape: 4 at left and top, 8 at right and bottom, so neighbouring blocks
// stand 12 points apart.
constexpr float kNear = 4.0f;
constexpr float kFar = 8.0f;
constexpr qreal kLabelInset = 6.0;

const QColor kSelectedOutline = platform::palette::kAccent;

}  // namespace

KRSeqBlockView::KRSeqBlockView(const QRect& frame, QWidget* parent) : QWidget(parent) {
  setGeometry(frame);
  setAttribute(Qt::WA_TransparentForMouseEvents);

  for (KRShapeLayer* shape : {&bkgNormal_, &bkgTie_}) {
    shape->fillColor = fillColorEmpty_;
    shape->lineWidth = 0.5;
    shape->strokeColor = strokeColor_;
  }
  bkgTie_.hidden = true;
  buildPaths();

  labelFont_ = font();
  labelFont_.setPixelSize(14);  // points are pixels here
  labelFont_.setWeight(QFont::ExtraLight);
}

QRectF KRSeqBlockView::labelFrame() const {
  return QRectF(kLabelInset, kLabelInset, width() - 2 * kLabelInset, height() - 2 * kLabelInset);
}

void KRSeqBlockView::buildPaths() {
  const float w = static_cast<float>(width());
  const float h = static_cast<float>(height());

  QPainterPath normal(QPointF(kNear, kNear));
  normal.lineTo(w - kFar, kNear);
  normal.lineTo(w - kFar, h - kFar);
  normal.lineTo(kNear, h - kFar);
  normal.closeSubpath();
  bkgNormal_.path = normal;

  // The tab: 8 points high, its tip on the block's right edge at mid-height.
  QPainterPath tie(QPointF(kNear, kNear));
  tie.lineTo(w - kFar, kNear);
  tie.lineTo(w - kFar, h / 2 - 4);
  tie.lineTo(w, h / 2);
  tie.lineTo(w - kFar, h / 2 + 4);
  tie.lineTo(w - kFar, h - kFar);
  tie.lineTo(kNear, h - kFar);
  tie.closeSubpath();
  bkgTie_.path = tie;
}

void KRSeqBlockView::setStep(const KRStepSequenceStep& step) {
  bkgTie_.hidden = !step.tie();
  bkgNormal_.hidden = step.tie();
  if (step.keys().empty()) {
    labelText_.clear();
    setShapesFill(fillColorEmpty_);
  } else {
    setShapesFill(fillColorNonEmpty_);
    labelText_.clear();
    for (const auto& key : step.keys()) {
      const int number = key->number();
      // The remainder keeps the sign of the number; names exist for 0..11 only.
      const int pitchClass = ((number % 12) + 12) % 12;
      labelText_ += QStringLiteral("%1%2 ").arg(noteNames_[pitchClass]).arg(number / 12);
    }
  }
  update();
}

void KRSeqBlockView::setSelected(bool selected) {
  if (selected) {
    setShapesOutline(kSelectedOutline, 1.0);
  } else {
    setShapesOutline(Qt::black, 0.5);
  }
  update();
}

void KRSeqBlockView::setShapesFill(const QColor& color) {
  bkgNormal_.fillColor = color;
  bkgTie_.fillColor = color;
}

void KRSeqBlockView::setShapesOutline(const QColor& color, qreal lineWidth) {
  for (KRShapeLayer* shape : {&bkgNormal_, &bkgTie_}) {
    shape->strokeColor = color;
    shape->lineWidth = lineWidth;
  }
}

void KRSeqBlockView::resizeEvent(QResizeEvent* /*event*/) {
  buildPaths();
}

void KRSeqBlockView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  bkgNormal_.paint(painter);
  bkgTie_.paint(painter);
  paintLabel(painter);
}

// White, centred, word-wrapped over at most four lines; text beyond the fourth line is not shown.
void KRSeqBlockView::paintLabel(QPainter& painter) const {
  if (labelText_.isEmpty()) return;
  const QRectF frame = labelFrame();
  QTextLayout layout(labelText_, labelFont_);
  QTextOption option(Qt::AlignHCenter);
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  layout.setTextOption(option);

  std::vector<QTextLine> lines;
  qreal height = 0.0;
  layout.beginLayout();
  while (lines.size() < kMaxLabelLines) {
    QTextLine line = layout.createLine();
    if (!line.isValid()) break;
    line.setLineWidth(frame.width());
    line.setPosition(QPointF(0.0, height));
    height += line.height();
    lines.push_back(line);
  }
  layout.endLayout();

  painter.save();
  painter.setPen(Qt::white);
  painter.setClipRect(frame);
  const QPointF origin(frame.left(), frame.top() + (frame.height() - height) / 2);
  for (const QTextLine& line : lines)
    line.draw(&painter, origin);
  painter.restore();
}
