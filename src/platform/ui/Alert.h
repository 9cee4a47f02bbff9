#pragma once

// Alerts and other sheets: a panel laid over the whole window of the screen that presents it
// (the window dimmed around it) with a title, a message and buttons; a button closes the panel
// and runs its action. It stays inside the presenting window, so a popover showing it stays
// open (a separate dialog window would close it). Main thread.

#include <QFrame>
#include <functional>
#include <utility>
#include <vector>

class QLabel;
class QPushButton;

namespace platform {

class Sheet : public QFrame {
 public:
  using Action = std::pair<QString, std::function<void()>>;

  // Shows the sheet over `presenter`'s window; the first button is the default (Return).
  static Sheet* present(QWidget* presenter, const QString& title, const QString& message,
                        std::vector<Action> actions);

  QString title() const;
  QString message() const;
  // The button with this text, or null.
  QPushButton* button(const QString& text) const;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  Sheet(QWidget* window, const QString& title, const QString& message, std::vector<Action> actions);
  void fitToWindow();

  QLabel* title_;
  QLabel* message_;
  QFrame* panel_;
  std::vector<QPushButton*> buttons_;
};

// An alert with one "OK" button that only closes it.
Sheet* presentAlert(QWidget* presenter, const QString& title, const QString& message);

}  // namespace platform
