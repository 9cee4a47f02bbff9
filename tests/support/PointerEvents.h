#pragma once

// Left-button mouse events at fractional positions, which QTest's integer positions cannot give.

#include <QApplication>
#include <QMouseEvent>
#include <QWidget>

namespace testing_support {

inline void sendMouse(QWidget* widget, QEvent::Type type, QPointF position, Qt::MouseButton button,
                      Qt::MouseButtons buttons) {
  QMouseEvent event(type, position, widget->mapToGlobal(position), button, buttons, Qt::NoModifier);
  QApplication::sendEvent(widget, &event);
}

inline void press(QWidget* widget, QPointF position) {
  sendMouse(widget, QEvent::MouseButtonPress, position, Qt::LeftButton, Qt::LeftButton);
}
inline void moveTo(QWidget* widget, QPointF position) {
  sendMouse(widget, QEvent::MouseMove, position, Qt::NoButton, Qt::LeftButton);
}
inline void release(QWidget* widget, QPointF position) {
  sendMouse(widget, QEvent::MouseButtonRelease, position, Qt::LeftButton, Qt::NoButton);
}

}  // namespace testing_support
