#pragma once

// The output level as a row of lit segments from -60 dB to +6 dB: green, amber from -12 dB,
// red above 0 dB. It repaints only when a segment changes, and paints every pixel of itself (on the
// header panel's colour), so the editor behind it is not repainted with it.

#include <QWidget>

namespace pelma::ui {

class LevelMeter : public QWidget {
  Q_OBJECT
  Q_PROPERTY(int litSegments READ litSegments)

 public:
  explicit LevelMeter(QWidget* parent);

  // A linear peak value, 1 = 0 dBFS.
  void setLevel(float peak);
  // Segments lit at the current level.
  int litSegments() const { return lit_; }
  static constexpr int kSegments = 22;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  int lit_ = 0;
};

}  // namespace pelma::ui
