#include "keyboard/KRBPMControl.h"

#include <QLabel>
#include <QString>
#include <algorithm>
#include <cmath>

namespace {

constexpr double kBeatsPerPoint = 0.3;

QString tempoText(std::int32_t value) {
  return QStringLiteral("<  %1 BPM  >").arg(value);
}

}  // namespace

KRBPMControl::KRBPMControl(const QRect& frame, QWidget* parent) : KRControl(parent) {
  setGeometry(frame);
  setupView();
}

KRBPMControl::KRBPMControl(QWidget* parent) : KRControl(parent) {
  setupView();
}

void KRBPMControl::setupView() {
  minValue_ = 40;
  maxValue_ = 200;

  delete label_;
  label_ = new QLabel(this);
  label_->setGeometry(QRectF(0.0, height() * 0.5 - 8.0, width(), 16.0).toRect());
  label_->setAlignment(Qt::AlignCenter);
  label_->setTextFormat(Qt::PlainText);  // the text starts with '<'; it is never markup
  label_->setText(QStringLiteral("10 BPM"));
  label_->setWordWrap(false);
  // Sizes are in points, which are pixels here: the label keeps its size on any screen.
  QFont font = label_->font();
  font.setPixelSize(13);
  font.setWeight(QFont::Light);
  label_->setFont(font);
  label_->setStyleSheet(QStringLiteral(
      "QLabel { background-color: rgb(26, 34, 39); color: white; border-radius: 3px; }"));
  label_->show();

  setValue(120);
}

void KRBPMControl::setValue(std::int32_t value) {
  std::int32_t clamped = value >= minValue_ ? value : minValue_;
  clamped = clamped < maxValue_ ? clamped : maxValue_;
  if (clamped != value_) label_->setText(tempoText(clamped));
  value_ = clamped;
}

// The label sits left of the centre, its right edge on the control's horizontal middle. A
// control made taller than its design height of 44 (a strip grown with a large window) grows its
// label and text in proportion.
void KRBPMControl::resizeEvent(QResizeEvent* /*event*/) {
  const float w = static_cast<float>(width());
  const float k = std::max(1.0f, static_cast<float>(height()) / 44.0f);
  label_->setGeometry(
      QRectF(w * 0.5 - 100.0 * k, height() * 0.5 - 10.0 * k, 100.0 * k, 20.0 * k).toRect());
  QFont font = label_->font();
  font.setPixelSize(static_cast<int>(std::lround(13.0f * k)));
  label_->setFont(font);
}

void KRBPMControl::beginTracking(QPointF point) {
  touchVal_ = value_;
  startX_ = static_cast<float>(point.x());
}

void KRBPMControl::continueTracking(QPointF point) {
  const float distance = static_cast<float>(point.x()) - startX_;
  const std::int32_t before = value_;
  setValue(truncateToInt32(distance * kBeatsPerPoint + touchVal_));
  if (value_ != before) sendValueChanged();
}
