#include "frameworks/krui/KRSlider.h"
#include "platform/ui/Palette.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace {

const QColor kTrack(54, 64, 73);
const QColor kFilled = platform::palette::kAccent;
const QColor kThumb(204, 204, 204);

}  // namespace

KRSlider::KRSlider(QWidget* parent) : KRControl(parent) {}

void KRSlider::setValue(float value) {
  if (std::isnan(value)) value = 0.0f;
  value_ = std::clamp(value, 0.0f, 1.0f);
  update();
}

void KRSlider::continueTracking(QPointF point) {
  if (trackWidth() <= 0.0) return;
  const float before = value_;
  setValue(static_cast<float>((point.x() - trackLeft()) / trackWidth()));
  if (value_ != before) sendValueChanged();
}

void KRSlider::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const qreal middle = height() / 2.0;
  const qreal thumbX = trackLeft() + trackWidth() * value_;
  painter.setPen(QPen(kTrack, 4.0, Qt::SolidLine, Qt::RoundCap));
  painter.drawLine(QPointF(trackLeft(), middle), QPointF(trackLeft() + trackWidth(), middle));
  painter.setPen(QPen(kFilled, 4.0, Qt::SolidLine, Qt::RoundCap));
  painter.drawLine(QPointF(trackLeft(), middle), QPointF(thumbX, middle));
  painter.setPen(Qt::NoPen);
  painter.setBrush(kThumb);
  painter.drawEllipse(QPointF(thumbX, middle), kThumbRadius, kThumbRadius);
}
