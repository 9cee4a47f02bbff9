#pragma once

// Base of the drag controls: a widget with a value that the user changes by touch or mouse.
//
// The controls emit valueChanged() only from their own touch handling, never when code sets the
// value. Screens connect to it with addTarget(target, action): the action runs after each change
// for as long as `target` lives, e.g.
//   pitchWheel->addTarget(this, [this] { pitchWheelModified(); });

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
};

using platform::truncateToInt32;
