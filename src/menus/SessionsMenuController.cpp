#include "menus/SessionsMenuController.h"

#include "platform/ui/NavigationController.h"
#include "ui_SaveSessionViewController.h"

SessionsMenuController::SessionsMenuController(QWidget* parent)
    : platform::TableViewController(parent) {
  setTitle(QStringLiteral("Sessions"));
}

// The Save button is put in the bar once the screen is in a navigation stack.
void SessionsMenuController::showEvent(QShowEvent* event) {
  platform::TableViewController::showEvent(event);
  if (barSet_) return;
  if (auto* navigation = platform::NavigationController::of(this)) {
    navigation->setRightBarButton(this, QStringLiteral("Save"), [this] { saveSession(); });
    barSet_ = true;
  }
}

void SessionsMenuController::saveSession() {
  if (auto* navigation = platform::NavigationController::of(this))
    navigation->pushViewController(new SaveSessionViewController);
}

SaveSessionViewController::SaveSessionViewController(QWidget* parent) : QWidget(parent) {
  Ui::SaveSessionViewController ui;
  ui.setupUi(this);
  setWindowTitle(QStringLiteral("Save session"));
}

void SaveSessionViewController::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (barSet_) return;
  if (auto* navigation = platform::NavigationController::of(this)) {
    navigation->setRightBarButton(this, QStringLiteral("Save"), [this] { saveSession(); });
    barSet_ = true;
  }
}
