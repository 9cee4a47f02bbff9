#pragma once

// The application with its window: the Qt event loop with the application delegate, the main
// queue on the event loop, and one window holding the root screen. It runs until the window is
// closed, Ctrl+Q, or SIGINT/SIGTERM, and then stops cleanly: every note released, the audio
// output closed. With no display it says so and runs headless (instrument, MIDI, sequencer).

#include <QString>
#include <string>
#include <vector>

namespace app {

struct ApplicationOptions {
  QString instrumentName = QStringLiteral("Pelma");
  // The instrument was named on the command line: a session's instrument does not replace it.
  bool instrumentChosen = false;
  // Start from the defaults rather than the last session.
  bool fresh = false;
  bool phoneIdiom = false;
  double seconds = 0.0;  // quit after this long; 0: run until asked to stop
  // Bank files, session files or "pelma:" URLs to open once the application has launched (the
  // last session file given is the session the window starts with).
  std::vector<std::string> urls;
  // A network MIDI peer to invite into the session at start ("host:port"), or empty.
  std::string networkPeer;
  // An instance of its own beside a running one (the launch named an instrument or a JACK name).
  bool ownInstance = false;
  // The JACK client's name was given on the command line (else it follows the instrument).
  bool jackNameChosen = false;
};

int runApplication(int argc, char** argv, const ApplicationOptions& options);

}  // namespace app
