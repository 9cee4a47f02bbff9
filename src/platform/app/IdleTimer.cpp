#include "platform/app/IdleTimer.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>

#include "platform/foundation/Log.h"

namespace platform {
namespace {

const char* const kService = "org.freedesktop.ScreenSaver";
const char* const kPath = "/org/freedesktop/ScreenSaver";

}  // namespace

IdleTimer::~IdleTimer() {
  setIdleTimerDisabled(false);
}

void IdleTimer::setIdleTimerDisabled(bool disabled) {
  if (disabled == cookie_.has_value()) return;
  QDBusInterface screenSaver(kService, kPath, kService, QDBusConnection::sessionBus());
  if (!disabled) {
    if (screenSaver.isValid()) screenSaver.call(QStringLiteral("UnInhibit"), *cookie_);
    cookie_.reset();
    return;
  }
  if (!screenSaver.isValid()) {
    log("Screen saver: no screen-saver service on the session bus; the screen may dim while "
        "playing");
    return;
  }
  const QDBusReply<std::uint32_t> reply = screenSaver.call(
      QStringLiteral("Inhibit"), QStringLiteral("Pelma"), QStringLiteral("Playing an instrument"));
  if (reply.isValid()) {
    cookie_ = reply.value();
  } else {
    log("Screen saver: inhibition refused: {}", reply.error().message().toStdString());
  }
}

}  // namespace platform
