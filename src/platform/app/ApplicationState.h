#pragma once

#include <QObject>

namespace platform {

// Turns Qt's application state into the application notifications: active when a window of the
// application is shown and focused, background when it is hidden or suspended (minimised, on the
// platforms that report it). Losing focus alone is not the background: a musician switching to
// another program keeps hearing the instrument.
class ApplicationState : public QObject {
  Q_OBJECT
 public:
  // Follows the running QGuiApplication, if there is one.
  explicit ApplicationState(QObject* parent = nullptr);

 public slots:
  void applicationStateChanged(Qt::ApplicationState state);

 private:
  bool inBackground_ = false;
};

}  // namespace platform
