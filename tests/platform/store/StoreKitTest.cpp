// The purchase service against real catalogs: a file catalog and one served over HTTP by a test
// server on 127.0.0.1 (which can also truncate, stall, redirect and answer 404), real receipts
// files and real zip packages.

#include "platform/store/StoreKit.h"

#include <gtest/gtest.h>

#include <QLocale>
#include <atomic>
#include <filesystem>
#include <fstream>

#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "support/StoreFixtures.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace testing_support;
using platform::SKDownloadState;
using platform::SKPaymentQueue;
using platform::SKPaymentTransactionState;
namespace fs = std::filesystem;

class Recorder : public platform::SKPaymentTransactionObserver,
                 public platform::SKProductsRequestDelegate {
 public:
  void paymentQueueUpdatedTransactions(
      SKPaymentQueue&, const std::vector<platform::SKPaymentTransactionPtr>& updated) override {
    for (const auto& transaction : updated) {
      transactions.push_back(transaction);
      states.push_back(transaction->transactionState());
    }
  }
  // Downloads are followed through their own state (buyAndDownload).
  void paymentQueueUpdatedDownloads(SKPaymentQueue&,
                                    const std::vector<platform::SKDownloadPtr>&) override {}
  void productsRequestDidReceiveResponse(platform::SKProductsRequest&,
                                         const platform::SKProductsResponse& answer) override {
    response = answer;
    answered = true;
  }
  void requestDidFailWithError(platform::SKProductsRequest&, const std::string& why) override {
    error = why;
    answered = true;
  }

  std::vector<platform::SKPaymentTransactionPtr> transactions;
  std::vector<SKPaymentTransactionState> states;
  platform::SKProductsResponse response;
  std::string error;
  bool answered = false;
};

class Store : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(catalog);
    platform::MainQueue::setMain(&mainQueue);
    ASSERT_TRUE(writeZip(catalog / "a.zip", {{"ContentInfo.plist", contentInfo({"A.plb"})},
                                             {"Contents/A.plb", bankText("Alpha")}}));
    ASSERT_TRUE(writeZip(catalog / "b.zip", {{"Contents/B.plb", bankText("Beta")}}));
    writeCatalog(catalog, {{"org.test.b", "Beta", "2.49", "de_DE", "b.zip"},
                           {"org.test.a", "Alpha", "1.99", "en_US", "a.zip", true, "Erster"}});
    configure("file://" + (catalog / "catalog.json").string());
  }
  void TearDown() override {
    SKPaymentQueue::defaultQueue().removeTransactionObserver(&recorder);
    SKPaymentQueue::defaultQueue().configure({});
    platform::MainQueue::setMain(nullptr);
    QLocale::setDefault(QLocale::c());
  }

  void configure(const std::string& url, long stallSeconds = 20) {
    platform::StoreConfiguration configuration;
    configuration.catalogUrl = url;
    configuration.dataFolder = root / "store";
    configuration.limits.stallSeconds = stallSeconds;
    SKPaymentQueue::defaultQueue().configure(configuration);
  }
  // Runs the main queue until `done`, for at most ten seconds.
  bool pumpUntil(const std::function<bool()>& done) {
    return waitFor(
        [&] {
          mainQueue.runPending();
          return done();
        },
        std::chrono::seconds(10));
  }
  platform::SKProductsResponse products(std::set<std::string> identifiers) {
    auto request = std::make_shared<platform::SKProductsRequest>(std::move(identifiers));
    request->setDelegate(&recorder);
    recorder.answered = false;
    request->start();
    EXPECT_TRUE(pumpUntil([&] { return recorder.answered; }));
    return recorder.response;
  }
  // Buys the product and waits for its download to end.
  platform::SKDownloadPtr buyAndDownload(const platform::SKProductPtr& product) {
    auto& queue = SKPaymentQueue::defaultQueue();
    queue.addTransactionObserver(&recorder);
    const std::size_t before = recorder.transactions.size();
    queue.addPayment(platform::SKPayment::paymentWithProduct(product));
    EXPECT_TRUE(pumpUntil([&] {
      return !recorder.states.empty() &&
             recorder.states.back() != SKPaymentTransactionState::purchasing &&
             recorder.transactions.size() > before + 1;
    }));
    const auto transaction = recorder.transactions.back();
    if (transaction->downloads().empty()) return nullptr;
    queue.startDownloads(transaction->downloads());
    const auto download = transaction->downloads().front();
    EXPECT_TRUE(pumpUntil([&] { return download->downloadState() >= SKDownloadState::finished; }));
    return download;
  }

  platform::ManualMainQueue mainQueue;
  Recorder recorder;
  TemporaryFolder scratch;
  const fs::path root = scratch.path(), catalog = root / "catalog";
};

TEST_F(Store, FileAndHttpCatalogsGiveTheAskedProductsInCatalogOrder) {
  QLocale::setDefault(QLocale(QStringLiteral("de_AT")));
  CatalogServer server(catalog);
  for (const std::string& url : {"file://" + (catalog / "catalog.json").string(),
                                 server.url("catalog.json"), server.url("redirect/catalog.json")}) {
    SCOPED_TRACE(url);
    configure(url);
    const auto response = products({"org.test.a", "org.test.b", "org.test.missing"});
    ASSERT_EQ(response.products.size(), 2u);
    EXPECT_EQ(response.products[0]->productIdentifier(), "org.test.b");
    EXPECT_EQ(response.products[1]->localizedDescription(), QStringLiteral("Erster"));  // "de"
    EXPECT_EQ(response.products[0]->localizedDescription(), QStringLiteral("About Beta"));
    // The title and the price shown in the product's own locale are the shop's test
    // (Shop.RowsFollow...).
    EXPECT_DOUBLE_EQ(response.products[0]->price(), 2.49);  // whatever the user's locale
    EXPECT_EQ(response.invalidProductIdentifiers, std::vector<std::string>{"org.test.missing"});
  }
}

TEST_F(Store, CatalogsThatCannotBeReadEndTheRequestWithAReason) {
  std::ofstream(catalog / "broken.json") << "{\"products\": [";
  std::ofstream(catalog / "nopackage.json") << R"({"products": [{"identifier": "x"}]})";
  const std::string package =
      R"("package": {"url": "x.zip", "size": 1, "sha256": ")" + std::string(64, 'a') + "\"}";
  std::ofstream(catalog / "locale.json")
      << R"({"products": [{"identifier": "x", "priceLocale": 5, )" << package << "}]}";
  std::ofstream(catalog / "free.json")
      << R"({"products": [{"identifier": "x", "free": "yes", )" << package << "}]}";
  std::ofstream(catalog / "deep.json")
      << R"({"products": [{"identifier": "x", "price": )" << std::string(300000, '[')
      << std::string(300000, ']') << ", " << package << "}]}";
  CatalogServer server(catalog);
  const auto file = [&](const char* name) { return "file://" + (catalog / name).string(); };
  const std::vector<std::pair<std::string, std::string>> cases{
      {file("broken.json"), "the catalog is not JSON"},
      {server.url("nopackage.json"), "product x has no package with url, size and sha256"},
      {file("locale.json"), "product x has a malformed \"priceLocale\""},
      {file("free.json"), "product x has a malformed \"free\""},
      {file("deep.json"), "the catalog is too large or too deeply nested"},
      {server.url("missing.json"), "HTTP 404"},
      {"", "no store is configured"}};
  for (const auto& [url, reason] : cases) {
    configure(url);
    recorder.error.clear();
    EXPECT_TRUE(products({"x"}).products.empty());
    EXPECT_EQ(recorder.error, reason);
  }
  EXPECT_FALSE(SKPaymentQueue::canMakePayments());  // no store configured
}

// The sheet asked for a paid product and not for a free one is the shop's test (Shop.AFailed...
// and Shop.Buying...).
TEST_F(Store, ACancelledSheetFailsThePurchaseAndUnfinishedOnesComeAgainOnTheNextRun) {
  const auto response = products({"org.test.a", "org.test.b"});
  auto& queue = SKPaymentQueue::defaultQueue();
  queue.addTransactionObserver(&recorder);
  bool answer = false;
  queue.setPaymentSheet(
      [&](const platform::SKProduct&, std::function<void(bool)> done) { done(answer); });
  using S = SKPaymentTransactionState;
  queue.addPayment(platform::SKPayment::paymentWithProduct(response.products[0]));  // cancelled
  ASSERT_TRUE(pumpUntil([&] { return recorder.states.size() == 2; }));
  EXPECT_EQ(recorder.states, (std::vector<S>{S::purchasing, S::failed}));
  answer = true;
  queue.addPayment(platform::SKPayment::paymentWithProduct(response.products[0]));  // bought
  queue.addPayment(platform::SKPayment::paymentWithProduct(response.products[1]));  // free
  ASSERT_TRUE(pumpUntil([&] { return recorder.states.size() == 6; }));
  EXPECT_EQ(recorder.states.back(), S::purchased);
  queue.setPaymentSheet(nullptr);

  // The next run: the purchase left unfinished comes again, purchased, to the first observer.
  queue.finishTransaction(recorder.transactions.back());
  {
    Recorder nextRun;
    SKPaymentQueue restarted;
    restarted.configure(queue.configuration());
    restarted.addTransactionObserver(&nextRun);
    ASSERT_TRUE(pumpUntil([&] { return !nextRun.states.empty(); }));
    EXPECT_EQ(nextRun.states, std::vector<S>{S::purchased});
    EXPECT_EQ(nextRun.transactions[0]->productIdentifier(), "org.test.b");
    // A restore brings every purchase again, finished or not.
    restarted.restoreCompletedTransactions();
    ASSERT_TRUE(pumpUntil([&] { return nextRun.states.size() == 3; }));
    EXPECT_EQ(nextRun.states, (std::vector<S>{S::purchased, S::restored, S::restored}));
    restarted.removeTransactionObserver(&nextRun);
  }
}

// A good download, unpacked, installed and cleaned away, is the shop's test (Shop.Buying...).
TEST_F(Store, BadPackagesFailTheDownloadAndInstallNothingButKeepTheReceipt) {
  ASSERT_TRUE(writeZip(catalog / "escape.zip", {{"Contents/../../evil.plb", "x"}}));
  ASSERT_TRUE(writeZip(catalog / "absolute.zip", {{"/tmp/pelma-evil.plb", "x"}}));
  ASSERT_TRUE(
      writeZip(catalog / "link.zip", {{"Contents/A.plb", "/etc/passwd", /*symbolicLink=*/true}}));
  ASSERT_TRUE(writeZip(catalog / "big.zip", {{"Contents/Big.plb", std::string(300000, 'x')}}));
  // A few kilobytes that unpack to 8 MB.
  ASSERT_TRUE(writeZip(catalog / "bomb.zip", {{"Contents/Bomb.plb", std::string(8 << 20, 'x')}}));
  std::vector<CatalogEntry> entries{
      {"escape", "Escape", "0", "en_US", "escape.zip", true},
      {"absolute", "Absolute", "0", "en_US", "absolute.zip", true},
      {"link", "Link", "0", "en_US", "link.zip", true},
      {"truncated", "Truncated", "0", "en_US", "big.zip", true, "", "truncated/"},
      {"stalled", "Stalled", "0", "en_US", "big.zip", true, "", "stall/"},
      {"wronghash", "Wrong hash", "0", "en_US", "changed.zip", true},
      {"bomb", "Bomb", "0", "en_US", "bomb.zip", true}};
  fs::copy_file(catalog / "a.zip", catalog / "changed.zip");
  writeCatalog(catalog, entries);
  // One byte of a package changed after the catalog was made: same size, another hash.
  {
    std::fstream changed(catalog / "changed.zip", std::ios::in | std::ios::out | std::ios::binary);
    changed.seekp(40);
    changed.put('#');
  }
  CatalogServer server(catalog);
  configure(server.url("catalog.json"), /*stallSeconds=*/1);
  std::set<std::string> identifiers;
  for (const auto& entry : entries)
    identifiers.insert(entry.identifier);
  for (const auto& product : products(identifiers).products) {
    SCOPED_TRACE(product->productIdentifier());
    const auto download = buyAndDownload(product);
    ASSERT_TRUE(download);
    EXPECT_EQ(download->downloadState(), SKDownloadState::failed);
    EXPECT_FALSE(download->error().empty());
    EXPECT_FALSE(
        fs::exists(root / "store" / "packages" / download->transaction()->transactionIdentifier()));
  }
  EXPECT_FALSE(fs::exists(root / "evil.plb"));
  EXPECT_FALSE(fs::exists("/tmp/pelma-evil.plb"));
  // Every failed purchase is still owned: a restore brings all of them again.
  recorder.states.clear();
  SKPaymentQueue::defaultQueue().restoreCompletedTransactions();
  EXPECT_TRUE(pumpUntil([&] { return recorder.states.size() == entries.size(); }));
}

// A receipts file from outside: the wrong types are kept aside and known as no purchase; an
// identifier that would lead out of the store's folder names only files inside it.
TEST_F(Store, HostileReceiptsNeitherStopTheProgramNorReachOutsideTheStore) {
  fs::create_directories(root / "store");
  std::ofstream(root / "store" / "receipts.json")
      << R"([{"transaction": 7, "product": ["x"], "finished": "no"}])";
  {
    platform::LogCapture log;
    SKPaymentQueue::defaultQueue().addTransactionObserver(&recorder);
    EXPECT_EQ(log.lines().size(), 1u);
  }
  EXPECT_FALSE(fs::exists(root / "store" / "receipts.json"));
  EXPECT_EQ(std::distance(fs::directory_iterator(root / "store"), {}), 1);  // kept aside
  SKPaymentQueue::defaultQueue().removeTransactionObserver(&recorder);

  scratch.write("victim/keep.txt", "the user's");
  std::ofstream(root / "store" / "receipts.json")
      << R"([{"transaction": "../../victim", "product": "org.test.a", "finished": false}])";
  configure("file://" + (catalog / "catalog.json").string());
  SKPaymentQueue::defaultQueue().addTransactionObserver(&recorder);
  ASSERT_TRUE(pumpUntil([&] { return !recorder.transactions.empty(); }));
  const auto transaction = recorder.transactions.back();
  SKPaymentQueue::defaultQueue().startDownloads(transaction->downloads());
  ASSERT_TRUE(pumpUntil(
      [&] { return transaction->downloads()[0]->downloadState() == SKDownloadState::finished; }));
  SKPaymentQueue::defaultQueue().finishTransaction(transaction);
  EXPECT_EQ(readFile((root / "victim" / "keep.txt").string()), "the user's");
  EXPECT_FALSE(fs::exists(root / "victim.zip.part"));
  EXPECT_NE(readFile((root / "store" / "receipts.json").string()).find("\"finished\": true"),
            std::string::npos);
}

// Quitting while a catalog trickles in: the transfer is cancelled, not waited for.
TEST_F(Store, AQueueGoingAwayCancelsTheTransferUnderWay) {
  CatalogServer server(catalog);
  std::string error;
  std::atomic<bool> started{false};
  {
    SKPaymentQueue queue;
    platform::StoreConfiguration configuration;
    configuration.catalogUrl = server.url("stall/catalog.json");
    configuration.limits.stallSeconds = 600;
    queue.configure(configuration);
    queue.runInBackground([&, configuration] {
      started = true;
      queue.readCatalog(configuration, &error);
    });
    ASSERT_TRUE(waitFor([&] { return started.load(); }));
  }
  EXPECT_EQ(error, "cancelled");
}

}  // namespace
