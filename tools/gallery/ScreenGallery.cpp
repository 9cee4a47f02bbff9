// Renders the keyboard screen and the sequencer screen, in both layouts and their main states,
// the sessions screens and the shop's alert, to PNG files: screen_gallery OUTPUT_FOLDER. Run it
// with QT_QPA_PLATFORM=offscreen to render without a display.

#include <QApplication>
#include <QDir>
#include <QKeyEvent>
#include <QPainter>
#include <QPixmap>
#include <cstdio>
#include <vector>

#include "banks/KRBankStoreController.h"
#include "frameworks/krui/PianoView.h"
#include "keyboard/PianoViewController.h"
#include "menus/SessionsMenuController.h"
#include "platform/audio/AudioGraph.h"
#include "platform/ui/Button.h"
#include "platform/ui/DeviceIdiom.h"
#include "platform/ui/NavigationController.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRSequencerController.h"
#include "sequencer/KRStepSequence.h"

namespace {

using platform::UserInterfaceIdiom;

struct Layout {
  const char* name;
  UserInterfaceIdiom idiom;
  QSize keyboard;
  QSize sequencer;
};

const Layout kTablet{"tablet", UserInterfaceIdiom::pad, {1024, 256}, {1024, 128}};
const Layout kPhone{"phone", UserInterfaceIdiom::phone, {667, 175}, {667, 100}};

bool save(const QPixmap& picture, const QDir& folder, const QString& name) {
  const QString path = folder.filePath(name);
  if (!picture.save(path)) {
    std::fprintf(stderr, "screen_gallery: cannot write %s\n", qPrintable(path));
    return false;
  }
  std::printf("%s\n", qPrintable(path));
  return true;
}

// The sequencer above the keyboard, as the host window stacks them.
QPixmap stacked(QWidget& sequencer, QWidget& keyboard) {
  QPixmap picture(keyboard.width(), sequencer.height() + keyboard.height());
  QPainter painter(&picture);
  painter.drawPixmap(0, 0, sequencer.grab());
  painter.drawPixmap(0, sequencer.height(), keyboard.grab());
  return picture;
}

void holdComputerKeys(QWidget& piano, std::vector<Qt::Key> keys) {
  for (Qt::Key key : keys) {
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QApplication::sendEvent(&piano, &press);
  }
}

// Records a chord into `step` through the screen, as a player would.
void recordChord(KRSequencerController& sequencer, int step, std::vector<int> notes) {
  sequencer.trackView()->updateSelection(step, step);
  for (int note : notes)
    sequencer.keyOn(note, 0.8f);
  for (int note : notes)
    sequencer.keyOff(note);
}

bool render(const Layout& layout, const QDir& folder) {
  platform::setUserInterfaceIdiom(layout.idiom);
  const bool phone = layout.idiom == UserInterfaceIdiom::phone;
  PianoViewController keyboard(phone ? PianoViewController::kPhoneInterface
                                     : PianoViewController::kTabletInterface);
  KRSequencerController sequencer(phone ? KRSequencerController::kPhoneInterface
                                        : KRSequencerController::kTabletInterface);
  keyboard.resize(layout.keyboard);
  sequencer.resize(layout.sequencer);

  // A sequencer that plays: its sequence runs through a graph rendered by hand.
  platform::AudioGraph graph;
  graph.enableManualRenderingMode(48000.0, 256);
  graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
  graph.start();
  graph.setMusicSequence(sequencer.getMusicSequence());

  bool ok = save(keyboard.grab(), folder, QStringLiteral("keyboard_%1.png").arg(layout.name));
  ok &= save(sequencer.grab(), folder, QStringLiteral("sequencer_%1.png").arg(layout.name));

  // Write mode with recorded chords, a tie and a selection.
  sequencer.writeModeButtonPressed(sequencer.writeModeButton());
  recordChord(sequencer, 0, {48, 60, 64, 67});
  recordChord(sequencer, 2, {72});
  recordChord(sequencer, 4, {45, 57, 60, 64});
  recordChord(sequencer, 8, {41, 57, 60, 65});
  recordChord(sequencer, 12, {43, 55, 59, 62});
  sequencer.trackView()->updateSelection(4, 5);
  sequencer.tieButtonPressed(sequencer.tieButton());
  sequencer.trackView()->updateSelection(8, 11);
  ok &= save(sequencer.grab(), folder, QStringLiteral("sequencer_%1_write.png").arg(layout.name));

  // Playing, the playhead on the step being played; hold on and the smaller keys, chord held.
  sequencer.writeModeButtonPressed(sequencer.writeModeButton());
  sequencer.playButtonPressed(sequencer.playButton());
  std::vector<float> left(256), right(256);
  float* out[2] = {left.data(), right.data()};
  for (int block = 0; block < 110; ++block) {  // about 1.4 beats at 120 BPM
    graph.renderOffline(256, out);
    sequencer.updatePlayhead();
  }
  keyboard.holdButtonPressed(keyboard.holdButton());
  keyboard.sizeButtonPressed(keyboard.sizeButton());
  holdComputerKeys(*keyboard.pianoView2(), {Qt::Key_Z, Qt::Key_C, Qt::Key_B});
  ok &= save(stacked(sequencer, keyboard), folder,
             QStringLiteral("screens_%1_playing.png").arg(layout.name));
  graph.setMusicSequence(nullptr);
  return ok;
}

// The sessions list and its save screen, at the settings popover's size.
bool renderSessions(const QDir& folder) {
  platform::NavigationController navigation(new SessionsMenuController);
  navigation.resize(320, 300);
  navigation.show();
  bool ok = save(navigation.grab(), folder, QStringLiteral("sessions_list.png"));
  navigation.rightBarButton()->click();  // Save
  ok &= save(navigation.grab(), folder, QStringLiteral("sessions_save.png"));
  return ok;
}

// The bank shop with no store to buy from: its alert, at the popover's size.
bool renderShopAlert(const QDir& folder) {
  platform::NavigationController navigation(new KRBankStoreController);
  navigation.resize(320, 300);
  navigation.show();
  QApplication::processEvents();
  return save(navigation.grab(), folder, QStringLiteral("shop_alert.png"));
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: screen_gallery OUTPUT_FOLDER\n");
    return 2;
  }
  QDir folder(QString::fromLocal8Bit(argv[1]));
  if (!folder.mkpath(".")) {
    std::fprintf(stderr, "screen_gallery: cannot create %s\n", argv[1]);
    return 1;
  }
  bool ok = render(kTablet, folder);
  ok &= render(kPhone, folder);
  ok &= renderSessions(folder);
  ok &= renderShopAlert(folder);
  return ok ? 0 : 1;
}
