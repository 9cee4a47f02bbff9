#pragma once

// The bank shop: one row per bank product (title, description, price or "Restore"), buying by
// selecting a row, restoring earlier purchases, and installing what a purchase downloads into
// the bank folder. A status panel ("Fetching banks", "Purchasing/restoring", ...) lies over the
// list while something is under way. Shown as the root of a navigation controller (its left bar
// button is "Restore"). Main thread; overlay changes may be asked for from any thread.

#include <QPointer>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "banks/BankFileOperations.h"
#include "platform/store/StoreKit.h"
#include "platform/ui/Alert.h"
#include "platform/ui/TableViewController.h"

class QLabel;

class KRBankManager;

class KRBankStoreController : public platform::TableViewController,
                              public platform::SKProductsRequestDelegate,
                              public platform::SKPaymentTransactionObserver {
 public:
  static constexpr int kRowHeight = 70;

  // The three banks the shop offers.
  static std::set<std::string> productIdentifiers();

  // `files` and `banks` default to the real file system and the shared bank registry.
  explicit KRBankStoreController(BankFileOperations* files = nullptr,
                                 KRBankManager* banks = nullptr);
  ~KRBankStoreController() override;

  void viewDidLoad();
  void viewDidAppear(bool animated);
  void viewWillDisappear(bool animated);
  void viewWillLayoutSubviews();
  void didReceiveMemoryWarning() {}

  // Shows the status panel with `text`, or hides it (nothing); always later, on the main queue.
  void setOverlayMessage(std::optional<QString> text);
  void fetchAvailableProducts();
  bool canMakePurchases() const;
  void purchaseMyProduct(const platform::SKProductPtr& product);
  void purchase(QObject* sender);
  void restorePurchases();
  void completeTransaction(const platform::SKPaymentTransactionPtr& transaction);

  // Table data source and delegate.
  std::int64_t numberOfSectionsInTableView() override { return 1; }
  std::int64_t numberOfRowsInSection(std::int64_t section) override;
  int heightForRowAtIndexPath(platform::IndexPath) override { return kRowHeight; }
  platform::TableViewCell cellForRowAtIndexPath(platform::IndexPath indexPath) override;
  QWidget* widgetForRowAtIndexPath(platform::IndexPath indexPath) override;
  void didSelectRowAtIndexPath(platform::IndexPath indexPath) override;

  // Products request delegate and payment-queue observer.
  void productsRequestDidReceiveResponse(platform::SKProductsRequest& request,
                                         const platform::SKProductsResponse& response) override;
  void paymentQueueUpdatedTransactions(
      platform::SKPaymentQueue& queue,
      const std::vector<platform::SKPaymentTransactionPtr>& transactions) override;
  void paymentQueueUpdatedDownloads(platform::SKPaymentQueue& queue,
                                    const std::vector<platform::SKDownloadPtr>& downloads) override;

  // For tests and screenshots.
  const std::optional<std::vector<platform::SKProductPtr>>& validProducts() const {
    return validProducts_;
  }
  QWidget* overlay() const { return overlay_; }
  QLabel* overlayLabel() const { return overlayLabel_; }
  platform::Sheet* lastAlert() const { return lastAlert_; }

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void alert(const QString& title, const QString& message);

  std::shared_ptr<platform::SKProductsRequest> productsRequest_;
  std::optional<std::vector<platform::SKProductPtr>> validProducts_;
  QWidget* activityIndicatorView_ = nullptr;
  QWidget* overlay_ = nullptr;
  QLabel* overlayLabel_ = nullptr;

  std::unique_ptr<BankFileOperations> ownFiles_;
  BankFileOperations* files_;
  KRBankManager* banks_;
  bool observing_ = false;
  QPointer<platform::Sheet> lastAlert_;
};
