#include "frameworks/krui/KRShapeLayer.h"

#include <QPainter>

void KRShapeLayer::paint(QPainter& painter) const {
  if (hidden) return;
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(position);
  painter.fillPath(path, fillColor);
  // A pen of width 0 would draw a one-pixel cosmetic line, so width 0 means no outline at all.
  if (lineWidth > 0.0 && strokeColor.alpha() > 0) {
    painter.strokePath(path, QPen(strokeColor, lineWidth));
  }
  painter.restore();
}
