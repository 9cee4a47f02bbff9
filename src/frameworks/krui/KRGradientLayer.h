#pragma once

// A two-colour linear gradient over a rectangle, with an optional border: what the screens keep
// for their background and paint first in paintEvent. Start and end points are in unit
// coordinates of the frame ((0, 0) top left, (1, 1) bottom right).

#include <QColor>
#include <QPointF>
#include <QRectF>

class QPainter;

struct KRGradientLayer {
  QRectF frame;
  QPointF startPoint{0.5, 0.0};
  QPointF endPoint{0.5, 1.0};
  QColor startColor = Qt::black;
  QColor endColor = Qt::black;
  QColor borderColor = Qt::transparent;
  qreal borderWidth = 0.0;

  void paint(QPainter& painter) const;
};
