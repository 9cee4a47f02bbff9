#pragma once

// The application delegate: told when the application has launched, when it opens a URL handed
// to it by another program (a bank file or a "pelma:" link), and when it moves between foreground
// and background. It is the intake for bank files from outside (see BankIntake.h): at launch it
// moves banks left in the documents folder into the bank folder, rewrites "test.txt" there and
// logs the bank folder's listing; an opened bank goes to the bank registry and "BanksUpdated" is
// posted. While the application runs, the screen saver is kept away. Main thread.

#include <QPointer>
#include <QWidget>
#include <filesystem>
#include <memory>
#include <string>

#include "banks/BankFileOperations.h"
#include "platform/app/IdleTimer.h"

#include "frameworks/pelma/KRBankManager.h"

class AppDelegate {
 public:
  // `files` and `banks` default to the real file system and the shared registry.
  explicit AppDelegate(BankFileOperations* files = nullptr, KRBankManager* banks = nullptr);

  bool didFinishLaunchingWithOptions();
  // A URL handed over by another program; both answer true whatever they did with it.
  bool openURL(const std::string& url);
  bool handleOpenURL(const std::string& url);

  std::filesystem::path applicationDocumentsDirectory() const;
  void moveItemsToPlace();

  // Follows the application's state: going to the background, coming back to the foreground and
  // becoming active are reported; losing focus alone (resigning active) is not.
  void applicationStateChanged(Qt::ApplicationState state);

  void applicationDidEnterBackground();
  void applicationWillEnterForeground();
  void applicationDidBecomeActive();
  void applicationWillTerminate() {}

  QWidget* window() const { return window_; }
  void setWindow(QWidget* window) { window_ = window; }

 private:
  std::unique_ptr<BankFileOperations> ownFiles_;
  BankFileOperations* files_;
  KRBankManager* banks_;
  platform::IdleTimer idleTimer_;
  QPointer<QWidget> window_;
  bool inBackground_ = false;
};
