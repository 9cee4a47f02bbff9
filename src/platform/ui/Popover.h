#pragma once

// A pop-up panel anchored beside the control that opened it, with an arrow pointing at it: here
// the arrow is on the panel's right edge, so the panel opens to the left of its source. A click
// outside closes it, as does dismiss(). Its content is given once, at its preferred size.

#include <QFrame>
#include <QPointer>
#include <functional>

namespace platform {

class Popover : public QFrame {
 public:
  static constexpr int kArrowSize = 10;

  // Takes `content` (usually a NavigationController) as its child.
  Popover(QWidget* content, QSize preferredContentSize);

  // Shows the panel beside `sourceRect` of `sourceView` (in that view's coordinates).
  void present(QWidget* sourceView, const QRect& sourceRect);
  void dismiss() { close(); }

  QWidget* content() const { return content_; }
  // Called as the panel closes, before it and its content are deleted: a screen kept across
  // presentations is taken out here.
  void setCloseHandler(std::function<void()> handler) { closeHandler_ = std::move(handler); }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  QPointer<QWidget> content_;
  std::function<void()> closeHandler_;
  int arrowY_ = 0;
};

}  // namespace platform
