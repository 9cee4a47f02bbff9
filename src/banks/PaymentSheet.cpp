#include "banks/PaymentSheet.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

platform::PaymentSheet makePaymentSheet() {
  return [](const platform::SKProduct& product, std::function<void(bool)> done) {
    auto* sheet = new QMessageBox(QApplication::activeWindow());
    sheet->setObjectName(QStringLiteral("paymentSheet"));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowTitle(QStringLiteral("Confirm your purchase"));
    sheet->setText(QStringLiteral("Buy \u201c%1\u201d for %2?")
                       .arg(product.localizedTitle(),
                            product.priceLocale().toCurrencyString(product.price())));
    sheet->setInformativeText(product.localizedDescription());
    QPushButton* buy = sheet->addButton(QStringLiteral("Buy"), QMessageBox::AcceptRole);
    sheet->addButton(QMessageBox::Cancel);
    sheet->setDefaultButton(buy);
    // Exactly one answer, also when the dialog is closed without a button.
    auto answered = std::make_shared<bool>(false);
    QObject::connect(sheet, &QMessageBox::finished, sheet, [sheet, buy, done, answered] {
      if (*answered) return;
      *answered = true;
      done(sheet->clickedButton() == buy);
    });
    sheet->open();
  };
}
