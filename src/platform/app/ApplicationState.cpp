#include "platform/app/ApplicationState.h"

#include <QGuiApplication>

#include "platform/foundation/ApplicationNotifications.h"
#include "platform/foundation/NotificationCenter.h"

namespace platform {

ApplicationState::ApplicationState(QObject* parent) : QObject(parent) {
  if (auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
    connect(application, &QGuiApplication::applicationStateChanged, this,
            &ApplicationState::applicationStateChanged);
  }
}

void ApplicationState::applicationStateChanged(Qt::ApplicationState state) {
  auto& center = NotificationCenter::defaultCenter();
  if (state == Qt::ApplicationActive) {
    inBackground_ = false;
    center.postNotificationName(kApplicationDidBecomeActiveNotification);
  } else if ((state == Qt::ApplicationHidden || state == Qt::ApplicationSuspended) &&
             !inBackground_) {
    inBackground_ = true;
    center.postNotificationName(kApplicationDidEnterBackgroundNotification);
  }
}

}  // namespace platform
