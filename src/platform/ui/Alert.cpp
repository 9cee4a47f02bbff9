#include "platform/ui/Alert.h"

#include <QMessageBox>

namespace platform {

QMessageBox* presentAlert(QWidget* presenter, const QString& title, const QString& message) {
  QWidget* window = presenter ? presenter->window() : nullptr;
  auto* alert = new QMessageBox(QMessageBox::NoIcon, title, message, QMessageBox::Ok, window);
  alert->setAttribute(Qt::WA_DeleteOnClose);
  alert->setObjectName(QStringLiteral("alert"));
  alert->setInformativeText({});
  alert->setStyleSheet(
      QStringLiteral("QMessageBox { background-color: rgb(28, 31, 35); }"
                     "QMessageBox QLabel { color: white; font-size: 14px; }"
                     "QPushButton { min-width: 72px; padding: 6px; }"));
  alert->open();
  return alert;
}

}  // namespace platform
