#pragma once

// A row of the bank shop: the bank's title, its description below in a smaller grey line, and at
// the right its price, or "Restore" for a bank that is installed already.

#include <QWidget>

class QLabel;

class KRBanksStoreCell : public QWidget {
 public:
  enum class Style { subtitle };

  KRBanksStoreCell(Style style, const QString& reuseIdentifier, QWidget* parent = nullptr);

  QLabel* textLabel() const { return textLabel_; }
  QLabel* detailTextLabel() const { return detailTextLabel_; }
  QLabel* priceLabel() const { return priceLabel_; }
  void setPriceLabel(QLabel* label) { priceLabel_ = label; }
  const QString& reuseIdentifier() const { return reuseIdentifier_; }

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  QString reuseIdentifier_;
  QWidget* contentView_;
  QLabel* textLabel_;
  QLabel* detailTextLabel_;
  QLabel* priceLabel_ = nullptr;
};
