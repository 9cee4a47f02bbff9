#include "frameworks/krui/KRGradientLayer.h"

#include <QLinearGradient>
#include <QPainter>

namespace {

QPointF inFrame(const QRectF& frame, QPointF unit) {
  return {frame.x() + unit.x() * frame.width(), frame.y() + unit.y() * frame.height()};
}

}  // namespace

void KRGradientLayer::paint(QPainter& painter) const {
  QLinearGradient gradient(inFrame(frame, startPoint), inFrame(frame, endPoint));
  gradient.setColorAt(0.0, startColor);
  gradient.setColorAt(1.0, endColor);
  painter.fillRect(frame, gradient);
  if (borderWidth > 0.0 && borderColor.alpha() > 0) {
    // The border lies inside the frame, as a layer's border does.
    const qreal inset = borderWidth / 2.0;
    painter.setPen(QPen(borderColor, borderWidth));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(frame.adjusted(inset, inset, -inset, -inset));
  }
}
