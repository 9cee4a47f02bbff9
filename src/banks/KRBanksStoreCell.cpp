#include "banks/KRBanksStoreCell.h"

#include <QLabel>
#include <QResizeEvent>
#include <QVBoxLayout>

KRBanksStoreCell::KRBanksStoreCell(Style /*style*/, const QString& reuseIdentifier, QWidget* parent)
    : QWidget(parent), reuseIdentifier_(reuseIdentifier) {
  setAttribute(Qt::WA_TranslucentBackground);  // a clear background: the list's black shows
  contentView_ = new QWidget(this);
  contentView_->setGeometry(0, 0, 320, 70);
  auto* lines = new QVBoxLayout(contentView_);
  lines->setContentsMargins(15, 10, 90, 10);
  lines->setSpacing(2);
  textLabel_ = new QLabel(contentView_);
  textLabel_->setStyleSheet(QStringLiteral("color: white; font-size: 16px;"));
  detailTextLabel_ = new QLabel(contentView_);
  detailTextLabel_->setStyleSheet(QStringLiteral("color: rgb(170, 170, 170); font-size: 12px;"));
  detailTextLabel_->setWordWrap(true);
  lines->addWidget(textLabel_);
  lines->addWidget(detailTextLabel_, 1);

  // The price at the right, over the whole row less 8 points on each side; it follows the row's
  // size.
  priceLabel_ = new QLabel(contentView_);
  const QRect content = contentView_->geometry();
  priceLabel_->setGeometry(8, 8, content.width() - 16, content.height() - 16);
  QFont bold = priceLabel_->font();
  bold.setBold(true);
  bold.setPixelSize(14);
  priceLabel_->setFont(bold);
  priceLabel_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  priceLabel_->setStyleSheet(QStringLiteral("color: black;"));
  priceLabel_->setStyleSheet(QStringLiteral("color: white;"));
  priceLabel_->setAttribute(Qt::WA_TransparentForMouseEvents);
}

void KRBanksStoreCell::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  contentView_->setGeometry(rect());
  if (priceLabel_) priceLabel_->setGeometry(8, 8, width() - 16, height() - 16);
}
