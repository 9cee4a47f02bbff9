#include "app/Application.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QApplication>
#include <QCloseEvent>
#include <QKeySequence>
#include <QSettings>
#include <QShortcut>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <cstdlib>

#include "app/ViewController.h"
#include "banks/AppDelegate.h"
#include "frameworks/pelma/MIDIManager.h"
#include "platform/app/ApplicationState.h"
#include "platform/app/QtMainQueue.h"
#include "platform/foundation/Log.h"
#include "platform/ui/DeviceIdiom.h"

namespace app {
namespace {

int signalPipe[2] = {-1, -1};

void forwardSignal(int) {
  const char byte = 1;
  [[maybe_unused]] const auto written = write(signalPipe[1], &byte, 1);
}

// SIGINT and SIGTERM end the event loop (through a pipe: a signal handler may do nothing else).
void quitOnSignals(QApplication& application) {
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) return;
  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &application);
  QObject::connect(notifier, &QSocketNotifier::activated, &application, [] {
    char byte = 0;
    [[maybe_unused]] const auto taken = read(signalPipe[0], &byte, 1);
    platform::log("Asked to stop");
    // exit() rather than quit(): an embedded editor's window must not be able to veto it.
    QCoreApplication::exit(0);
  });
  std::signal(SIGINT, forwardSignal);
  std::signal(SIGTERM, forwardSignal);
}

bool hasDisplay() {
  return !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") ||
         !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

// The window: the root screen filling it; its size is remembered between launches.
class MainWindow : public QWidget {
 public:
  MainWindow(const ApplicationOptions& options, PGMidi* midi) {
    setWindowTitle(QStringLiteral("Pelma"));
    root_ = new ViewController(options.instrumentName, midi, this);
    const QSize designSize = options.phoneIdiom ? QSize(667, 375) : QSize(1024, 768);
    setMinimumSize(options.phoneIdiom ? QSize(480, 270) : QSize(1024, 640));
    QSettings settings;
    resize(settings.value(sizeKey(options), designSize).toSize());
    root_->resize(size());
    root_->viewDidLoad();
    phone_ = options.phoneIdiom;

    auto* quit = new QShortcut(QKeySequence::Quit, this);
    connect(quit, &QShortcut::activated, this, &QWidget::close);
    auto* save = new QShortcut(QKeySequence::Save, this);
    connect(save, &QShortcut::activated, this, [this] { root_->savePreset(this); });
  }

  ViewController* root() const { return root_; }

 protected:
  void resizeEvent(QResizeEvent*) override { root_->setGeometry(rect()); }
  void closeEvent(QCloseEvent* event) override {
    QSettings().setValue(sizeKey(phone_), size());
    event->accept();
    QCoreApplication::exit(0);  // also when an embedded editor keeps windows of its own
  }

 private:
  static QString sizeKey(const ApplicationOptions& options) { return sizeKey(options.phoneIdiom); }
  static QString sizeKey(bool phone) {
    return phone ? QStringLiteral("window-size-phone") : QStringLiteral("window-size");
  }

  ViewController* root_ = nullptr;
  bool phone_ = false;
};

}  // namespace

int runApplication(int argc, char** argv, const ApplicationOptions& options) {
  const bool headless = !hasDisplay();
  if (headless) {
    platform::log(
        "No display: running headless (instrument, MIDI input and sequencer); stop "
        "with Ctrl+C");
    qputenv("QT_QPA_PLATFORM", "offscreen");
  }
  platform::setUserInterfaceIdiom(options.phoneIdiom ? platform::UserInterfaceIdiom::phone
                                                     : platform::UserInterfaceIdiom::pad);
  QApplication application(argc, argv);
  QApplication::setOrganizationName(QStringLiteral("pelma"));
  QApplication::setApplicationName(QStringLiteral("Pelma"));
  platform::QtMainQueue mainQueue;
  platform::MainQueue::setMain(&mainQueue);
  platform::ApplicationState applicationState;
  quitOnSignals(application);

  AppDelegate delegate;
  delegate.didFinishLaunchingWithOptions();
  int status = 0;
  {
    MainWindow window(options, MIDIManager::sharedMIDIManager().pgMidi());
    delegate.setWindow(&window);
    window.show();
    QObject::connect(
        &application, &QGuiApplication::applicationStateChanged, &application,
        [&delegate](Qt::ApplicationState state) { delegate.applicationStateChanged(state); });
    for (const std::string& url : options.urls)
      delegate.openURL(url);
    QObject::connect(&application, &QApplication::aboutToQuit, &window, [&window] {
      if (window.isVisible()) window.close();  // remembers the size
    });
    if (options.seconds > 0.0)
      QTimer::singleShot(static_cast<int>(options.seconds * 1000), &application,
                         &QApplication::quit);
    status = QApplication::exec();
    window.root()->stopCleanly();
  }
  platform::MainQueue::setMain(nullptr);
  platform::log("Stopped");
  return status;
}

}  // namespace app
