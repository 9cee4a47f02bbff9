#include "banks/KRBankStoreController.h"

#include <QLabel>
#include <QListWidget>
#include <QUrl>

#include "banks/BankShopInstall.h"
#include "banks/KRBanksStoreCell.h"
#include "frameworks/pelma/KRBankManager.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/ui/ActivityIndicator.h"
#include "platform/ui/Alert.h"
#include "platform/ui/NavigationController.h"

using platform::SKDownloadState;
using platform::SKPaymentQueue;
using platform::SKPaymentTransactionState;

std::set<std::string> KRBankStoreController::productIdentifiers() {
  return {"org.pelma.bank.glasskeys", "org.pelma.bank.analogbass", "org.pelma.bank.warmpads"};
}

KRBankStoreController::KRBankStoreController(BankFileOperations* files, KRBankManager* banks)
    : ownFiles_(files ? nullptr : std::make_unique<FilesystemBankFileOperations>()),
      files_(files ? files : ownFiles_.get()),
      banks_(banks ? banks : &KRBankManager::sharedInstance()) {
  viewDidLoad();
}

KRBankStoreController::~KRBankStoreController() {
  if (productsRequest_) productsRequest_->cancel();
  if (observing_) SKPaymentQueue::defaultQueue().removeTransactionObserver(this);
}

void KRBankStoreController::viewDidLoad() {
  // The list on black.
  setAttribute(Qt::WA_StyledBackground);
  setStyleSheet(QStringLiteral("KRBankStoreController { background-color: black; }"));

  overlay_ = new QWidget(this);
  overlay_->setObjectName(QStringLiteral("overlay"));
  overlay_->setGeometry(0, 20, 240, 100);
  overlay_->setAttribute(Qt::WA_StyledBackground);
  overlay_->setStyleSheet(
      QStringLiteral("#overlay { background-color: rgb(85, 85, 85); border-radius: 5px; }"));
  overlayLabel_ = new QLabel(overlay_);
  overlayLabel_->setGeometry(0, 60, 240, 30);
  overlayLabel_->setAlignment(Qt::AlignCenter);
  overlayLabel_->setStyleSheet(QStringLiteral("color: white; font-size: 14px;"));
  overlay_->hide();
  auto* spinner = new platform::ActivityIndicator(overlay_);
  spinner->setGeometry(95, 15, 50, 50);
  spinner->startAnimating();  // never stopped: it turns whenever the overlay shows
  activityIndicatorView_ = spinner;
}

void KRBankStoreController::showEvent(QShowEvent* event) {
  TableViewController::showEvent(event);
  if (auto* navigation = platform::NavigationController::of(this))
    navigation->setLeftBarButton(this, QStringLiteral("Restore"), [this] { restorePurchases(); });
  viewDidAppear(true);
}

void KRBankStoreController::hideEvent(QHideEvent* event) {
  TableViewController::hideEvent(event);
  viewWillDisappear(true);
}

void KRBankStoreController::resizeEvent(QResizeEvent* event) {
  TableViewController::resizeEvent(event);
  viewWillLayoutSubviews();
}

void KRBankStoreController::viewWillLayoutSubviews() {
  overlay_->move(width() / 2 - overlay_->width() / 2, 60 - overlay_->height() / 2);
  overlay_->raise();
}

void KRBankStoreController::viewDidAppear(bool /*animated*/) {
  if (SKPaymentQueue::canMakePayments()) {
    SKPaymentQueue::defaultQueue().addTransactionObserver(this);
    observing_ = true;
    if (!validProducts_ || validProducts_->empty()) fetchAvailableProducts();
  } else {
    alert(QStringLiteral("Can't purchase items"),
          QStringLiteral("Purchases are disabled on your devices"));
  }
  reloadData();
}

void KRBankStoreController::viewWillDisappear(bool /*animated*/) {
  SKPaymentQueue::defaultQueue().removeTransactionObserver(this);
  observing_ = false;
  setOverlayMessage(std::nullopt);
}

void KRBankStoreController::setOverlayMessage(std::optional<QString> text) {
  QPointer<KRBankStoreController> self(this);
  platform::dispatchAsyncMain([self, text] {
    if (!self) return;
    if (!text) {
      self->overlay_->hide();
      return;
    }
    self->overlay_->show();
    self->overlay_->raise();
    self->overlayLabel_->setText(*text);
  });
}

void KRBankStoreController::fetchAvailableProducts() {
  productsRequest_ = std::make_shared<platform::SKProductsRequest>(productIdentifiers());
  productsRequest_->setDelegate(this);
  productsRequest_->start();
  setOverlayMessage(QStringLiteral("Fetching banks"));
}

bool KRBankStoreController::canMakePurchases() const {
  return SKPaymentQueue::canMakePayments();
}

void KRBankStoreController::purchaseMyProduct(const platform::SKProductPtr& product) {
  platform::log("Purchasse myProduct");
  setOverlayMessage(QStringLiteral("Purchasing"));
  if (canMakePurchases())
    SKPaymentQueue::defaultQueue().addPayment(platform::SKPayment::paymentWithProduct(product));
}

void KRBankStoreController::purchase(QObject* /*sender*/) {
  platform::log("Purchase");
  if (validProducts_ && !validProducts_->empty()) purchaseMyProduct(validProducts_->front());
}

void KRBankStoreController::restorePurchases() {
  setOverlayMessage(QStringLiteral("Restoring purchases"));
  SKPaymentQueue::defaultQueue().restoreCompletedTransactions();
}

void KRBankStoreController::completeTransaction(const platform::SKPaymentTransactionPtr&) {
  platform::log("Complete transaction");
}

std::int64_t KRBankStoreController::numberOfRowsInSection(std::int64_t /*section*/) {
  return validProducts_ ? static_cast<std::int64_t>(validProducts_->size()) : 0;
}

platform::TableViewCell KRBankStoreController::cellForRowAtIndexPath(
    platform::IndexPath indexPath) {
  return {(*validProducts_)[static_cast<std::size_t>(indexPath.row)]->localizedTitle()};
}

QWidget* KRBankStoreController::widgetForRowAtIndexPath(platform::IndexPath indexPath) {
  auto* cell = new KRBanksStoreCell(KRBanksStoreCell::Style::subtitle, QStringLiteral("CellIAP"));
  const auto& product = (*validProducts_)[static_cast<std::size_t>(indexPath.row)];
  cell->textLabel()->setText(product->localizedTitle());
  cell->priceLabel()->setText(product->priceLocale().toCurrencyString(product->price()));
  if (banks_->containsBankWithName(product->localizedTitle().toStdString()))
    cell->priceLabel()->setText(QStringLiteral("Restore"));
  cell->detailTextLabel()->setText(product->localizedDescription());
  return cell;
}

void KRBankStoreController::didSelectRowAtIndexPath(platform::IndexPath indexPath) {
  deselectRow(indexPath);
  const auto& product = (*validProducts_)[static_cast<std::size_t>(indexPath.row)];
  SKPaymentQueue::defaultQueue().addPayment(platform::SKPayment::paymentWithProduct(product));
  setOverlayMessage(QStringLiteral("Purchasing/restoring"));
}

void KRBankStoreController::productsRequestDidReceiveResponse(
    platform::SKProductsRequest& /*request*/, const platform::SKProductsResponse& response) {
  const auto count = static_cast<int>(response.products.size());
  setOverlayMessage(std::nullopt);
  platform::log("Product request did receive response number: {}", count);
  if (count < 1) {
    alert(QStringLiteral("Not available"), QStringLiteral("No products to purchase"));
    return;
  }
  validProducts_ = response.products;
  QPointer<KRBankStoreController> weakSelf(this);
  platform::dispatchAsyncMain([weakSelf] {
    if (weakSelf) weakSelf->reloadData();
  });
}

void KRBankStoreController::paymentQueueUpdatedTransactions(
    SKPaymentQueue& queue, const std::vector<platform::SKPaymentTransactionPtr>& transactions) {
  platform::log("Updated transactions");
  for (const auto& transaction : transactions) {
    switch (transaction->transactionState()) {
      case SKPaymentTransactionState::purchasing:
        platform::log("Purchasing");
        break;
      case SKPaymentTransactionState::purchased:
        platform::log("Purchased  downloads count {}: ", transaction->downloads().size());
        if (!transaction->downloads().empty())
          queue.startDownloads(transaction->downloads());
        else
          queue.finishTransaction(transaction);
        break;
      case SKPaymentTransactionState::failed:
        platform::log("Purchase failed ");
        queue.finishTransaction(transaction);
        setOverlayMessage(std::nullopt);
        break;
      case SKPaymentTransactionState::restored:
        platform::log("Restored downloads count {} ", transaction->downloads().size());
        if (!transaction->downloads().empty())
          queue.startDownloads(transaction->downloads());
        else
          queue.finishTransaction(transaction);
        setOverlayMessage(std::nullopt);
        break;
      default:
        break;
    }
  }
}

void KRBankStoreController::paymentQueueUpdatedDownloads(
    SKPaymentQueue& queue, const std::vector<platform::SKDownloadPtr>& downloads) {
  for (const auto& download : downloads) {
    platform::log("DOWNLOAD STATE {}", static_cast<long>(download->downloadState()));
    switch (download->downloadState()) {
      case SKDownloadState::finished: {
        setOverlayMessage(std::nullopt);
        const QUrl url(QString::fromStdString(download->contentURL()));
        const std::filesystem::path package = url.toLocalFile().toStdString();
        const auto installed =
            bank_shop::installPackageContents(*files_, package, platform::bankFolder());
        banks_->refresh();
        platform::NotificationCenter::defaultCenter().postNotificationName(
            kBanksUpdatedNotification, this);
        reloadData();
        const bool hasFiles = installed.contentInfo && installed.contentInfo->count("Files");
        // A purchase whose banks did not reach the bank folder stays open: the payment queue
        // delivers it again at the next launch.
        if (installed.inBankFolder)
          queue.finishTransaction(download->transaction());
        else
          platform::log("Store: {} is not in the bank folder; its purchase stays open",
                        platform::printable(package.string()));
        // A package without a file list ends this update: later downloads in it wait.
        if (!hasFiles) return;
        break;
      }
      case SKDownloadState::failed:
        platform::log("Download failed");
        alert(QStringLiteral("Download failed"),
              QStringLiteral("Failed to download. Please retry later."));
        break;
      case SKDownloadState::cancelled:
        platform::log("Download cancelled");
        break;
      default:
        break;
    }
  }
}

void KRBankStoreController::alert(const QString& title, const QString& message) {
  lastAlert_ = platform::presentAlert(this, title, message);
}
