#include "platform/ui/Popover.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <algorithm>
#include <utility>

namespace platform {

Popover::Popover(QWidget* content, QSize preferredContentSize)
    : QFrame(nullptr, Qt::Popup | Qt::FramelessWindowHint), content_(content) {
  setAttribute(Qt::WA_DeleteOnClose);
  setAttribute(Qt::WA_TranslucentBackground);
  content_->setParent(this);
  content_->setGeometry(0, 0, preferredContentSize.width(), preferredContentSize.height());
  resize(preferredContentSize.width() + kArrowSize, preferredContentSize.height());
}

void Popover::present(QWidget* sourceView, const QRect& sourceRect) {
  const QPoint sourceCentre = sourceView->mapToGlobal(sourceRect.center());
  const QPoint sourceLeft =
      sourceView->mapToGlobal(QPoint(sourceRect.left(), sourceRect.center().y()));
  int y = sourceCentre.y() - height() / 2;
  if (const QScreen* screen = sourceView->screen()) {
    const QRect area = screen->availableGeometry();
    y = std::clamp(y, area.top(), std::max(area.top(), area.bottom() - height()));
  }
  arrowY_ = std::clamp(sourceCentre.y() - y, kArrowSize * 2, height() - kArrowSize * 2);
  move(sourceLeft.x() - width() - 2, y);
  show();
}

void Popover::closeEvent(QCloseEvent* event) {
  if (auto handler = std::exchange(closeHandler_, nullptr)) handler();
  QFrame::closeEvent(event);
}

void Popover::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  QPainterPath arrow;
  const qreal x = width() - kArrowSize;
  arrow.moveTo(x - 1, arrowY_ - kArrowSize);
  arrow.lineTo(width(), arrowY_);
  arrow.lineTo(x - 1, arrowY_ + kArrowSize);
  arrow.closeSubpath();
  painter.fillPath(arrow, Qt::black);
  painter.fillRect(QRect(0, 0, width() - kArrowSize, height()), Qt::black);
}

}  // namespace platform
