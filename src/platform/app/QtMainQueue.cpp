#include "platform/app/QtMainQueue.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace platform {

void QtMainQueue::async(Task task) {
  QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task), Qt::QueuedConnection);
}

}  // namespace platform
