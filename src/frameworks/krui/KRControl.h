#pragma once

// Base of the drag controls: a widget with a value that the user changes by touch or mouse.
//
// The controls emit valueChanged() only from their own touch handling, never when code sets the
// value. Screens connect to it with addTarget(target, action): the action runs after each change
// for as long as `target` lives, e.g.
//   pitchWheel->addTarget(this, [this] { pitchWheelModified(); });

#include <QPointF>
#include <QWidget>
#include <cstdint>
#include <functional>

#include "platform/foundation/Numbers.h"

class KRControl : public QWidget {
  Q_OBJECT

 public:
  using QWidget::QWidget;

  // Runs `action` on every value change made by the user until `target` is destroyed.
  void addTarget(QObject* target, std::function<void()> action);

 signals:
  void valueChanged();

 protected:
  void sendValueChanged() { emit valueChanged(); }

  // Touch tracking, as the pointer events below drive it: a left-button press begins a touch,
  // moves continue it, and the release ends it. Hiding the control while it is held cancels the
  // touch, which ends it the same way.
  virtual void beginTracking(QPointF point) { continueTracking(point); }
  virtual void continueTracking(QPointF /*point*/) {}
  virtual void endTracking() {}

  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  bool tracking_ = false;
};

using platform::truncateToInt32;
