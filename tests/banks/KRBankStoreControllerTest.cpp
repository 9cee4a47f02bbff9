// The bank shop on the real purchase service, with catalogs on disk and over HTTP (the test
// server), a real bank folder and bank registry, the real payment sheet clicked as a user would,
// and both presentations from the keyboard and the sequencer screens.

#include "banks/KRBankStoreController.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QUrl>
#include <filesystem>

#include "bank/Bank.h"
#include "banks/KRBanksStoreCell.h"
#include "banks/PaymentSheet.h"
#include "frameworks/pelma/KRBankManager.h"
#include "keyboard/PianoViewController.h"
#include "platform/app/QtMainQueue.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/ui/Alert.h"
#include "platform/ui/Button.h"
#include "platform/ui/NavigationController.h"
#include "sequencer/KRSequencerController.h"
#include "support/StoreFixtures.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace testing_support;
using platform::SKPaymentQueue;
namespace fs = std::filesystem;

class Shop : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(catalog);
    fs::create_directories(banks);
    setenv("PELMA_BANKS_DIR", banks.c_str(), 1);
    platform::MainQueue::setMain(&mainQueue);
    // Alpha is installed already; Duo's package brings two banks, one of them installed.
    std::ofstream(banks / "Alpha.plb") << bankText("Alpha");
    std::ofstream(banks / "Two.plb") << bankText("Mine");
    writeZip(catalog / "alpha.zip", {{"ContentInfo.plist", contentInfo({"Alpha.plb"})},
                                     {"Contents/Alpha.plb", bankText("Alpha")}});
    writeZip(catalog / "duo.zip", {{"ContentInfo.plist", contentInfo({"One.plb", "Two.plb"})},
                                   {"Contents/One.plb", bankText("One")},
                                   {"Contents/Two.plb", bankText("Two")}});
    writeCatalog(catalog, {{"org.pelma.bank.glasskeys", "Alpha", "1.99", "en_US", "alpha.zip"},
                           {"org.pelma.bank.analogbass", "One", "2.49", "de_DE", "duo.zip", true},
                           {"org.pelma.bank.warmpads", "Gone", "300", "ja_JP", "nothing.zip"}});
    registry.refresh();
    configure("file://" + (catalog / "catalog.json").string());
    SKPaymentQueue::defaultQueue().setPaymentSheet(makePaymentSheet());
  }
  void TearDown() override {
    navigation.reset();
    SKPaymentQueue::defaultQueue().configure({});
    SKPaymentQueue::defaultQueue().setPaymentSheet(nullptr);
    platform::MainQueue::setMain(nullptr);
    for (QWidget* window : QApplication::topLevelWidgets())
      delete window;
  }

  void configure(const std::string& url, bool enabled = true) {
    platform::StoreConfiguration configuration;
    configuration.catalogUrl = url;
    configuration.enabled = enabled;
    configuration.dataFolder = root / "store";
    configuration.limits.stallSeconds = 2;
    SKPaymentQueue::defaultQueue().configure(configuration);
  }
  // The shop (asking for its three products) shown as the root of a navigation controller, with its
  // products fetched.
  KRBankStoreController* show(bool waitForRows = true) {
    shop = new KRBankStoreController(nullptr, &registry);
    navigation = std::make_unique<platform::NavigationController>(shop);
    navigation->resize(320, 300);
    navigation->show();
    if (waitForRows) {
      EXPECT_TRUE(waitUntil([&] { return shop->visibleRowCount() == 3; }));
    }
    return shop;
  }
  static bool waitUntil(const std::function<bool()>& condition) {
    for (int i = 0; i < 500 && !condition(); ++i)
      QTest::qWait(20);
    return condition();
  }
  QString price(int row) const {
    auto* cell = static_cast<KRBanksStoreCell*>(shop->visibleRowWidget({0, row}));
    return cell ? cell->priceLabel()->text() : QString();
  }
  QString overlayText() const {
    return shop->overlay()->isVisible() ? shop->overlayLabel()->text() : QString();
  }
  // The sheet of that name shown now (alerts are "sheet"), or null.
  static platform::Sheet* findDialog(const QString& name) {
    for (QWidget* widget : QApplication::allWidgets())
      if (widget->objectName() == name && widget->isVisible())
        return dynamic_cast<platform::Sheet*>(widget);
    return nullptr;
  }
  // The title and message of the alert once one shows; empty when none does.
  static std::pair<QString, QString> alert() {
    if (!waitUntil([] { return findDialog(QStringLiteral("sheet")) != nullptr; })) return {};
    const platform::Sheet* sheet = findDialog(QStringLiteral("sheet"));
    return {sheet->title(), sheet->message()};
  }
  static void clickBuy() {
    ASSERT_TRUE(waitUntil([] { return findDialog(QStringLiteral("paymentSheet")) != nullptr; }));
    findDialog(QStringLiteral("paymentSheet"))->button(QStringLiteral("Buy"))->click();
  }
  static int linesStartingWith(const platform::LogCapture& log, std::string_view prefix) {
    int count = 0;
    for (const auto& line : log.lines())
      count += line.starts_with(prefix);
    return count;
  }

  // Lives as long as the program: the store's worker thread may still hand a request's end to the
  // main queue after a test is over.
  platform::QtMainQueue& mainQueue = *[] {
    static auto* queue = new platform::QtMainQueue;
    return queue;
  }();
  KRBankManager registry;
  TemporaryFolder scratch;
  const fs::path root = scratch.path(), catalog = root / "catalog", banks = root / "banks";
  std::unique_ptr<platform::NavigationController> navigation;
  KRBankStoreController* shop = nullptr;
};

TEST_F(Shop, RowsFollowTheResponseWithPriceInTheProductsLocaleOrRestore) {
  platform::LogCapture log;
  show(false);
  EXPECT_EQ(shop->visibleRowCount(), 0);
  EXPECT_EQ(navigation->leftBarButton()->text(), QStringLiteral("Restore"));
  ASSERT_TRUE(waitUntil([&] { return shop->visibleRowCount() == 3; }));
  EXPECT_EQ(shop->visibleCell({0, 0}).text, QStringLiteral("Alpha"));  // catalog order
  EXPECT_EQ(price(0), QStringLiteral("Restore"));                      // installed
  EXPECT_EQ(price(1), QStringLiteral("2,49\u00a0\u20ac"));
  EXPECT_EQ(overlayText(), QString());

  // Shown again: the same list, not fetched again.
  navigation->hide();
  navigation->show();
  QTest::qWait(200);
  EXPECT_EQ(linesStartingWith(log, "Product request did receive response"), 1);
  // A response without products alerts and leaves the list as it was.
  std::ofstream(catalog / "catalog.json") << R"({"products": []})";
  shop->fetchAvailableProducts();
  EXPECT_EQ(alert(),
            std::pair(QStringLiteral("Not available"), QStringLiteral("No products to purchase")));
  EXPECT_EQ(shop->visibleRowCount(), 3);
}

TEST_F(Shop, BuyingDownloadsAndInstallsEveryBankOfThePackageButNeverReplacesOne) {
  show();
  platform::LogCapture log;
  int updates = 0;
  platform::NotificationCenter::defaultCenter().addObserver(
      kBanksUpdatedNotification, nullptr, [&](const platform::Notification&) { ++updates; }, this);
  shop->tapRow({0, 1});  // free: no sheet
  ASSERT_TRUE(waitUntil([&] { return log.contains("DOWNLOAD STATE 3"); }));
  platform::NotificationCenter::defaultCenter().removeObserver(this);
  EXPECT_TRUE(log.contains("DICT {Files = (\"One.plb\", \"Two.plb\")}"));
  EXPECT_EQ(readFile((banks / "One.plb").string()), bankText("One"));
  EXPECT_EQ(readFile((banks / "Two.plb").string()), bankText("Mine"));  // left untouched
  EXPECT_EQ(updates, 1);
  EXPECT_TRUE(registry.containsBankWithName("One"));
  EXPECT_EQ(price(1), QStringLiteral("Restore"));
  EXPECT_TRUE(waitUntil([&] { return overlayText().isEmpty(); }));
  EXPECT_NE(readFile((root / "store" / "receipts.json").string()).find("\"finished\": true"),
            std::string::npos);
  EXPECT_TRUE(fs::is_empty(root / "store" / "packages")) << "the finished package is removed";
}

// A fresh account with every folder under a path that needs escaping in a URL, and no bank or
// store folder yet: a free and a paid bank are installed and listed with their sounds at once.
// A bank folder that cannot be made leaves the purchase open, and the next run delivers it.
TEST_F(Shop, OnAFreshAccountBoughtBanksArePlayableAtOnceAndAFailedInstallIsDeliveredAgain) {
  const fs::path home = root / "a b%41c", shopFolder = home / "shop";
  fs::create_directories(shopFolder);
  for (const char* package : {"alpha.zip", "duo.zip"})
    fs::copy_file(catalog / package, shopFolder / package);
  writeCatalog(shopFolder, {{"org.pelma.bank.glasskeys", "Alpha", "1.99", "en_US", "alpha.zip"},
                            {"org.pelma.bank.analogbass", "One", "0", "en_US", "duo.zip", true}});
  for (const char* variable : {"PELMA_BANKS_DIR", "PELMA_STORE_DIR", "XDG_DATA_HOME"})
    unsetenv(variable);
  setenv("HOME", home.c_str(), 1);
  const std::string catalogUrl =
      QUrl::fromLocalFile(QString::fromStdString((shopFolder / "catalog.json").string()))
          .toString(QUrl::FullyEncoded)
          .toStdString();
  const auto useStore = [&] {
    platform::StoreConfiguration configuration;
    configuration.catalogUrl = catalogUrl;
    configuration.dataFolder = platform::storeFolder();
    SKPaymentQueue::defaultQueue().configure(configuration);
  };
  useStore();
  registry.refresh();
  show(false);
  ASSERT_TRUE(waitUntil([&] { return shop->visibleRowCount() == 2; }));
  platform::LogCapture log;
  shop->tapRow({0, 1});  // free
  ASSERT_TRUE(waitUntil([&] { return linesStartingWith(log, "DOWNLOAD STATE 3") == 1; }));
  shop->tapRow({0, 0});  // paid
  clickBuy();
  ASSERT_TRUE(waitUntil([&] { return linesStartingWith(log, "DOWNLOAD STATE 3") == 2; }));
  for (const char* name : {"Alpha", "One", "Two"})
    EXPECT_TRUE(registry.containsBankWithName(name)) << name;
  for (const auto& bank : registry.installedBanks())
    EXPECT_EQ(bank.patchNames, (std::vector<std::string>{"Only"})) << bank.name;
  const auto receipts = (platform::storeFolder() / "receipts.json").string();
  EXPECT_EQ(readFile(receipts).find("\"finished\": false"), std::string::npos);

  // The bank folder cannot be made: the free bank is bought, but its purchase stays open.
  navigation.reset();
  setenv("PELMA_BANKS_DIR", (scratch.write("blocked", "a file") / "banks").c_str(), 1);
  useStore();
  registry.refresh();
  show(false);
  ASSERT_TRUE(waitUntil([&] { return shop->visibleRowCount() == 2; }));
  shop->tapRow({0, 1});
  ASSERT_TRUE(waitUntil([&] { return linesStartingWith(log, "DOWNLOAD STATE 3") == 3; }));
  EXPECT_NE(readFile(receipts).find("\"finished\": false"), std::string::npos);

  // The next run, with a bank folder: delivered again, installed, finished.
  navigation.reset();
  const fs::path banksNow = root / "banks now";
  setenv("PELMA_BANKS_DIR", banksNow.c_str(), 1);
  useStore();
  show(false);
  ASSERT_TRUE(waitUntil([&] { return linesStartingWith(log, "DOWNLOAD STATE 3") == 4; }));
  EXPECT_TRUE(fs::exists(banksNow / "One.plb"));
  EXPECT_EQ(readFile(receipts).find("\"finished\": false"), std::string::npos);
  setenv("PELMA_BANKS_DIR", banks.c_str(), 1);
}

// A paid bank asks the payment sheet, and the user buys it.
TEST_F(Shop, AFailedDownloadAlertsKeepsTheOverlayAndLeavesThePurchaseUnfinished) {
  show();
  platform::LogCapture log;
  shop->tapRow({0, 2});
  clickBuy();
  ASSERT_TRUE(waitUntil([&] { return log.contains("Download failed"); }));
  EXPECT_EQ(alert().second, QStringLiteral("Failed to download. Please retry later."));
  EXPECT_EQ(overlayText(), QStringLiteral("Purchasing/restoring"));  // purchased keeps it
  EXPECT_NE(readFile((root / "store" / "receipts.json").string()).find("\"finished\": false"),
            std::string::npos);

  // Restoring: the overlay says so, and the restored purchase hides it.
  shop->restorePurchases();
  ASSERT_TRUE(waitUntil([&] { return log.contains("Restored downloads count 1 "); }));
  EXPECT_TRUE(waitUntil([&] { return overlayText().isEmpty(); }));
  EXPECT_EQ(shop->overlayLabel()->text(), QStringLiteral("Restoring purchases"));
}

TEST_F(Shop, APackageWithoutContentInfoEndsTheUpdateItCameIn) {
  show();
  for (const char* package : {"first", "second"}) {
    fs::create_directories(root / package / "Contents");
    std::ofstream(root / package / "Contents" / (std::string(package) + ".plb"))
        << bankText(package);
  }
  platform::LogCapture log;
  const auto finished = [&](const char* package) {
    return std::make_shared<platform::SKDownload>(platform::SKDownloadState::finished,
                                                  "file://" + (root / package).string(), nullptr);
  };
  shop->paymentQueueUpdatedDownloads(SKPaymentQueue::defaultQueue(),
                                     {finished("first"), finished("second")});
  EXPECT_TRUE(fs::exists(banks / "first.plb"));
  EXPECT_TRUE(log.contains("DICT (null)"));
  EXPECT_FALSE(fs::exists(banks / "second.plb"));
  EXPECT_EQ(linesStartingWith(log, "DOWNLOAD STATE"), 1);
}

TEST_F(Shop, DisappearingWhileFetchingHidesTheOverlay) {
  CatalogServer server(catalog);
  configure(server.url("stall/catalog.json"));
  show(false);
  ASSERT_TRUE(waitUntil([&] { return overlayText() == QStringLiteral("Fetching banks"); }));
  navigation->hide();
  EXPECT_TRUE(waitUntil([&] { return !shop->overlay()->isVisibleTo(shop); }));
}

TEST_F(Shop, WithPurchasesOffItSaysSoAndFetchesNothing) {
  configure("file://" + (catalog / "catalog.json").string(), /*enabled=*/false);
  platform::LogCapture log;
  show(false);
  EXPECT_EQ(alert(), std::pair(QStringLiteral("Can't purchase items"),
                               QStringLiteral("Purchases are disabled on your devices")));
  QTest::qWait(200);
  EXPECT_EQ(shop->visibleRowCount(), 0);
  EXPECT_EQ(overlayText(), QString());
}

// Registering a bought bank and its row turning to Restore are Shop.Buying...'s.
TEST_F(Shop, OurCatalogSellsThreeCompleteBanksUnderTheirOwnNames) {
  configure("file://" + std::string(PELMA_CATALOG) + "/catalog.json");
  SKPaymentQueue::defaultQueue().setPaymentSheet(
      [](const platform::SKProduct&, std::function<void(bool)> done) { done(true); });  // buys
  show();
  platform::LogCapture log;
  for (int row = 0; row < 3; ++row)
    shop->tapRow({0, row});
  ASSERT_TRUE(waitUntil([&] { return linesStartingWith(log, "DOWNLOAD STATE 3") == 3; }));
  const std::set<std::string> titles{"Glass Keys", "Analog Bass", "Warm Pads"};
  std::set<std::string> names, patchNames;
  for (const auto& bank : pelma::readBankFolder(banks)) {
    if (!titles.count(bank.name)) continue;  // the fixture's own banks
    names.insert(bank.name);
    EXPECT_EQ(bank.patches.size(), 6u) << bank.name;
    for (const auto& patch : bank.patches)
      patchNames.insert(patch.name);
  }
  EXPECT_EQ(names, titles);
  EXPECT_EQ(patchNames.size(), 18u);  // every sound its own
}

TEST_F(Shop, TheKeyboardKeepsOneTitledShopWithDoneAndTheSequencerMakesAFreshOne) {
  PianoViewController keyboard(PianoViewController::kTabletInterface);
  keyboard.resize(1024, 256);
  keyboard.show();
  keyboard.viewDidLoad();
  KRBankStoreController* kept = keyboard.storeController();
  ASSERT_NE(kept, nullptr);
  for (int showing = 0; showing < 2; ++showing) {
    keyboard.shopButtonPressed(keyboard.shopButton());
    auto* navigation =
        static_cast<platform::NavigationController*>(keyboard.presentedPopover()->content());
    EXPECT_EQ(navigation->topViewController(), kept);
    EXPECT_EQ(navigation->barTitle(), QStringLiteral("Banks shop"));
    EXPECT_EQ(navigation->rightBarButton()->text(), QStringLiteral("Done"));
    navigation->rightBarButton()->click();  // Done
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(keyboard.storeController(), kept);  // survives its popover
  }

  KRSequencerController sequencer(KRSequencerController::kTabletInterface);
  sequencer.resize(1024, 128);
  sequencer.show();
  QWidget* shops[2] = {};
  for (QWidget*& made : shops) {
    sequencer.appMenuButtonPressed(sequencer.appMenuButton());
    auto* navigation =
        static_cast<platform::NavigationController*>(sequencer.presentedPopover()->content());
    made = navigation->topViewController();
    EXPECT_NE(dynamic_cast<KRBankStoreController*>(made), nullptr);
    EXPECT_EQ(navigation->barTitle(), QString());
    EXPECT_FALSE(navigation->rightBarButton()->isVisible());
  }
  EXPECT_NE(shops[0], shops[1]);
}

}  // namespace
