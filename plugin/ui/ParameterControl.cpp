#include "ui/ParameterControl.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <cmath>

#include "ui/EditorLook.h"
#include "ui/ParameterText.h"

namespace pelma::ui {
namespace {

constexpr qreal kDragPixelsForFullRange = 200;
constexpr qreal kKnobSweepDegrees = 270;

}  // namespace

ParameterControl::ParameterControl(std::size_t index, QWidget* parent)
    : QWidget(parent), index_(index), value_(kParameters[index].defaultValue) {
  setObjectName(QString::fromUtf8(kParameters[index].symbol.data(),
                                  static_cast<qsizetype>(kParameters[index].symbol.size())));
  setToolTip(QString::fromUtf8(kParameters[index].name.data(),
                               static_cast<qsizetype>(kParameters[index].name.size())));
  setCursor(isSwitch() ? Qt::PointingHandCursor : Qt::SizeVerCursor);
}

bool ParameterControl::isSwitch() const {
  return kParameters[index_].kind == Kind::Choice;
}

void ParameterControl::setValue(float value) {
  if (held_) return;
  value = clampParameter(index_, value);
  if (value == value_) return;
  value_ = value;
  update();
}

void ParameterControl::setMetrics(int knobDiameter, int fontPixels) {
  knobDiameter_ = knobDiameter;
  fontPixels_ = fontPixels;
  update();
}

QRect ParameterControl::labelRect() const {
  const int top = knobDiameter_ + fontPixels_ / 3;
  return QRect(0, top, width(), height() - top);
}

void ParameterControl::changeByUser(float value) {
  value = clampParameter(index_, value);
  if (value == value_) return;
  value_ = value;
  update();
  emit valueChanged();
}

void ParameterControl::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || held_) return;
  held_ = true;
  if (isSwitch()) {
    const Parameter& p = kParameters[index_];
    changeByUser(value_ + 1 > p.maximum ? p.minimum : value_ + 1);
    return;
  }
  dragStartY_ = event->position().y();
  dragStartPosition_ = normalisedValue(index_, value_);
  update();
}

void ParameterControl::mouseMoveEvent(QMouseEvent* event) {
  if (!held_ || isSwitch()) return;
  const auto moved =
      static_cast<float>((dragStartY_ - event->position().y()) / kDragPixelsForFullRange);
  changeByUser(valueFromNormalised(index_, dragStartPosition_ + moved));
}

void ParameterControl::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) release();
}

void ParameterControl::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  release();
}

void ParameterControl::release() {
  if (!held_) return;
  held_ = false;
  update();
}

void ParameterControl::mouseDoubleClickEvent(QMouseEvent* event) {
  if (!isSwitch()) changeByUser(kParameters[index_].defaultValue);
  event->accept();
}

void ParameterControl::wheelEvent(QWheelEvent* event) {
  const int steps = event->angleDelta().y() / 120;
  if (steps == 0) return;
  const Parameter& p = kParameters[index_];
  if (p.kind == Kind::Continuous) {
    changeByUser(valueFromNormalised(index_, normalisedValue(index_, value_) + 0.02f * steps));
  } else {
    changeByUser(value_ + static_cast<float>(steps));
  }
  event->accept();
}

void ParameterControl::enterEvent(QEnterEvent*) {
  hovered_ = true;
  update();
}

void ParameterControl::leaveEvent(QEvent*) {
  hovered_ = false;
  update();
}

void ParameterControl::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF area((width() - knobDiameter_) / 2.0, 0, knobDiameter_, knobDiameter_);
  if (isSwitch()) {
    paintSwitch(painter, area);
  } else {
    paintKnob(painter, area);
  }
  QFont font = this->font();
  font.setPixelSize(fontPixels_);
  painter.setFont(font);
  const bool showValue = (held_ || hovered_) && !isSwitch();
  painter.setPen(showValue ? look::kAmber : look::kThumb);
  painter.drawText(labelRect(), Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap,
                   showValue ? valueText(index_, value_) : parameterLabel(index_));
}

void ParameterControl::paintKnob(QPainter& painter, QRectF area) {
  const qreal ring = std::max<qreal>(2.0, knobDiameter_ / 12.0);
  const QRectF arc = area.adjusted(ring, ring, -ring, -ring);
  const qreal start = 225;  // degrees, counter-clockwise from three o'clock
  const qreal position = normalisedValue(index_, value_);
  painter.setPen(QPen(look::kTrack, ring, Qt::SolidLine, Qt::RoundCap));
  painter.drawArc(arc, static_cast<int>(start * 16), static_cast<int>(-kKnobSweepDegrees * 16));
  // Bipolar parameters fill from the centre, the others from the left.
  const Parameter& p = kParameters[index_];
  const qreal from = p.minimum < 0 && p.maximum > 0 ? 0.5 : 0.0;
  painter.setPen(QPen(look::kAmber, ring, Qt::SolidLine, Qt::RoundCap));
  painter.drawArc(arc, static_cast<int>((start - from * kKnobSweepDegrees) * 16),
                  static_cast<int>(-(position - from) * kKnobSweepDegrees * 16));

  const QRectF cap = arc.adjusted(ring * 1.5, ring * 1.5, -ring * 1.5, -ring * 1.5);
  QLinearGradient shade(cap.topLeft(), cap.bottomLeft());
  shade.setColorAt(0, look::kTrack.lighter(130));
  shade.setColorAt(1, look::kBackgroundBottom);
  painter.setPen(QPen(Qt::black, 1));
  painter.setBrush(shade);
  painter.drawEllipse(cap);
  const qreal angle = (start - position * kKnobSweepDegrees) * M_PI / 180.0;
  const QPointF centre = cap.center();
  const qreal radius = cap.width() / 2.0;
  const QPointF direction(std::cos(angle), -std::sin(angle));
  painter.setPen(QPen(held_ ? look::kAmber : look::kThumb, std::max<qreal>(1.5, ring * 0.8),
                      Qt::SolidLine, Qt::RoundCap));
  painter.drawLine(centre + direction * radius * 0.35, centre + direction * radius * 0.85);
}

void ParameterControl::paintSwitch(QPainter& painter, QRectF area) {
  // A key cap showing the chosen label, with one light per choice under it.
  const Parameter& p = kParameters[index_];
  const int count = static_cast<int>(p.maximum - p.minimum) + 1;
  const QRectF cap(0.5, area.top() + area.height() * 0.18, width() - 1.0, area.height() * 0.46);
  painter.setPen(QPen(Qt::black, 1));
  painter.setBrush(look::kTrack);
  painter.drawRoundedRect(cap, 4, 4);
  QFont font = painter.font();
  font.setPixelSize(fontPixels_);
  font.setBold(true);
  painter.setFont(font);
  painter.setPen(look::kAmber);
  painter.drawText(cap, Qt::AlignCenter, valueText(index_, value_));
  const qreal light = std::max<qreal>(2.0, area.height() / 12.0);
  const qreal spacing = light * 2.2;
  const qreal lightsY = (cap.bottom() + area.bottom()) / 2;
  const qreal left = width() / 2.0 - spacing * (count - 1) / 2.0;
  painter.setPen(Qt::NoPen);
  for (int i = 0; i < count; ++i) {
    painter.setBrush(i == static_cast<int>(value_ - p.minimum) ? look::kAmber : look::kTrack);
    painter.drawEllipse(QPointF(left + spacing * i, lightsY), light / 2, light / 2);
  }
}

}  // namespace pelma::ui
