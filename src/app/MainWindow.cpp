#include "app/MainWindow.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QKeySequence>
#include <QMenuBar>
#include <QMimeData>
#include <QScreen>
#include <QSettings>
#include <QShortcut>
#include <QStyle>
#include <vector>

#include "app/ViewController.h"
#include "midi/MidiLearnMenu.h"
#include "platform/foundation/Log.h"
#include "presets/PresetsMenu.h"

namespace app {
namespace {

QString sizeKey(bool phone) {
  return phone ? QStringLiteral("window-size-phone") : QStringLiteral("window-size");
}

// The window size kept from the last run; one no screen could show (the file is the user's to
// edit) is ignored with one log line.
QSize storedSize(const QString& key, QSize fallback) {
  const QVariant value = QSettings().value(key);
  if (!value.isValid()) return fallback;
  const QSize size = value.toSize();
  if (size.width() >= 1 && size.height() >= 1 && size.width() <= 8192 && size.height() <= 8192)
    return size;
  platform::log("Preference {} = {}x{} is not a value it can have; the default is used",
                key.toStdString(), size.width(), size.height());
  return fallback;
}

// At most what the screen's free area holds once the window manager adds a title bar (the real
// frame is known only after the window is shown).
QSize fitToScreen(const QWidget& window, QSize size) {
  const QScreen* screen = window.screen();
  if (!screen) return size;
  const int titleBar = window.style()->pixelMetric(QStyle::PM_TitleBarHeight);
  const QSize room = screen->availableGeometry().size() - QSize(0, titleBar);
  return size.boundedTo(room).expandedTo(window.minimumSize());
}

std::vector<std::string> bankUrls(const QMimeData* data) {
  std::vector<std::string> urls;
  if (!data || !data->hasUrls()) return urls;
  for (const QUrl& url : data->urls()) {
    if (url.isLocalFile() && url.path().endsWith(QStringLiteral(".plb")))
      urls.push_back(url.toString(QUrl::FullyEncoded).toStdString());
  }
  return urls;
}

}  // namespace

MainWindow::MainWindow(const QString& instrumentName, bool phoneIdiom, PGMidi* midi,
                       OpenUrl openUrl)
    : openUrl_(std::move(openUrl)), phone_(phoneIdiom) {
  setWindowTitle(QStringLiteral("Pelma"));
  setAcceptDrops(true);
  root_ = new ViewController(instrumentName, midi, this);
  menuBar_ = new QMenuBar(this);
  menuBar_->addMenu(root_->presetsMenu());
  menuBar_->addMenu(root_->midiLearnMenu());
  // Small enough for a 1280 x 720 screen at 150 % (853 x 480, less the panel); the layout fits the
  // instrument's editor and keeps the keyboard playable at any size above it.
  setMinimumSize(phone_ ? QSize(480, 270) : QSize(760, 420));
  const QSize designSize = phone_ ? QSize(667, 375) : QSize(1024, 768);
  resize(fitToScreen(*this, storedSize(sizeKey(phone_), designSize)));
  resizeEvent(nullptr);
  root_->viewDidLoad();

  auto* quit = new QShortcut(QKeySequence::Quit, this);
  connect(quit, &QShortcut::activated, this, &QWidget::close);
  auto* save = new QShortcut(QKeySequence::Save, this);
  connect(save, &QShortcut::activated, this, [this] { root_->savePreset(this); });
}

void MainWindow::resizeEvent(QResizeEvent*) {
  const int bar = menuBar_->sizeHint().height();
  menuBar_->setGeometry(0, 0, width(), bar);
  root_->setGeometry(rect().adjusted(0, bar, 0, 0));
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (!bankUrls(event->mimeData()).empty()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  const auto urls = bankUrls(event->mimeData());
  if (urls.empty()) return;
  event->acceptProposedAction();
  for (const std::string& url : urls)
    openUrl_(url);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  QSettings().setValue(sizeKey(phone_), size());
  event->accept();
  QCoreApplication::exit(0);  // also when an embedded editor keeps windows of its own
}

}  // namespace app
