#pragma once

// A navigation stack: a bar with the top screen's title, a back button once a screen has been
// pushed, and a right bar button per screen; below it the top screen. Screens say what their bar
// holds with setRightBarButton. Main thread.

#include <QWidget>
#include <functional>
#include <map>

class QLabel;
class QStackedWidget;

namespace platform {

class Button;

class NavigationController : public QWidget {
 public:
  explicit NavigationController(QWidget* rootViewController, QWidget* parent = nullptr);

  void pushViewController(QWidget* screen);
  void popViewController();
  QWidget* topViewController() const;
  int depth() const;

  // The button at the right of the bar while `screen` is on top ("Done", "Save", ...).
  void setRightBarButton(QWidget* screen, const QString& title, std::function<void()> action);
  Button* rightBarButton() const { return right_; }
  // The button at the left of the bar while `screen` is the root (where a pushed screen has its
  // back button): "Restore", ...
  void setLeftBarButton(QWidget* screen, const QString& title, std::function<void()> action);
  Button* leftBarButton() const { return back_; }
  QString barTitle() const;

  // The navigation controller `screen` is in, or null.
  static NavigationController* of(const QWidget* screen);

 private:
  void showTop();

  QStackedWidget* stack_;
  QLabel* title_;
  Button* back_;
  Button* right_;
  std::map<const QWidget*, std::pair<QString, std::function<void()>>> rightButtons_;
  std::map<const QWidget*, std::pair<QString, std::function<void()>>> leftButtons_;
};

}  // namespace platform
