#include "keyboard/KRWheelControl.h"

#include <QPainter>

namespace {

constexpr qreal kCornerRadius = 5.0;

QPainterPath roundedRect(const QRectF& bounds) {
  QPainterPath path;
  path.addRoundedRect(bounds, kCornerRadius, kCornerRadius);
  return path;
}

}  // namespace

KRWheelControl::KRWheelControl(const QRect& frame, QWidget* parent) : KRControl(parent) {
  setGeometry(frame);
  setupView();
}

KRWheelControl::KRWheelControl(QWidget* parent) : KRControl(parent) {
  setupView();
}

void KRWheelControl::setupView() {
  width_ = truncateToInt32(width());
  resetToZero_ = false;

  bkgLayer_ = KRShapeLayer{};
  bkgLayer_.path = roundedRect(rect());
  bkgLayer_.fillColor = QColor::fromRgbF(0.212f, 0.251f, 0.286f, 1.0f);
  bkgLayer_.strokeColor = Qt::white;
  bkgLayer_.lineWidth = 0.0;

  thumbLayer_ = KRShapeLayer{};
  QPainterPath thumb;
  thumb.addRect(width() * 0.5 - width_ / 2, 0.0, width_, kThumbHeight);
  thumbLayer_.path = thumb;
  thumbLayer_.fillColor = QColor::fromRgbF(0.8f, 0.8f, 0.8f, 1.0f);
  thumbLayer_.strokeColor = Qt::transparent;
  thumbLayer_.lineWidth = 0.0;
  update();
}

void KRWheelControl::setValue(float value) {
  if (value < 0.0f) value = 0.0f;
  if (value > 1.0f) value = 1.0f;
  value_ = value;
  thumbLayer_.position = QPointF(thumbLayer_.position.x(), thumbTop());
  update();
}

qreal KRWheelControl::thumbTop() const {
  return (height() - kThumbHeight) * (1.0f - value_);
}

void KRWheelControl::resizeEvent(QResizeEvent* /*event*/) {
  bkgLayer_.path = roundedRect(rect());
  thumbLayer_.position = QPointF(thumbLayer_.position.x(), thumbTop());
}

void KRWheelControl::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  bkgLayer_.paint(painter);
  thumbLayer_.paint(painter);
}

void KRWheelControl::beginTracking(QPointF point) {
  touchVal_ = value_;
  startX_ = static_cast<float>(point.y());
}

void KRWheelControl::continueTracking(QPointF point) {
  const float y = static_cast<float>(point.y());
  const float before = value_;
  setValue(static_cast<float>(1.0 - y / (height() - kThumbHeight)));
  if (value_ != before) sendValueChanged();
}

void KRWheelControl::endTracking() {
  if (!resetToZero_) return;
  setValue(0.5f);
  sendValueChanged();
}
