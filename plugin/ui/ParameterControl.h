#pragma once

// One of the instrument's parameters in the editor: a knob (drag up or down, wheel, double-click
// for the default) or, for a choice, a switch that steps through its labels on each click. The
// label shows under it; while the pointer is over it or it is held, its value shows instead.

#include <QWidget>
#include <cstddef>

namespace pelma::ui {

class ParameterControl : public QWidget {
  Q_OBJECT
  Q_PROPERTY(float value READ value)

 public:
  ParameterControl(std::size_t index, QWidget* parent);

  std::size_t index() const { return index_; }
  float value() const { return value_; }
  // Shows a value from the plug-in; ignored while the user holds the control.
  void setValue(float value);
  bool isHeld() const { return held_; }

  // The knob's diameter and the text size, chosen by the editor's layout.
  void setMetrics(int knobDiameter, int fontPixels);
  // The rectangle the label is drawn in, in this control's coordinates.
  QRect labelRect() const;

 signals:
  // Emitted only for changes the user makes, never for setValue.
  void valueChanged();

 protected:
  // A left-button press holds the control until its release; hiding it lets go.
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  bool isSwitch() const;
  void changeByUser(float value);
  void release();
  void paintKnob(QPainter& painter, QRectF area);
  void paintSwitch(QPainter& painter, QRectF area);

  std::size_t index_;
  float value_;
  bool held_ = false, hovered_ = false;
  float dragStartPosition_ = 0;
  qreal dragStartY_ = 0;
  int knobDiameter_ = 40, fontPixels_ = 11;
};

}  // namespace pelma::ui
