#pragma once

// One running application per bank folder. A second launch hands its bank files and "pelma:"
// links to the running one over a local socket and exits; the running one opens them and comes
// to the front. The socket lives in the user's runtime folder and is named after the bank
// folder, so an application started with another bank folder (PELMA_BANKS_DIR) runs on its own.
//
// Protocol: the launch writes one URL per line and an empty line; the running application answers
// "ok" once it has taken them. A socket file left by an application that crashed is taken over.
// A launch that names an instrument or a JACK name is an instance of its own: it hands nothing
// over and leaves the socket to the first.

#include <QLocalServer>
#include <QString>
#include <functional>
#include <string>
#include <vector>

namespace app {

class SingleInstance {
 public:
  using OpenHandler = std::function<void(const std::vector<std::string>& urls)>;

  // The socket's path for the current bank folder.
  static QString socketPath();

  // Hands `urls` (possibly none) to the running application. True when it took them, and this
  // launch should end; false when none runs (or it does not answer within two seconds).
  static bool forwardToRunningApplication(const std::vector<std::string>& urls);

  // True when an application already listens on the socket (an instance of its own, started
  // beside it, then leaves the socket to it).
  static bool anotherIsRunning();

  // Takes later launches' URLs from now on: `open` is called on the main thread once per launch.
  // False, with a log line, when the socket cannot be opened (the application runs on alone).
  bool listen(OpenHandler open);

 private:
  QLocalServer server_;
  OpenHandler open_;
};

}  // namespace app
