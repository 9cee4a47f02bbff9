#include "platform/ui/Alert.h"
#include "platform/ui/Palette.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace platform {

Sheet::Sheet(QWidget* window, const QString& title, const QString& message,
             std::vector<Action> actions)
    : QFrame(window) {
  setObjectName(QStringLiteral("sheet"));
  setAttribute(Qt::WA_DeleteOnClose);
  setAttribute(Qt::WA_StyledBackground);
  setStyleSheet(
      QStringLiteral(
          "#sheet { background-color: rgba(0, 0, 0, 150); }"
          "#sheetPanel { background-color: rgb(34, 38, 43); border: 1px solid rgb(70, 78, 86); "
          "border-radius: 10px; }"
          "#sheetTitle { color: white; font-size: 15px; font-weight: 600; }"
          "#sheetMessage { color: %1; font-size: 13px; }"
          "QPushButton { color: white; background-color: %2; border: none; "
          "border-radius: 6px; padding: 7px 16px; font-size: 13px; }"
          "QPushButton:default { background-color: %3; color: black; }")
          .arg(palette::css(palette::kSecondaryText), palette::css(palette::kControl),
               palette::css(palette::kAccent)));
  panel_ = new QFrame(this);
  panel_->setObjectName(QStringLiteral("sheetPanel"));
  auto* layout = new QVBoxLayout(panel_);
  layout->setContentsMargins(18, 16, 18, 14);
  layout->setSpacing(8);
  title_ = new QLabel(title, panel_);
  title_->setObjectName(QStringLiteral("sheetTitle"));
  title_->setAlignment(Qt::AlignCenter);
  title_->setWordWrap(true);
  message_ = new QLabel(message, panel_);
  message_->setObjectName(QStringLiteral("sheetMessage"));
  message_->setAlignment(Qt::AlignCenter);
  message_->setWordWrap(true);
  layout->addWidget(title_);
  layout->addWidget(message_);
  auto* row = new QHBoxLayout;
  row->addStretch();
  for (auto& [text, action] : actions) {
    auto* button = new QPushButton(text, panel_);
    buttons_.push_back(button);
    connect(button, &QPushButton::clicked, this, [this, action = std::move(action)] {
      close();
      if (action) action();
    });
    row->addWidget(button);
  }
  if (!buttons_.empty()) {
    buttons_.front()->setDefault(true);
    buttons_.front()->setFocus();
  }
  layout->addLayout(row);
  window->installEventFilter(this);
  fitToWindow();
}

Sheet* Sheet::present(QWidget* presenter, const QString& title, const QString& message,
                      std::vector<Action> actions) {
  QWidget* window = presenter ? presenter->window() : nullptr;
  auto* sheet = new Sheet(window, title, message, std::move(actions));
  if (!window) sheet->resize(360, 200);  // nothing to lie over: a small window of its own
  sheet->show();
  sheet->raise();
  return sheet;
}

QString Sheet::title() const {
  return title_->text();
}

QString Sheet::message() const {
  return message_->text();
}

QPushButton* Sheet::button(const QString& text) const {
  for (QPushButton* button : buttons_)
    if (button->text() == text) return button;
  return nullptr;
}

bool Sheet::eventFilter(QObject* watched, QEvent* event) {
  if (watched == parentWidget() && event->type() == QEvent::Resize) fitToWindow();
  return QFrame::eventFilter(watched, event);
}

void Sheet::fitToWindow() {
  if (QWidget* window = parentWidget()) setGeometry(window->rect());
  const int width = std::min(300, std::max(200, this->width() - 24));
  panel_->setFixedWidth(width);
  panel_->adjustSize();
  panel_->move((this->width() - panel_->width()) / 2, (this->height() - panel_->height()) / 2);
}

Sheet* presentAlert(QWidget* presenter, const QString& title, const QString& message) {
  return Sheet::present(presenter, title, message, {{QStringLiteral("OK"), nullptr}});
}

}  // namespace platform
