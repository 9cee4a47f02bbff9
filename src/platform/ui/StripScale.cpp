#include "platform/ui/StripScale.h"

#include <QRegularExpression>
#include <algorithm>
#include <cmath>

namespace platform {
namespace {

constexpr int kUnbounded = QWIDGETSIZE_MAX;

int scaled(int pixels, double scale) {
  return pixels >= kUnbounded ? kUnbounded : static_cast<int>(std::lround(pixels * scale));
}

QSize scaled(QSize size, double scale) {
  return {scaled(size.width(), scale), scaled(size.height(), scale)};
}

// Every "font-size: Npx" of a style sheet, times `scale`.
QString scaledStyleSheet(const QString& sheet, double scale) {
  static const QRegularExpression fontSize(QStringLiteral("font-size:\\s*(\\d+)px"));
  QString result;
  qsizetype last = 0;
  for (auto it = fontSize.globalMatch(sheet); it.hasNext();) {
    const QRegularExpressionMatch match = it.next();
    result += sheet.mid(last, match.capturedStart() - last);
    result += QStringLiteral("font-size: %1px").arg(scaled(match.captured(1).toInt(), scale));
    last = match.capturedEnd();
  }
  return result + sheet.mid(last);
}

}  // namespace

StripScale::StripScale(QWidget* strip)
    : strip_(strip), designSize_(strip->size()), designStyleSheet_(strip->styleSheet()) {
  for (QWidget* child : strip->findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) {
    Control control{child, child->minimumSize(), child->maximumSize(), 0};
    if (child->testAttribute(Qt::WA_SetFont)) control.fontPixels = child->font().pixelSize();
    const bool fixedSomewhere = control.maximum.width() < kUnbounded ||
                                control.maximum.height() < kUnbounded || control.fontPixels > 0;
    if (fixedSomewhere) controls_.push_back(control);
  }
}

void StripScale::apply() {
  if (!strip_ || designSize_.isEmpty()) return;
  const double ratio = std::min(double(strip_->width()) / designSize_.width(),
                                double(strip_->height()) / designSize_.height());
  // In steps of 1/16, so a window dragged wider does not restyle the strip at every pixel.
  const double scale = std::round(std::clamp(ratio, 1.0, kMaxScale) * 16.0) / 16.0;
  if (scale == scale_) return;
  scale_ = scale;
  strip_->setStyleSheet(scaledStyleSheet(designStyleSheet_, scale));
  for (const Control& control : controls_) {
    if (!control.widget) continue;
    control.widget->setMinimumSize(scaled(control.minimum, scale));
    control.widget->setMaximumSize(scaled(control.maximum, scale));
    if (control.fontPixels > 0) {
      QFont font = control.widget->font();
      font.setPixelSize(scaled(control.fontPixels, scale));
      control.widget->setFont(font);
    }
  }
}

}  // namespace platform
