#pragma once

// Grows a strip of controls with its window. A strip is drawn for its interface file's size; on a
// larger screen its text and the fixed heights of its controls would stay small beside a large
// editor. StripScale remembers the design (size, style sheet font sizes, fonts set in code, fixed
// control sizes) and applies it times a scale: the smaller of the width and height ratios, at
// least 1 (never shrunk below the design) and at most kMaxScale.

#include <QFont>
#include <QPointer>
#include <QSize>
#include <QString>
#include <QWidget>
#include <vector>

namespace platform {

class StripScale {
 public:
  static constexpr double kMaxScale = 1.75;

  StripScale() = default;
  // Takes the design from `strip` as its interface file left it.
  explicit StripScale(QWidget* strip);

  // Scales the strip for its current size; does nothing while the scale stays the same.
  void apply();
  double scale() const { return scale_; }

 private:
  struct Control {
    QPointer<QWidget> widget;
    QSize minimum;
    QSize maximum;
    int fontPixels = 0;  // a pixel size set in code, 0 when the font is inherited
  };
  QPointer<QWidget> strip_;
  QSize designSize_;
  QString designStyleSheet_;
  std::vector<Control> controls_;
  double scale_ = 1.0;
};

}  // namespace platform
