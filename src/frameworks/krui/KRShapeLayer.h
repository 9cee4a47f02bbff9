#pragma once

// A filled and outlined path drawn at an offset: what the widgets keep for each shape they show,
// painted in order in their paintEvent. Changing a field and repainting is the whole update; there
// is no animation.

#include <QColor>
#include <QPainterPath>
#include <QPointF>

class QPainter;

struct KRShapeLayer {
  QPainterPath path;  // in the layer's own coordinates
  QPointF position;   // where the layer's origin sits in the widget
  QColor fillColor = Qt::transparent;
  QColor strokeColor = Qt::transparent;
  qreal lineWidth = 0.0;  // 0 draws no outline
  bool hidden = false;

  void paint(QPainter& painter) const;
};
