#include "banks/AppDelegate.h"

#include "banks/BankIntake.h"
#include "frameworks/pelma/KRBankManager.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"

AppDelegate::AppDelegate(BankFileOperations* files, KRBankManager* banks)
    : ownFiles_(files ? nullptr : std::make_unique<FilesystemBankFileOperations>()),
      files_(files ? files : ownFiles_.get()),
      banks_(banks ? banks : &KRBankManager::sharedInstance()) {}

bool AppDelegate::didFinishLaunchingWithOptions() {
  platform::log("Did finish launching with options");
  moveItemsToPlace();
  bank_intake::writeTestFileAndListContainer(*files_, platform::bankFolder());
  idleTimer_.setIdleTimerDisabled(true);
  return true;
}

std::filesystem::path AppDelegate::applicationDocumentsDirectory() const {
  return platform::documentsFolder();
}

void AppDelegate::moveItemsToPlace() {
  bank_intake::moveItemsToPlace(*files_, applicationDocumentsDirectory(), platform::bankFolder());
}

bool AppDelegate::openURL(const std::string& url) {
  platform::log("open url 2");
  return handleOpenURL(url);
}

bool AppDelegate::handleOpenURL(const std::string& url) {
  platform::log("Handle open url {}  | {} ", platform::printable(url),
                platform::printable(bank_intake::urlScheme(url)));
  if (url.empty() || bank_intake::urlLastPathComponent(url).empty()) return true;
  if (!bank_intake::isBankUrl(url)) return true;
  platform::log("add bank");
  banks_->addBankFromUrl(url);
  platform::NotificationCenter::defaultCenter().postNotificationName(kBanksUpdatedNotification,
                                                                     this);
  return true;
}

void AppDelegate::applicationStateChanged(Qt::ApplicationState state) {
  if (state == Qt::ApplicationHidden || state == Qt::ApplicationSuspended) {
    if (!inBackground_) applicationDidEnterBackground();
    inBackground_ = true;
    return;
  }
  if (inBackground_) applicationWillEnterForeground();
  inBackground_ = false;
  if (state == Qt::ApplicationActive) applicationDidBecomeActive();
}

void AppDelegate::applicationDidEnterBackground() {
  platform::log("applicationDidEnterBackground");
}

void AppDelegate::applicationWillEnterForeground() {
  platform::log("applicationWillEnterForeground");
}

void AppDelegate::applicationDidBecomeActive() {
  platform::log("applicationDidBecomeActive");
}
