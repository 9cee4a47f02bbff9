#include "platform/ui/NavigationController.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "platform/ui/Button.h"

namespace platform {

NavigationController::NavigationController(QWidget* rootViewController, QWidget* parent)
    : QWidget(parent) {
  setObjectName(QStringLiteral("navigationController"));
  setAttribute(Qt::WA_StyledBackground);
  setStyleSheet(
      QStringLiteral("#navigationController { background-color: black; }"
                     "#navigationBar { background-color: rgb(22, 24, 27); border-bottom: 1px solid "
                     "rgb(48, 54, 60); }"
                     "#navigationTitle { color: white; font-size: 15px; font-weight: 600; }"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* bar = new QWidget(this);
  bar->setObjectName(QStringLiteral("navigationBar"));
  bar->setAttribute(Qt::WA_StyledBackground);
  bar->setFixedHeight(44);
  auto* barLayout = new QHBoxLayout(bar);
  barLayout->setContentsMargins(6, 4, 6, 4);
  back_ = new Button(bar);
  back_->setText(QStringLiteral("\u2039 Back"));
  title_ = new QLabel(bar);
  title_->setObjectName(QStringLiteral("navigationTitle"));
  title_->setAlignment(Qt::AlignCenter);
  right_ = new Button(bar);
  barLayout->addWidget(back_);
  barLayout->addWidget(title_, 1);
  barLayout->addWidget(right_);
  layout->addWidget(bar);
  stack_ = new QStackedWidget(this);
  layout->addWidget(stack_, 1);
  connect(back_, &QAbstractButton::clicked, this, [this] {
    if (depth() > 1) {
      popViewController();
      return;
    }
    const auto found = leftButtons_.find(topViewController());
    if (found != leftButtons_.end() && found->second.second) found->second.second();
  });
  connect(right_, &QAbstractButton::clicked, this, [this] {
    const auto found = rightButtons_.find(topViewController());
    if (found != rightButtons_.end() && found->second.second) found->second.second();
  });
  pushViewController(rootViewController);
}

void NavigationController::pushViewController(QWidget* screen) {
  stack_->addWidget(screen);
  stack_->setCurrentWidget(screen);
  showTop();
}

void NavigationController::popViewController() {
  if (stack_->count() < 2) return;
  QWidget* top = topViewController();
  stack_->removeWidget(top);
  rightButtons_.erase(top);
  leftButtons_.erase(top);
  top->deleteLater();
  stack_->setCurrentIndex(stack_->count() - 1);
  showTop();
}

QWidget* NavigationController::topViewController() const {
  return stack_->currentWidget();
}

int NavigationController::depth() const {
  return stack_->count();
}

void NavigationController::setRightBarButton(QWidget* screen, const QString& title,
                                             std::function<void()> action) {
  rightButtons_[screen] = {title, std::move(action)};
  showTop();
}

void NavigationController::setLeftBarButton(QWidget* screen, const QString& title,
                                            std::function<void()> action) {
  leftButtons_[screen] = {title, std::move(action)};
  showTop();
}

QString NavigationController::barTitle() const {
  return title_->text();
}

NavigationController* NavigationController::of(const QWidget* screen) {
  for (QWidget* parent = screen ? screen->parentWidget() : nullptr; parent;
       parent = parent->parentWidget()) {
    if (auto* navigation = dynamic_cast<NavigationController*>(parent)) return navigation;
  }
  return nullptr;
}

void NavigationController::showTop() {
  QWidget* top = topViewController();
  title_->setText(top ? top->windowTitle() : QString());
  const auto left = leftButtons_.find(top);
  back_->setVisible(depth() > 1 || left != leftButtons_.end());
  back_->setText(depth() > 1                  ? QStringLiteral("\u2039 Back")
                 : left != leftButtons_.end() ? left->second.first
                                              : QString());
  const auto found = rightButtons_.find(top);
  right_->setVisible(found != rightButtons_.end());
  if (found != rightButtons_.end()) right_->setText(found->second.first);
}

}  // namespace platform
