// Renders the widgets in their main states to PNG files: widget_gallery OUTPUT_FOLDER.
// Run it with QT_QPA_PLATFORM=offscreen to render without a display.

#include <QApplication>
#include <QDir>
#include <QKeyEvent>
#include <QPixmap>
#include <cstdio>
#include <memory>
#include <vector>

#include "frameworks/krui/KRPianoView.h"
#include "frameworks/krui/KRSlider.h"
#include "keyboard/KRBPMControl.h"
#include "keyboard/KRWheelControl.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRStepSequence.h"

namespace {

// A dark panel like the host window's background, holding the widgets of one picture.
std::unique_ptr<QWidget> panel(int width, int height) {
  auto widget = std::make_unique<QWidget>();
  widget->resize(width, height);
  QPalette palette = widget->palette();
  palette.setColor(QPalette::Window, QColor(33, 36, 38));
  widget->setPalette(palette);
  widget->setAutoFillBackground(true);
  return widget;
}

bool save(QWidget& widget, const QDir& folder, const char* name) {
  const QString path = folder.filePath(QString::fromUtf8(name));
  if (!widget.grab().save(path)) {
    std::fprintf(stderr, "widget_gallery: cannot write %s\n", qPrintable(path));
    return false;
  }
  std::printf("%s\n", qPrintable(path));
  return true;
}

KRStepSequenceKeyArray keys(std::vector<int> notes) {
  KRStepSequenceKeyArray result;
  for (int note : notes) {
    auto key = std::make_shared<KRStepSequenceKey>();
    key->setNumber(note);
    key->setVelocity(0.8f);
    result.push_back(key);
  }
  return result;
}

void holdComputerKeys(QWidget& piano, std::vector<Qt::Key> keys) {
  for (Qt::Key key : keys) {
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QApplication::sendEvent(&piano, &press);
  }
}

bool wheelsAndTempo(const QDir& folder) {
  auto window = panel(420, 220);
  const float values[] = {0.5f, 0.0f, 0.8f};
  for (int i = 0; i < 3; ++i) {
    auto* wheel = new KRWheelControl(QRect(10 + 50 * i, 10, 40, 200), window.get());
    wheel->setValue(values[i]);
  }
  auto* tempo = new KRBPMControl(QRect(170, 40, 240, 40), window.get());
  (void)tempo;
  auto* slow = new KRBPMControl(QRect(170, 100, 240, 40), window.get());
  slow->setValue(87);
  auto* gate = new KRSlider(window.get());
  gate->setGeometry(170, 160, 240, 24);
  gate->setValue(0.35f);
  return save(*window, folder, "controls.png");
}

// The sequencer row with chords, ties, rests, a selection and the playhead.
bool stepGrid(const QDir& folder, const char* name, int width, int height) {
  auto window = panel(width, height);
  auto sequence = std::make_shared<KRStepSequence>();
  auto* grid = new KRSeqTrackView(QRect(0, 0, width, height), window.get());
  grid->setStepSequence(sequence);
  sequence->setKeysToRange(keys({60, 64, 67}), {0, 3});
  sequence->setTieAtRange(true, {1, 1});
  sequence->setKeysToRange(keys({62, 66, 69, 72, 74, 76, 78, 79, 81, 83}), {4, 1});
  sequence->setKeysToRange(keys({57}), {5, 1});
  sequence->setTieAtRange(true, {7, 2});
  sequence->setKeysToRange(keys({55, 59}), {9, 2});
  sequence->setTieAtRange(true, {9, 1});
  sequence->setKeysToRange(keys({48}), {13, 1});
  grid->updateSelection(4, 6);
  grid->setPlayheadPosition(9);
  return save(*window, folder, name);
}

bool keyboard(const QDir& folder, const char* name, int keyCount, QSize size,
              std::vector<Qt::Key> held) {
  auto window = panel(size.width(), size.height());
  auto* piano = new KRPianoView(window.get());
  piano->setGeometry(QRect(QPoint(0, 0), size));
  piano->setNumKeysVisible(keyCount);
  piano->refreshKeyboard();
  holdComputerKeys(*piano, held);
  return save(*window, folder, name);
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: widget_gallery OUTPUT_FOLDER\n");
    return 2;
  }
  QDir folder(QString::fromLocal8Bit(argv[1]));
  if (!folder.mkpath(".")) {
    std::fprintf(stderr, "widget_gallery: cannot create %s\n", argv[1]);
    return 1;
  }
  bool ok = wheelsAndTempo(folder);
  ok = stepGrid(folder, "step_grid_tablet.png", 1024, 128) && ok;
  ok = stepGrid(folder, "step_grid_phone.png", 667, 100) && ok;
  ok = keyboard(folder, "keyboard_15.png", 15, QSize(1024, 180),
                {Qt::Key_Z, Qt::Key_C, Qt::Key_B, Qt::Key_2}) &&
       ok;
  ok = keyboard(folder, "keyboard_22.png", 22, QSize(1024, 180), {}) && ok;
  ok = keyboard(folder, "keyboard_8.png", 8, QSize(667, 160), {Qt::Key_H}) && ok;
  return ok ? 0 : 1;
}
