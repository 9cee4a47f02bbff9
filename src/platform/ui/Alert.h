#pragma once

// An alert: a title, a message and one "OK" button that only closes it, shown over the window of
// `presenter` without blocking the event loop. Main thread.

#include <QString>

class QMessageBox;
class QWidget;

namespace platform {

// The alert shown (it deletes itself when closed).
QMessageBox* presentAlert(QWidget* presenter, const QString& title, const QString& message);

}  // namespace platform
