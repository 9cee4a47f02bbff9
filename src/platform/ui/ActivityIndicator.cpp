#include "platform/ui/ActivityIndicator.h"

#include <QPainter>

namespace platform {

ActivityIndicator::ActivityIndicator(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_TranslucentBackground);
  timer_.setInterval(80);
  connect(&timer_, &QTimer::timeout, this, [this] {
    step_ = (step_ + 1) % 12;
    update();
  });
}

void ActivityIndicator::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (animating_) timer_.start();  // only while it can be seen: no idle CPU otherwise
}

void ActivityIndicator::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  timer_.stop();
}

void ActivityIndicator::paintEvent(QPaintEvent*) {
  if (!animating_) return;
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(width() / 2.0, height() / 2.0);
  const qreal radius = std::min(width(), height()) / 2.0;
  for (int bar = 0; bar < 12; ++bar) {
    const int age = (step_ - bar + 12) % 12;
    painter.setPen(
        QPen(QColor(255, 255, 255, 255 - age * 18), radius * 0.16, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(0, -radius * 0.45), QPointF(0, -radius * 0.9));
    painter.rotate(-30.0);
  }
}

}  // namespace platform
