#include "frameworks/krui/KRControl.h"

#include <QHideEvent>
#include <QMouseEvent>

void KRControl::addTarget(QObject* target, std::function<void()> action) {
  connect(this, &KRControl::valueChanged, target, std::move(action));
}

void KRControl::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || tracking_) return;
  tracking_ = true;
  beginTracking(event->position());
}

void KRControl::mouseMoveEvent(QMouseEvent* event) {
  if (tracking_) continueTracking(event->position());
}

void KRControl::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !tracking_) return;
  tracking_ = false;
  endTracking();
}

void KRControl::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  if (!tracking_) return;
  tracking_ = false;
  endTracking();
}
