#include "app/SingleInstance.h"

#include <QCryptographicHash>
#include <QDir>
#include <QLocalSocket>
#include <QStandardPaths>
#include <filesystem>
#include <memory>

#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"

namespace app {
namespace {

constexpr int kAnswerTimeoutMs = 2000;
// Far more than any launch's command line; a peer that sends more is not a launch of ours.
constexpr qsizetype kMaximumMessageBytes = 1 << 20;

}  // namespace

QString SingleInstance::socketPath() {
  std::error_code error;
  auto folder = std::filesystem::weakly_canonical(platform::bankFolder(), error);
  if (error) folder = platform::bankFolder();
  const QByteArray key =
      QCryptographicHash::hash(QByteArray::fromStdString(folder.string()), QCryptographicHash::Sha1)
          .toHex()
          .left(16);
  QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  if (runtime.isEmpty()) runtime = QDir::tempPath();
  return runtime + QStringLiteral("/pelma-") + QString::fromLatin1(key) + QStringLiteral(".socket");
}

bool SingleInstance::forwardToRunningApplication(const std::vector<std::string>& urls) {
  QLocalSocket socket;
  socket.connectToServer(socketPath());
  if (!socket.waitForConnected(kAnswerTimeoutMs)) return false;
  QByteArray message;
  for (const std::string& url : urls)
    message += QByteArray::fromStdString(url) + '\n';
  message += '\n';
  socket.write(message);
  if (!socket.waitForBytesWritten(kAnswerTimeoutMs)) return false;
  while (!socket.canReadLine()) {
    if (!socket.waitForReadyRead(kAnswerTimeoutMs)) return false;
  }
  return socket.readLine().trimmed() == "ok";
}

bool SingleInstance::anotherIsRunning() {
  QLocalSocket socket;
  socket.connectToServer(socketPath());
  return socket.waitForConnected(kAnswerTimeoutMs);
}

bool SingleInstance::listen(OpenHandler open) {
  open_ = std::move(open);
  const QString path = socketPath();
  server_.setSocketOptions(QLocalServer::UserAccessOption);
  if (!server_.listen(path)) {
    // Nobody answered on it (forwarding failed first), so the file is left from a crash.
    QLocalServer::removeServer(path);
    if (!server_.listen(path)) {
      platform::log("Cannot take other launches' files on {}: {}", path.toStdString(),
                    server_.errorString().toStdString());
      return false;
    }
  }
  QObject::connect(&server_, &QLocalServer::newConnection, &server_, [this] {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
      QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
      auto received = std::make_shared<QByteArray>();
      QObject::connect(socket, &QLocalSocket::readyRead, socket, [this, socket, received] {
        *received += socket->readAll();
        if (received->size() > kMaximumMessageBytes) {
          platform::log("Ignored an over-long message on the launch socket");
          socket->abort();
          return;
        }
        // The message ends with an empty line: "\n" alone (no URLs) or "...\n\n".
        if (!(*received == "\n" || received->endsWith("\n\n"))) return;
        std::vector<std::string> urls;
        for (const QByteArray& line : received->split('\n'))
          if (!line.isEmpty()) urls.push_back(line.toStdString());
        received->clear();
        socket->write("ok\n");
        socket->flush();
        open_(urls);
      });
    }
  });
  return true;
}

}  // namespace app
