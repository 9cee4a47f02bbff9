#pragma once

// The in-app purchase service on the desktop: a bank catalog (catalog.json and zip packages) at a
// file or HTTP(S) URL, receipts in a local file, and content packages downloaded and unpacked.
//
// Everything is used on the main thread, and every answer (products, transaction and download
// updates) arrives on the main queue. Fetching and unpacking run on one worker thread of the
// payment queue. A purchase writes its receipt (atomically) before the transaction is reported
// purchased, and a receipt is never removed: a transaction left unfinished is delivered again,
// purchased, to the first observer of the next run, and a restore delivers every receipt again.

#include <QLocale>
#include <QString>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/store/Fetch.h"
#include "platform/store/Receipts.h"
#include "platform/store/StoreCatalog.h"

namespace platform {

class SKProduct {
 public:
  explicit SKProduct(CatalogProduct entry);
  const std::string& productIdentifier() const { return entry_.identifier; }
  // In the user's language when the catalog has it, otherwise the catalog's default.
  QString localizedTitle() const;
  QString localizedDescription() const;
  double price() const;
  const std::string& priceText() const { return entry_.price; }
  QLocale priceLocale() const { return QLocale(QString::fromStdString(entry_.priceLocale)); }
  // The catalog entry behind it: package, free flag.
  const CatalogProduct& catalogEntry() const { return entry_; }

 private:
  CatalogProduct entry_;
};
using SKProductPtr = std::shared_ptr<const SKProduct>;

struct SKProductsResponse {
  std::vector<SKProductPtr> products;  // in catalog order
  std::vector<std::string> invalidProductIdentifiers;
};

class SKProductsRequest;
class SKProductsRequestDelegate {
 public:
  virtual ~SKProductsRequestDelegate() = default;
  virtual void productsRequestDidReceiveResponse(SKProductsRequest& request,
                                                 const SKProductsResponse& response) = 0;
  // The catalog could not be read (the request is over; no response follows).
  virtual void requestDidFailWithError(SKProductsRequest&, const std::string& /*error*/) {}
};

class SKProductsRequest : public std::enable_shared_from_this<SKProductsRequest> {
 public:
  explicit SKProductsRequest(std::set<std::string> productIdentifiers);
  void setDelegate(SKProductsRequestDelegate* delegate) { delegate_ = delegate; }
  // Asks the store; the delegate hears on the main queue. A request whose delegate was cleared
  // (cancel) answers nobody.
  void start();
  void cancel() { delegate_ = nullptr; }

 private:
  std::set<std::string> identifiers_;
  SKProductsRequestDelegate* delegate_ = nullptr;
};

struct SKPayment {
  SKProductPtr product;
  static SKPayment paymentWithProduct(SKProductPtr product) { return {std::move(product)}; }
};

enum class SKPaymentTransactionState {
  purchasing = 0,
  purchased = 1,
  failed = 2,
  restored = 3,
  deferred = 4,
};

enum class SKDownloadState {
  waiting = 0,
  active = 1,
  paused = 2,
  finished = 3,
  failed = 4,
  cancelled = 5
};

class SKPaymentTransaction;

class SKDownload {
 public:
  SKDownload() = default;
  // A download as the queue reports it, for handing updates to an observer directly.
  SKDownload(SKDownloadState state, std::string contentUrl, SKPaymentTransaction* transaction)
      : state_(state), contentUrl_(std::move(contentUrl)), transaction_(transaction) {}
  SKDownloadState downloadState() const { return state_; }
  // file:// URL of the unpacked package folder, once finished.
  const std::string& contentURL() const { return contentUrl_; }
  SKPaymentTransaction* transaction() const { return transaction_; }
  const std::string& error() const { return error_; }

 private:
  friend class SKPaymentQueue;
  SKDownloadState state_ = SKDownloadState::waiting;
  std::string contentUrl_;
  std::string error_;
  SKPaymentTransaction* transaction_ = nullptr;
  CatalogProduct product_;
};
using SKDownloadPtr = std::shared_ptr<SKDownload>;

class SKPaymentTransaction {
 public:
  SKPaymentTransactionState transactionState() const { return state_; }
  const std::vector<SKDownloadPtr>& downloads() const { return downloads_; }
  const std::string& transactionIdentifier() const { return identifier_; }
  const std::string& productIdentifier() const { return productIdentifier_; }

 private:
  friend class SKPaymentQueue;
  SKPaymentTransactionState state_ = SKPaymentTransactionState::purchasing;
  std::string identifier_;
  std::string productIdentifier_;
  std::vector<SKDownloadPtr> downloads_;
};
using SKPaymentTransactionPtr = std::shared_ptr<SKPaymentTransaction>;

class SKPaymentQueue;
class SKPaymentTransactionObserver {
 public:
  virtual ~SKPaymentTransactionObserver() = default;
  virtual void paymentQueueUpdatedTransactions(
      SKPaymentQueue& queue, const std::vector<SKPaymentTransactionPtr>& transactions) = 0;
  virtual void paymentQueueUpdatedDownloads(SKPaymentQueue& queue,
                                            const std::vector<SKDownloadPtr>& downloads) = 0;
};

// Where the store is and where it keeps its files.
struct StoreConfiguration {
  std::string catalogUrl;            // empty: no store
  bool enabled = true;               // false: purchases are switched off
  std::filesystem::path dataFolder;  // receipts, partial downloads, unpacked packages
  FetchLimits limits;
};

// Asks the user to confirm a purchase; calls `done(true)` to buy, `done(false)` to cancel.
using PaymentSheet = std::function<void(const SKProduct& product, std::function<void(bool)> done)>;

class SKPaymentQueue {
 public:
  static SKPaymentQueue& defaultQueue();
  // True when a store is configured and switched on.
  static bool canMakePayments();

  // Main thread, before the first use (the application sets these up at launch).
  void configure(StoreConfiguration configuration);
  const StoreConfiguration& configuration() const { return configuration_; }
  void setPaymentSheet(PaymentSheet sheet) { sheet_ = std::move(sheet); }

  void addTransactionObserver(SKPaymentTransactionObserver* observer);
  void removeTransactionObserver(SKPaymentTransactionObserver* observer);
  void addPayment(const SKPayment& payment);
  void restoreCompletedTransactions();
  void startDownloads(const std::vector<SKDownloadPtr>& downloads);
  void finishTransaction(const SKPaymentTransactionPtr& transaction);
  void finishTransaction(SKPaymentTransaction* transaction);

  // Runs `job` on the queue's worker thread (catalog reads, downloads).
  void runInBackground(std::function<void()> job);
  // Reads the catalog of `configuration` (on the worker thread, with a copy taken on the main
  // thread): the products, or nothing with the reason in `error`.
  std::optional<std::vector<CatalogProduct>> readCatalog(const StoreConfiguration& configuration,
                                                         std::string* error) const;

  SKPaymentQueue();
  // Cancels the transfer under way (within a second) and ends the worker thread; queued jobs are
  // dropped.
  ~SKPaymentQueue();

 private:
  std::filesystem::path receiptsFile() const;
  std::vector<Receipt> loadReceipts() const;
  bool saveReceipts() const;
  // Transactions for `receipts` with their downloads, made from the catalog on the worker
  // thread, then handed to the observers on the main queue with `state`.
  void deliverFromReceipts(std::vector<Receipt> receipts, SKPaymentTransactionState state);
  SKPaymentTransactionPtr makeTransaction(const std::string& identifier,
                                          const CatalogProduct& product,
                                          SKPaymentTransactionState state);
  void notifyTransactions(const std::vector<SKPaymentTransactionPtr>& transactions);
  void notifyDownloads(const std::vector<SKDownloadPtr>& downloads);
  // Worker thread; `name` names the partial file and the package folder.
  void download(const SKDownloadPtr& download, const std::string& name,
                const StoreConfiguration& configuration);
  void workerLoop();

  StoreConfiguration configuration_;
  PaymentSheet sheet_;
  std::vector<SKPaymentTransactionObserver*> observers_;
  std::vector<Receipt> receipts_;
  bool receiptsLoaded_ = false;
  bool unfinishedDelivered_ = false;
  std::vector<SKPaymentTransactionPtr> open_;  // not yet finished

  std::mutex jobsMutex_;
  std::condition_variable jobsChanged_;
  std::deque<std::function<void()>> jobs_;
  bool stopping_ = false;
  std::atomic<bool> cancelTransfers_{false};
  std::thread worker_;
};

// The store the application uses: PELMA_STORE_URL, else the preference "store-url", else the
// catalog installed with the application. Purchases are off when the preference "store-enabled"
// is false.
StoreConfiguration defaultStoreConfiguration();

}  // namespace platform
