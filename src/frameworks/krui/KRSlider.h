#pragma once

// A horizontal slider with a value from 0 to 1. Pressing or dragging puts the value under the
// pointer (left edge 0, right edge 1) and reports each change.

#include <QPointF>

#include "frameworks/krui/KRControl.h"

class KRSlider : public KRControl {
  Q_OBJECT

 public:
  explicit KRSlider(QWidget* parent = nullptr);

  float value() const { return value_; }
  // Clamps to 0..1 and repaints. Reports nothing.
  void setValue(float value);

 protected:
  void continueTracking(QPointF point) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  static constexpr qreal kThumbRadius = 8.0;

  qreal trackLeft() const { return kThumbRadius; }
  qreal trackWidth() const { return width() - 2 * kThumbRadius; }

  float value_ = 0.0f;
};
