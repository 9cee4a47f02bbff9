#pragma once

// A vertical wheel strip (pitch or modulation) with a horizontal thumb bar. The value, 0 to 1,
// follows the pointer's height directly: the bar's top edge sits under the pointer. With
// resetToZero on, releasing the wheel springs it back to the centre, 0.5, and reports that.

#include <QPointF>
#include <QRect>
#include <cstdint>

#include "frameworks/krui/KRControl.h"
#include "frameworks/krui/KRShapeLayer.h"

class KRWheelControl : public KRControl {
  Q_OBJECT

 public:
  static constexpr qreal kThumbHeight = 10.0;

  // Places the control at `frame` and sets it up from that frame's size.
  explicit KRWheelControl(const QRect& frame, QWidget* parent = nullptr);
  // As an interface file creates it: set up from the size the widget has when it is made.
  explicit KRWheelControl(QWidget* parent = nullptr);

  // Builds the background and the thumb from the current size. The thumb's width is taken here
  // once and never follows later resizes.
  void setupView();

  float value() const { return value_; }
  // Clamps to 0..1, stores and moves the thumb at once. Reports nothing.
  void setValue(float value);
  bool resetToZero() const { return resetToZero_; }
  void setResetToZero(bool reset) { resetToZero_ = reset; }

  const KRShapeLayer& bkgLayer() const { return bkgLayer_; }
  const KRShapeLayer& thumbLayer() const { return thumbLayer_; }

 protected:
  void beginTracking(QPointF point) override;
  void continueTracking(QPointF point) override;
  // Release and cancel alike.
  void endTracking() override;
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  // Top of the thumb bar for the current value.
  qreal thumbTop() const;

  float touchVal_ = 0.0f;  // value at touch-down; kept for inspection
  float startX_ = 0.0f;    // vertical position at touch-down; kept for inspection
  KRShapeLayer thumbLayer_;
  float value_ = 0.0f;
  KRShapeLayer bkgLayer_;
  std::int32_t width_ = 0;
  bool resetToZero_ = false;
};
