#include "app/MainWindow.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QScreen>
#include <QShortcut>
#include <QStyle>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "app/ViewController.h"
#include "audio/AudioEngine.h"
#include "midi/MidiLearnMenu.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/ui/Palette.h"
#include "presets/PresetsMenu.h"

namespace app {
namespace {

std::string sizeKey(bool phone) {
  return phone ? "window-size-phone" : "window-size";
}

// The window size kept from the last run, as "WIDTHxHEIGHT"; one no screen could show (the file
// is the user's to edit) is ignored with one log line.
QSize storedSize(const std::string& key, QSize fallback) {
  const std::optional<std::string> text =
      platform::UserDefaults::standardUserDefaults().stringForKey(key);
  if (!text) return fallback;
  int width = 0;
  int height = 0;
  char end = 0;
  if (std::sscanf(text->c_str(), "%5dx%5d%c", &width, &height, &end) == 2 && width >= 1 &&
      height >= 1 && width <= 8192 && height <= 8192)
    return {width, height};
  platform::log("Preference {} = {} is not a value it can have; the default is used", key,
                platform::printable(*text, 40));
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
    if (url.isLocalFile() && (url.path().endsWith(QStringLiteral(".plb")) ||
                              url.path().endsWith(QStringLiteral(".") + session::kFileSuffix)))
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
  // Dark like the screens below it, with the amber of their lit buttons for the chosen entry.
  using namespace platform::palette;
  menuBar_->setStyleSheet(
      QStringLiteral("QMenuBar { background-color: rgb(20, 23, 26); color: %1; }"
                     "QMenuBar::item:selected { background-color: %2; }"
                     "QMenu { background-color: rgb(28, 32, 36); color: %1; border: 1px solid %3; }"
                     "QMenu::item:selected { background-color: %2; }"
                     "QMenu::item:disabled { color: rgb(120, 128, 135); }"
                     "QMenu::separator { height: 1px; background: %3; margin: 4px 8px; }")
          .arg(css(kText), css(kControl), css(kBorder)));
  menuBar_->addMenu(root_->presetsMenu());
  menuBar_->addMenu(root_->midiLearnMenu());
  // Small enough for a 1280 x 720 screen at 150 % (853 x 480, less the panel); the layout fits the
  // instrument's editor and keeps the keyboard playable at any size above it.
  setMinimumSize(phone_ ? QSize(480, 270) : QSize(760, 420));
  const QSize designSize = phone_ ? QSize(667, 375) : QSize(1024, 768);
  resize(fitToScreen(*this, storedSize(sizeKey(phone_), designSize)));
  resizeEvent(nullptr);
  root_->viewDidLoad();

  sessions_ = std::make_unique<session::SessionController>(
      this, root_->seqController(), root_->pianoViewController(),
      [root = root_] { return root->audioEngine() ? root->audioEngine()->synthAU() : nullptr; });
  root_->setInstrumentReadyObserver([this] { sessions_->instrumentReady(); });
  MidiLearn& learn = root_->midiLearn();
  sessions_->setMidiLearnPart([&learn] { return learn.toVariant(); },
                              [this, &learn](const QVariantList& map) {
                                const std::string problem = learn.fromVariant(map);
                                if (!problem.empty())
                                  sessions_->showMessage(
                                      tr("Part of the MIDI learn map was not restored"),
                                      QString::fromStdString(problem));
                              });
  learn.onChange = [this] { sessions_->changed(); };

  // Each command is a window shortcut (kept working inside an embedded editor, which grabs
  // QShortcuts) and an entry of the File or Edit menu that shows its keys.
  QMenu* file = new QMenu(tr("&File"), this);
  QMenu* edit = new QMenu(tr("&Edit"), this);
  auto command = [this](QMenu* menu, const QString& text, const QKeySequence& keys, auto action) {
    connect(new QShortcut(keys, this), &QShortcut::activated, this, action);
    QAction* entry = menu->addAction(text, this, action);
    entry->setShortcut(keys);
    entry->setShortcutContext(Qt::WidgetShortcut);  // shown in the menu; the shortcut acts
  };
  command(file, tr("&Open Session…"), QKeySequence(Qt::CTRL | Qt::Key_O),
          [this] { sessions_->open(); });
  command(file, tr("&Save Session"), QKeySequence(Qt::CTRL | Qt::Key_S),
          [this] { sessions_->save(); });
  command(file, tr("Save Session &As…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S),
          [this] { sessions_->saveAs(); });
  file->addSeparator();
  command(file, tr("&Quit"), QKeySequence::Quit, [this] { close(); });
  command(edit, tr("&Undo"), QKeySequence(Qt::CTRL | Qt::Key_Z),
          [this] { sessions_->undoStack()->undo(); });
  command(edit, tr("&Redo"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z),
          [this] { sessions_->undoStack()->redo(); });
  menuBar_->insertMenu(menuBar_->actions().value(0), file);
  menuBar_->insertMenu(menuBar_->actions().value(1), edit);
}

MainWindow::~MainWindow() {
  root_->setInstrumentReadyObserver(nullptr);
  root_->midiLearn().onChange = nullptr;
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
    open(url);
}

QString MainWindow::sessionPath(const std::string& url) {
  const QUrl parsed(QString::fromStdString(url));
  const bool session =
      parsed.isLocalFile() && parsed.path().endsWith(QStringLiteral(".") + session::kFileSuffix);
  return session ? parsed.toLocalFile() : QString();
}

void MainWindow::open(const std::string& url) {
  if (const QString path = sessionPath(url); !path.isEmpty())
    sessions_->openFile(path);
  else
    openUrl_(url);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  platform::UserDefaults::standardUserDefaults().setString(
      sizeKey(phone_), std::to_string(width()) + "x" + std::to_string(height()));
  sessions_->keepLastSession();
  event->accept();
  QCoreApplication::exit(0);  // also when an embedded editor keeps windows of its own
}

}  // namespace app
