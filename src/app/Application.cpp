#include "app/Application.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <charconv>
#include <csignal>
#include <cstdlib>

#include "app/MainWindow.h"
#include "app/Playback.h"
#include "app/SingleInstance.h"
#include "app/ViewController.h"
#include "banks/AppDelegate.h"
#include "banks/PaymentSheet.h"
#include "frameworks/pelma/MIDIManager.h"
#include "platform/app/ApplicationState.h"
#include "platform/app/QtMainQueue.h"
#include "platform/audio/JackClient.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/ui/DeviceIdiom.h"

namespace app {
namespace {

int signalPipe[2] = {-1, -1};

// Invites the network MIDI peer at "host:port" (from --connect or the "network-midi-peer"
// setting); a value that is not one is logged and ignored.
void invitePeer(const std::string& peer) {
  if (peer.empty()) return;
  const auto colon = peer.rfind(':');
  int port = 0;
  const char* end = peer.data() + peer.size();
  if (colon == std::string::npos || colon == 0 ||
      std::from_chars(peer.data() + colon + 1, end, port).ptr != end || port < 1 || port > 65535) {
    platform::log("Network MIDI: \"{}\" is not HOST:PORT; no peer invited", peer);
    return;
  }
  MIDIManager::sharedMIDIManager().pgMidi()->connectToNetworkPeer(peer.substr(0, colon),
                                                                  static_cast<std::uint16_t>(port));
}

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

}  // namespace

int runApplication(int argc, char** argv, const ApplicationOptions& options) {
  // Before anything else (even the display): a launch that hands over its files ends at once.
  const bool besideAnother = options.ownInstance && SingleInstance::anotherIsRunning();
  if (!options.ownInstance && SingleInstance::forwardToRunningApplication(options.urls)) {
    platform::log("Pelma is already running: handed it {} file(s) and link(s)",
                  options.urls.size());
    return 0;
  }
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
  platform::SKPaymentQueue::defaultQueue().configure(platform::defaultStoreConfiguration());
  platform::SKPaymentQueue::defaultQueue().setPaymentSheet(makePaymentSheet());

  // The session the window starts with: the last session file given, else the last session.
  QString sessionFile;
  std::vector<std::string> otherUrls;
  for (const std::string& url : options.urls) {
    if (const QString path = MainWindow::sessionPath(url); !path.isEmpty())
      sessionFile = path;
    else
      otherUrls.push_back(url);
  }
  QString instrumentName = options.instrumentName;
  if (!options.instrumentChosen && (!options.fresh || !sessionFile.isEmpty())) {
    // The session's instrument, when it is installed; otherwise the session says why it is not.
    const QString uri = session::SessionController::instrumentOf(
        sessionFile.isEmpty() ? session::SessionController::lastSessionPath() : sessionFile);
    if (session::SessionController::instrumentInstalled(uri)) instrumentName = uri;
  }
  // The JACK client takes the name of the instrument the session brings, unless one was given.
  if (!options.jackNameChosen && instrumentName != options.instrumentName) {
    if (const auto instrument = installedInstrument(instrumentName.toStdString())) {
      platform::JackClient::Options jack = platform::JackClient::options();
      jack.name = instrument->name;
      platform::JackClient::configure(jack);
    }
  }

  AppDelegate delegate;
  delegate.didFinishLaunchingWithOptions();
  int status = 0;
  {
    MainWindow window(instrumentName, options.phoneIdiom, MIDIManager::sharedMIDIManager().pgMidi(),
                      [&delegate](const std::string& url) { delegate.openURL(url); });
    delegate.setWindow(&window);
    window.sessions()->launch(options.fresh, sessionFile);
    window.show();
    SingleInstance instance;
    if (!besideAnother) {
      instance.listen([&window](const std::vector<std::string>& urls) {
        platform::log("Another launch handed over {} file(s) and link(s)", urls.size());
        for (const std::string& url : urls)
          window.open(url);
        window.raise();
        window.activateWindow();
      });
    }
    QObject::connect(
        &application, &QGuiApplication::applicationStateChanged, &application,
        [&delegate](Qt::ApplicationState state) { delegate.applicationStateChanged(state); });
    for (const std::string& url : otherUrls)
      delegate.openURL(url);
    invitePeer(options.networkPeer.empty() ? platform::UserDefaults::standardUserDefaults()
                                                 .stringForKey("network-midi-peer")
                                                 .value_or("")
                                           : options.networkPeer);
    QObject::connect(&application, &QApplication::aboutToQuit, &window, [&window] {
      if (window.isVisible()) window.close();  // remembers the size
    });
    // exit(), as for the signals: quit() asks every window first, and one still being set up
    // (the editor's, in the first moments) can turn it down.
    if (options.seconds > 0.0)
      QTimer::singleShot(static_cast<int>(options.seconds * 1000), &application,
                         [] { QCoreApplication::exit(0); });
    status = QApplication::exec();
    window.root()->stopCleanly();
  }
  platform::MainQueue::setMain(nullptr);
  platform::log("Stopped");
  return status;
}

}  // namespace app
