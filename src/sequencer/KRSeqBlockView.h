#pragma once

// One step of the grid: a rounded-off rectangle inset 4 points at left and top and 8 at right and
// bottom, or for a tied step the same rectangle with a tab pointing to the next step; filled one
// way for a rest and another for a chord, outlined when selected, and labelled with the chord's
// note names ("C5 E5 G5 ", middle C being C5).
//
// The block ignores the pointer: the grid above it handles selection.

#include <QColor>
#include <QFont>
#include <QRect>
#include <QString>
#include <QWidget>
#include <array>

#include "frameworks/krui/KRShapeLayer.h"

class KRStepSequenceStep;

class KRSeqBlockView : public QWidget {
 public:
  static constexpr int kMaxLabelLines = 4;

  explicit KRSeqBlockView(const QRect& frame, QWidget* parent = nullptr);

  // Shows the step's tie (tab shape), fill (rest or chord) and note names.
  void setStep(const KRStepSequenceStep& step);
  // Amber outline when selected, thin black outline otherwise.
  void setSelected(bool selected);

  const KRShapeLayer& bkgNormal() const { return bkgNormal_; }
  const KRShapeLayer& bkgTie() const { return bkgTie_; }
  const QString& labelText() const { return labelText_; }
  const QFont& labelFont() const { return labelFont_; }
  QRectF labelFrame() const;

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  void buildPaths();
  void setShapesFill(const QColor& color);
  void setShapesOutline(const QColor& color, qreal lineWidth);
  void paintLabel(QPainter& painter) const;

  KRShapeLayer bkgNormal_;
  KRShapeLayer bkgTie_;
  const QColor fillColorEmpty_ = QColor::fromRgbF(0.2669f, 0.3196f, 0.3536f, 0.5f);
  const QColor fillColorNonEmpty_ = QColor::fromRgbF(0.314f, 0.376f, 0.416f, 1.0f);
  const QColor strokeColor_ = Qt::transparent;
  QString labelText_;
  QFont labelFont_;
  static constexpr std::array<const char*, 12> noteNames_ = {"C",  "C#", "D",  "D#", "E",  "F",
                                                             "F#", "G",  "G#", "A",  "A#", "B"};
};
