#pragma once

// A push button with a "selected" state, as the screens' toggle buttons use it: clicking does not
// change the state; the screen's handler flips it. Drawn in the instrument's look: a dark slate
// cap with a light title, lit amber while selected, brighter while pressed.

#include <QAbstractButton>

namespace platform {

class Button : public QAbstractButton {
  Q_OBJECT
  Q_PROPERTY(bool selected READ isSelected WRITE setSelected)

 public:
  explicit Button(QWidget* parent = nullptr);

  bool isSelected() const { return selected_; }
  void setSelected(bool selected);

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  bool selected_ = false;
};

}  // namespace platform
