#pragma once

// Making a screen from one of its two interface files (Qt Designer .ui files compiled by AUTOUIC),
// and connecting its buttons to its action handlers.

#include <QString>
#include <QWidget>

#include "platform/foundation/Log.h"
#include "platform/ui/Button.h"

namespace platform {

// Sets `screen` up from the phone interface file when `nibName` names it, else from the tablet
// one (an unknown name is logged). `takeOutlets(ui)` copies the outlets the screen keeps.
template <typename TabletUi, typename PhoneUi, typename TakeOutlets>
void loadInterfaceFile(QWidget* screen, const QString& nibName, const char* tabletName,
                       const char* phoneName, TakeOutlets&& takeOutlets) {
  if (nibName == phoneName) {
    PhoneUi ui;
    ui.setupUi(screen);
    takeOutlets(ui);
    return;
  }
  if (nibName != tabletName) {
    log("No interface file \"{}\"; using \"{}\"", nibName.toStdString(), tabletName);
  }
  TabletUi ui;
  ui.setupUi(screen);
  takeOutlets(ui);
}

// Every click of `button` runs `(screen->*action)(button)`.
template <typename Screen>
void connectAction(Button* button, Screen* screen, void (Screen::*action)(Button*)) {
  QObject::connect(button, &QAbstractButton::clicked, screen,
                   [button, screen, action] { (screen->*action)(button); });
}

}  // namespace platform
