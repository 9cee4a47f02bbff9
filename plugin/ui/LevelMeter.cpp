#include "ui/LevelMeter.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

#include "ui/EditorLook.h"

namespace pelma::ui {
namespace {

constexpr float kFloorDb = -60, kCeilingDb = 6;

float segmentDb(int segment) {
  return kFloorDb + (kCeilingDb - kFloorDb) * static_cast<float>(segment + 1) /
                        static_cast<float>(LevelMeter::kSegments);
}

}  // namespace

LevelMeter::LevelMeter(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_OpaquePaintEvent);
}

void LevelMeter::setLevel(float peak) {
  const float db = peak > 0 && std::isfinite(peak) ? 20 * std::log10(peak) : kFloorDb - 1;
  int lit = 0;
  while (lit < kSegments && db >= segmentDb(lit) - (kCeilingDb - kFloorDb) / kSegments)
    ++lit;
  if (lit == lit_) return;
  // Only the segments that changed are painted again.
  const int first = std::min(lit, lit_);
  const int last = std::max(lit, lit_);
  lit_ = lit;
  const qreal pad = std::max(2.0, height() / 6.0);
  const qreal step = (width() - 2 * pad) / kSegments;
  update(QRectF(pad + first * step - 1, 0, (last - first) * step + 2, height()).toAlignedRect());
}

void LevelMeter::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), look::kPanel);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(Qt::black, 1));
  painter.setBrush(look::kPanel);
  painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
  const qreal pad = std::max(2.0, height() / 6.0);
  const qreal step = (width() - 2 * pad) / kSegments;
  painter.setPen(Qt::NoPen);
  for (int i = 0; i < kSegments; ++i) {
    const float db = segmentDb(i);
    QColor colour = db > 0 ? look::kMeterHigh : (db > -12 ? look::kAmber : look::kMeterLow);
    if (i >= lit_) colour = look::kTrack;
    painter.setBrush(colour);
    painter.drawRect(QRectF(pad + i * step, pad, step * 0.7, height() - 2 * pad));
  }
}

}  // namespace pelma::ui
