#include "platform/store/StoreKit.h"

#include <nlohmann/json.hpp>

#include <QCoreApplication>
#include <QSettings>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <fstream>
#include <random>

#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/store/PackageArchive.h"

namespace platform {
namespace {

std::vector<std::string> userLanguages() {
  std::vector<std::string> languages;
  for (const QString& language : QLocale().uiLanguages())
    languages.push_back(language.toStdString());
  return languages;
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
      return "file://" + (folder / "catalog.json").string();
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
  queue.runInBackground([self, configuration = queue.configuration()] {
    std::string error;
    auto catalog = SKPaymentQueue::readCatalog(configuration, &error);
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
    const StoreConfiguration& configuration, std::string* error) {
  const std::string& url = configuration.catalogUrl;
  if (url.empty()) {
    *error = "no store is configured";
    return std::nullopt;
  }
  FetchLimits limits = configuration.limits;
  limits.maximumBytes = std::min<std::uint64_t>(limits.maximumBytes, 1 << 20);
  std::string body;
  *error = fetchToString(url, &body, limits);
  if (!error->empty()) return std::nullopt;
  return parseCatalog(body, url, error);
}

std::filesystem::path SKPaymentQueue::receiptsFile() const {
  return configuration_.dataFolder / "receipts.json";
}

std::vector<SKPaymentQueue::Receipt> SKPaymentQueue::loadReceipts() const {
  std::vector<Receipt> receipts;
  std::ifstream in(receiptsFile());
  if (!in) return receipts;
  const auto document = nlohmann::json::parse(in, nullptr, false);
  if (!document.is_array()) {
    log("Store: {} is damaged; it is kept and no purchases are known", receiptsFile().string());
    return receipts;
  }
  for (const auto& entry : document) {
    if (!entry.is_object()) continue;
    receipts.push_back({entry.value("transaction", std::string()),
                        entry.value("product", std::string()), entry.value("finished", false)});
  }
  return receipts;
}

bool SKPaymentQueue::saveReceipts() const {
  nlohmann::json document = nlohmann::json::array();
  for (const Receipt& receipt : receipts_) {
    document.push_back({{"transaction", receipt.transactionIdentifier},
                        {"product", receipt.productIdentifier},
                        {"finished", receipt.finished}});
  }
  std::error_code error;
  std::filesystem::create_directories(configuration_.dataFolder, error);
  const auto temporary = receiptsFile().string() + ".new";
  {
    std::ofstream out(temporary, std::ios::trunc);
    out << document.dump(2) << '\n';
    if (!out.flush()) return false;
  }
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
          log("Store: the catalog no longer has {}", receipt.productIdentifier);
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
        download->transaction_ ? download->transaction_->identifier_ : "package";
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
  std::filesystem::create_directories(downloads, ignored);
  FetchLimits limits = configuration.limits;
  limits.maximumBytes = std::min(limits.maximumBytes, product.packageSize);
  std::string error = fetchToFile(product.packageUrl, partial, limits, &cancelTransfers_);
  if (error.empty() && std::filesystem::file_size(partial, ignored) != product.packageSize)
    error = "the package has " + std::to_string(std::filesystem::file_size(partial, ignored)) +
            " bytes, not " + std::to_string(product.packageSize);
  if (error.empty() && sha256OfFile(partial) != product.packageSha256)
    error = "the package's SHA-256 does not match the catalog";
  if (error.empty()) error = unpackPackage(partial, folder);
  std::filesystem::remove(partial, ignored);
  dispatchAsyncMain([this, download, error, folder] {
    if (error.empty()) {
      download->state_ = SKDownloadState::finished;
      download->contentUrl_ = "file://" + folder.string();
    } else {
      log("Store: download of {} failed: {}", download->product_.identifier, error);
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
  std::filesystem::remove_all(configuration_.dataFolder / "packages" / transaction->identifier_,
                              ignored);
  open_.erase(std::remove_if(open_.begin(), open_.end(),
                             [&](const auto& open) { return open.get() == transaction; }),
              open_.end());
}

StoreConfiguration defaultStoreConfiguration() {
  StoreConfiguration configuration;
  configuration.dataFolder = storeFolder();
  QSettings settings;
  configuration.enabled = settings.value(QStringLiteral("store-enabled"), true).toBool();
  if (const char* url = std::getenv("PELMA_STORE_URL"); url && *url)
    configuration.catalogUrl = url;
  else if (const QString url = settings.value(QStringLiteral("store-url")).toString();
           !url.isEmpty())
    configuration.catalogUrl = url.toStdString();
  else
    configuration.catalogUrl = installedCatalogUrl();
  return configuration;
}

}  // namespace platform
