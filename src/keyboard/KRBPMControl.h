#pragma once

// The tempo field: shows "<  120 BPM  >" and changes the tempo while the user drags sideways,
// 3 beats per minute for every 10 points, relative to where the drag began. The tempo stays
// within minValue..maxValue (40..200).

#include <QPointF>
#include <QRect>
#include <cstdint>

#include "frameworks/krui/KRControl.h"

class QLabel;

class KRBPMControl : public KRControl {
  Q_OBJECT

 public:
  // Places the control at `frame` and sets it up from that frame's size.
  explicit KRBPMControl(const QRect& frame, QWidget* parent = nullptr);
  // As an interface file creates it: set up from the size the widget has when it is made.
  explicit KRBPMControl(QWidget* parent = nullptr);

  // Sets the limits, builds the label and sets the tempo to 120.
  void setupView();

  std::int32_t value() const { return value_; }
  // Clamps to the limits and stores; rewrites the label only when the value changes. Reports
  // nothing.
  void setValue(std::int32_t value);
  std::int32_t minValue() const { return minValue_; }
  // Changing a limit does not re-clamp the current value.
  void setMinValue(std::int32_t value) { minValue_ = value; }
  std::int32_t maxValue() const { return maxValue_; }
  void setMaxValue(std::int32_t value) { maxValue_ = value; }

  const QLabel* label() const { return label_; }

 protected:
  void beginTracking(QPointF point) override;
  void continueTracking(QPointF point) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  QLabel* label_ = nullptr;  // a child widget, owned by Qt
  std::int32_t touchVal_ = 0;
  float startX_ = 0.0f;
  std::int32_t value_ = 0;
  std::int32_t minValue_ = 0;
  std::int32_t maxValue_ = 0;
};
