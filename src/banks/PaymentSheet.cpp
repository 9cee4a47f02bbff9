#include "banks/PaymentSheet.h"

#include <QApplication>
#include <QWidget>

#include "platform/ui/Alert.h"

platform::PaymentSheet makePaymentSheet() {
  return [](const platform::SKProduct& product, std::function<void(bool)> done) {
    // Over the shop's popover when it shows (a window of its own would close it).
    QWidget* presenter = QApplication::activePopupWidget();
    if (!presenter) presenter = QApplication::activeWindow();
    auto* sheet = platform::Sheet::present(
        presenter,
        QStringLiteral("Buy \u201c%1\u201d for %2?")
            .arg(product.localizedTitle(), product.priceLocale().toCurrencyString(product.price())),
        product.localizedDescription(),
        {{QStringLiteral("Buy"), [done] { done(true); }},
         {QStringLiteral("Cancel"), [done] { done(false); }}});
    sheet->setObjectName(QStringLiteral("paymentSheet"));
  };
}
