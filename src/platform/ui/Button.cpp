#include "platform/ui/Button.h"
#include "platform/ui/Palette.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>

namespace platform {
namespace {

const QColor kCapTop(66, 77, 87);
const QColor kCapBottom(44, 52, 59);
const QColor kCapPressed(86, 99, 111);
const QColor kLit = palette::kAccent;
const QColor kLitPressed = palette::kAccentPressed;
const QColor kRim(20, 24, 27);
const QColor kTitle = palette::kText;
const QColor kTitleOnLit(36, 30, 18);
const QColor kTitleDisabled(120, 128, 135);
constexpr qreal kCornerRadius = 6.0;

}  // namespace

Button::Button(QWidget* parent) : QAbstractButton(parent) {
  setFocusPolicy(Qt::NoFocus);  // the computer keyboard belongs to the piano
  setCursor(Qt::PointingHandCursor);
}

void Button::setSelected(bool selected) {
  if (selected == selected_) return;
  selected_ = selected;
  update();
}

QSize Button::sizeHint() const {
  const QFontMetrics metrics(font());
  return {std::max(44, metrics.horizontalAdvance(text()) + 20), 36};
}

QSize Button::minimumSizeHint() const {
  const QFontMetrics metrics(font());
  return {metrics.horizontalAdvance(text()) + 10, metrics.height() + 8};
}

void Button::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF cap = QRectF(rect()).adjusted(1.0, 1.0, -1.0, -1.0);
  QPainterPath path;
  path.addRoundedRect(cap, kCornerRadius, kCornerRadius);

  if (selected_) {
    painter.fillPath(path, isDown() ? kLitPressed : kLit);
  } else if (isDown()) {
    painter.fillPath(path, kCapPressed);
  } else {
    QLinearGradient shade(cap.topLeft(), cap.bottomLeft());
    shade.setColorAt(0.0, kCapTop);
    shade.setColorAt(1.0, kCapBottom);
    painter.fillPath(path, shade);
  }
  painter.setPen(QPen(kRim, 1.0));
  painter.drawPath(path);

  painter.setPen(!isEnabled() ? kTitleDisabled : selected_ ? kTitleOnLit : kTitle);
  painter.setFont(font());
  painter.drawText(cap, Qt::AlignCenter, text());
}

}  // namespace platform
