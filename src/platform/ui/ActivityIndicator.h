#pragma once

// A spinner: twelve white bars fading round a circle, turning while it is shown.

#include <QTimer>
#include <QWidget>

namespace platform {

class ActivityIndicator : public QWidget {
 public:
  explicit ActivityIndicator(QWidget* parent = nullptr);
  void startAnimating() { animating_ = true; }
  bool isAnimating() const { return animating_; }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  QTimer timer_;
  int step_ = 0;
  bool animating_ = false;
};

}  // namespace platform
