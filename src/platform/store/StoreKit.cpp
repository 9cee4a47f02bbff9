#include "platform/store/StoreKit.h"

#include <QCoreApplication>
#include <QUrl>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <fstream>
#include <random>

#include "platform/foundation/Files.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/store/PackageArchive.h"

namespace platform {
namespace {

std::vector<std::string> userLanguages() {
  std::vector<std::string> languages;
  for (const QString& language : QLocale().uiLanguages())
    languages.push_back(language.toStdString());
  return languages;
}

std::string fileUrl(const std::filesystem::path& path) {
  return QUrl::fromLocalFile(QString::fromStdString(path.string()))
      .toString(QUrl::FullyEncoded)
      .toStdString();
}

std::string newTransactionIdentifier() {
  static std::mt19937_64 random(std::random_device{}());
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()) + "-" +
         std::to_string(random() % 1000000);
}

// The catalog folders that come with the application: built beside the executable
// (build/<preset>/catalog) or installed with it (<prefix>/share/pelma/catalog).
std::string installedCatalogUrl() {
  std::error_code error;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return {};
  const auto prefix = executable.parent_path().parent_path();
  for (const auto& folder : {prefix / "catalog", prefix / "share" / "pelma" / "catalog"}) {
    if (std::filesystem::exists(folder / "catalog.json", error))
      return fileUrl(folder / "catalog.json");
  }
  return {};
}

}  // namespace

SKProduct::SKProduct(CatalogProduct entry) : entry_(std::move(entry)) {}

QString SKProduct::localizedTitle() const {
  return QString::fromStdString(localizedText(entry_.titles, userLanguages()));
}

QString SKProduct::localizedDescription() const {
  return QString::fromStdString(localizedText(entry_.descriptions, userLanguages()));
}

double SKProduct::price() const {
  double value = 0.0;  // from_chars: the catalog's decimal point whatever the user's locale
  std::from_chars(entry_.price.data(), entry_.price.data() + entry_.price.size(), value);
  return value;
}

SKProductsRequest::SKProductsRequest(std::set<std::string> productIdentifiers)
    : identifiers_(std::move(productIdentifiers)) {}

void SKProductsRequest::start() {
  auto self = shared_from_this();
  auto& queue = SKPaymentQueue::defaultQueue();
  queue.runInBackground([self, &queue, configuration = queue.configuration()] {
    std::string error;
    auto catalog = queue.readCatalog(configuration, &error);
    dispatchAsyncMain([self, catalog = std::move(catalog), error] {
      if (!catalog) log("Store: cannot read the catalog: {}", error);
      if (!self->delegate_) return;
      if (!catalog) {
        self->delegate_->requestDidFailWithError(*self, error);
        return;
      }
      SKProductsResponse response;
      std::set<std::string> found;
      for (const CatalogProduct& entry : *catalog) {
        if (!self->identifiers_.count(entry.identifier)) continue;
        found.insert(entry.identifier);
        response.products.push_back(std::make_shared<SKProduct>(entry));
      }
      for (const std::string& identifier : self->identifiers_)
        if (!found.count(identifier)) response.invalidProductIdentifiers.push_back(identifier);
      self->delegate_->productsRequestDidReceiveResponse(*self, response);
    });
  });
}

SKPaymentQueue& SKPaymentQueue::defaultQueue() {
  static SKPaymentQueue queue;
  return queue;
}

bool SKPaymentQueue::canMakePayments() {
  const auto& configuration = defaultQueue().configuration_;
  return configuration.enabled && !configuration.catalogUrl.empty();
}

SKPaymentQueue::SKPaymentQueue() : worker_([this] { workerLoop(); }) {}

SKPaymentQueue::~SKPaymentQueue() {
  cancelTransfers_ = true;
  {
    std::lock_guard lock(jobsMutex_);
    stopping_ = true;
  }
  jobsChanged_.notify_all();
  worker_.join();
}

void SKPaymentQueue::configure(StoreConfiguration configuration) {
  configuration_ = std::move(configuration);
  receipts_.clear();
  receiptsLoaded_ = false;
  unfinishedDelivered_ = false;
  open_.clear();
}

void SKPaymentQueue::runInBackground(std::function<void()> job) {
  {
    std::lock_guard lock(jobsMutex_);
    jobs_.push_back(std::move(job));
  }
  jobsChanged_.notify_one();
}

void SKPaymentQueue::workerLoop() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock lock(jobsMutex_);
      jobsChanged_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
      if (stopping_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
  }
}

std::optional<std::vector<CatalogProduct>> SKPaymentQueue::readCatalog(
    const StoreConfiguration& configuration, std::string* error) const {
  const std::string& url = configuration.catalogUrl;
  if (url.empty()) {
    *error = "no store is configured";
    return std::nullopt;
  }
  FetchLimits limits = configuration.limits;
  limits.maximumBytes = std::min<std::uint64_t>(limits.maximumBytes, kMaximumCatalogBytes);
  std::string body;
  *error = fetchToString(url, &body, limits, &cancelTransfers_);
  if (!error->empty()) return std::nullopt;
  return parseCatalog(body, url, error);
}

std::filesystem::path SKPaymentQueue::receiptsFile() const {
  return configuration_.dataFolder / "receipts.json";
}

std::vector<Receipt> SKPaymentQueue::loadReceipts() const {
  const auto file = receiptsFile();
  std::error_code error;
  if (!std::filesystem::exists(std::filesystem::symlink_status(file, error))) return {};
  std::string why;
  auto text = readFileUpTo(file, kMaximumReceiptsBytes, &why);
  auto receipts = text ? parseReceipts(*text, &why) : std::nullopt;
  if (receipts) return std::move(*receipts);
  // Kept for the user under another name, so that the next purchase does not write over it.
  auto kept = file;
  kept += ".damaged-" + newTransactionIdentifier();
  std::filesystem::rename(file, kept, error);
  log("Store: {} is damaged ({}); it is kept as {} and no purchases are known",
      printable(file.string()), why, printable(kept.filename().string()));
  return {};
}

bool SKPaymentQueue::saveReceipts() const {
  if (!makeFolder(configuration_.dataFolder)) return false;
  const auto temporary = receiptsFile().string() + ".new";
  {
    std::ofstream out(temporary, std::ios::trunc);
    out << formatReceipts(receipts_);
    if (!out.flush()) return false;
  }
  std::error_code error;
  std::filesystem::rename(temporary, receiptsFile(), error);  // a reader sees old or new
  return !error;
}

SKPaymentTransactionPtr SKPaymentQueue::makeTransaction(const std::string& identifier,
                                                        const CatalogProduct& product,
                                                        SKPaymentTransactionState state) {
  auto transaction = std::make_shared<SKPaymentTransaction>();
  transaction->identifier_ = identifier;
  transaction->productIdentifier_ = product.identifier;
  transaction->state_ = state;
  if (state == SKPaymentTransactionState::purchased ||
      state == SKPaymentTransactionState::restored) {
    auto download = std::make_shared<SKDownload>();
    download->transaction_ = transaction.get();
    download->product_ = product;
    transaction->downloads_.push_back(std::move(download));
  }
  return transaction;
}

void SKPaymentQueue::notifyTransactions(const std::vector<SKPaymentTransactionPtr>& transactions) {
  for (SKPaymentTransactionObserver* observer : std::vector(observers_))
    observer->paymentQueueUpdatedTransactions(*this, transactions);
}

void SKPaymentQueue::notifyDownloads(const std::vector<SKDownloadPtr>& downloads) {
  for (SKPaymentTransactionObserver* observer : std::vector(observers_))
    observer->paymentQueueUpdatedDownloads(*this, downloads);
}

void SKPaymentQueue::addTransactionObserver(SKPaymentTransactionObserver* observer) {
  if (std::find(observers_.begin(), observers_.end(), observer) == observers_.end())
    observers_.push_back(observer);
  if (!receiptsLoaded_) {
    receipts_ = loadReceipts();
    receiptsLoaded_ = true;
  }
  if (unfinishedDelivered_) return;
  unfinishedDelivered_ = true;
  std::vector<Receipt> unfinished;
  for (const Receipt& receipt : receipts_)
    if (!receipt.finished) unfinished.push_back(receipt);
  if (!unfinished.empty()) deliverFromReceipts(unfinished, SKPaymentTransactionState::purchased);
}

void SKPaymentQueue::removeTransactionObserver(SKPaymentTransactionObserver* observer) {
  observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
}

void SKPaymentQueue::addPayment(const SKPayment& payment) {
  if (!payment.product) return;
  if (!receiptsLoaded_) {
    receipts_ = loadReceipts();
    receiptsLoaded_ = true;
  }
  const CatalogProduct entry = payment.product->catalogEntry();
  auto transaction =
      makeTransaction(newTransactionIdentifier(), entry, SKPaymentTransactionState::purchasing);
  open_.push_back(transaction);
  notifyTransactions({transaction});

  auto decide = [this, transaction, entry](bool buy) {
    if (buy) {
      receipts_.push_back({transaction->identifier_, entry.identifier, false});
      if (!saveReceipts()) {
        log("Store: cannot write {}; the purchase is cancelled", receiptsFile().string());
        receipts_.pop_back();
        buy = false;
      }
    }
    if (!buy) {
      transaction->state_ = SKPaymentTransactionState::failed;
      notifyTransactions({transaction});
      return;
    }
    auto purchased =
        makeTransaction(transaction->identifier_, entry, SKPaymentTransactionState::purchased);
    *transaction = std::move(*purchased);
    for (auto& download : transaction->downloads_)
      download->transaction_ = transaction.get();
    notifyTransactions({transaction});
  };
  if (entry.free) {
    dispatchAsyncMain([decide] { decide(true); });
  } else if (sheet_) {
    sheet_(*payment.product,
           [decide](bool buy) { dispatchAsyncMain([decide, buy] { decide(buy); }); });
  } else {
    log("Store: no way to confirm a payment here; the purchase is cancelled");
    dispatchAsyncMain([decide] { decide(false); });
  }
}

void SKPaymentQueue::restoreCompletedTransactions() {
  if (!receiptsLoaded_) {
    receipts_ = loadReceipts();
    receiptsLoaded_ = true;
  }
  deliverFromReceipts(receipts_, SKPaymentTransactionState::restored);
}

void SKPaymentQueue::deliverFromReceipts(std::vector<Receipt> receipts,
                                         SKPaymentTransactionState state) {
  runInBackground([this, receipts = std::move(receipts), state, configuration = configuration_] {
    std::string error;
    auto catalog = readCatalog(configuration, &error);
    dispatchAsyncMain([this, receipts, state, catalog = std::move(catalog), error] {
      if (!catalog) {
        log("Store: cannot read the catalog: {}", error);
        return;
      }
      std::vector<SKPaymentTransactionPtr> transactions;
      for (const Receipt& receipt : receipts) {
        auto entry = std::find_if(catalog->begin(), catalog->end(), [&](const CatalogProduct& p) {
          return p.identifier == receipt.productIdentifier;
        });
        if (entry == catalog->end()) {
          log("Store: the catalog no longer has {}", printable(receipt.productIdentifier));
          continue;
        }
        transactions.push_back(makeTransaction(receipt.transactionIdentifier, *entry, state));
        open_.push_back(transactions.back());
      }
      if (!transactions.empty()) notifyTransactions(transactions);
    });
  });
}

void SKPaymentQueue::startDownloads(const std::vector<SKDownloadPtr>& downloads) {
  for (const SKDownloadPtr& download : downloads) {
    download->state_ = SKDownloadState::active;
    download->error_.clear();
  }
  notifyDownloads(downloads);
  for (const SKDownloadPtr& download : downloads) {
    const std::string name =
        fileNameFor(download->transaction_ ? download->transaction_->identifier_ : "package");
    runInBackground([this, download, name, configuration = configuration_] {
      this->download(download, name, configuration);
    });
  }
}

void SKPaymentQueue::download(const SKDownloadPtr& download, const std::string& name,
                              const StoreConfiguration& configuration) {
  const CatalogProduct& product = download->product_;
  const auto downloads = configuration.dataFolder / "downloads";
  const auto partial = downloads / (name + ".zip.part");
  const auto folder = configuration.dataFolder / "packages" / name;
  std::error_code ignored;
  FetchLimits limits = configuration.limits;
  limits.maximumBytes = std::min(limits.maximumBytes, product.packageSize);
  std::string error;
  if (!makeFolder(downloads) || !makeFolder(folder.parent_path()))
    error = "the store's folders cannot be made";
  if (error.empty()) error = fetchToFile(product.packageUrl, partial, limits, &cancelTransfers_);
  if (error.empty() && std::filesystem::file_size(partial, ignored) != product.packageSize)
    error = "the package has " + std::to_string(std::filesystem::file_size(partial, ignored)) +
            " bytes, not " + std::to_string(product.packageSize);
  if (error.empty() && sha256OfFile(partial) != product.packageSha256)
    error = "the package's SHA-256 does not match the catalog";
  if (error.empty())
    error = unpackPackage(partial, folder, UnpackLimits::forPackageOf(product.packageSize));
  std::filesystem::remove(partial, ignored);
  dispatchAsyncMain([this, download, error, folder] {
    if (error.empty()) {
      download->state_ = SKDownloadState::finished;
      download->contentUrl_ = fileUrl(folder);
    } else {
      log("Store: download of {} failed: {}", printable(download->product_.identifier), error);
      download->state_ =
          error == "cancelled" ? SKDownloadState::cancelled : SKDownloadState::failed;
      download->error_ = error;
    }
    notifyDownloads({download});
  });
}

void SKPaymentQueue::finishTransaction(const SKPaymentTransactionPtr& transaction) {
  finishTransaction(transaction.get());
}

void SKPaymentQueue::finishTransaction(SKPaymentTransaction* transaction) {
  if (!transaction) return;
  for (Receipt& receipt : receipts_) {
    if (receipt.transactionIdentifier == transaction->identifier_ && !receipt.finished) {
      receipt.finished = true;
      if (!saveReceipts()) log("Store: cannot write {}", receiptsFile().string());
    }
  }
  std::error_code ignored;
  std::filesystem::remove_all(
      configuration_.dataFolder / "packages" / fileNameFor(transaction->identifier_), ignored);
  open_.erase(std::remove_if(open_.begin(), open_.end(),
                             [&](const auto& open) { return open.get() == transaction; }),
              open_.end());
}

StoreConfiguration defaultStoreConfiguration() {
  StoreConfiguration configuration;
  configuration.dataFolder = storeFolder();
  UserDefaults& defaults = UserDefaults::standardUserDefaults();
  configuration.enabled = defaults.boolForKey("store-enabled").value_or(true);
  if (const char* url = std::getenv("PELMA_STORE_URL"); url && *url)
    configuration.catalogUrl = url;
  else if (const std::optional<std::string> url = defaults.stringForKey("store-url");
           url && !url->empty())
    configuration.catalogUrl = *url;
  else
    configuration.catalogUrl = installedCatalogUrl();
  return configuration;
}

}  // namespace platform
