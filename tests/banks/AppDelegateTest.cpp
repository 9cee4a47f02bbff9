// Bank intake on real folders: banks moved from the documents folder at launch, the test file,
// banks opened from other programs, and folders that are not folders.

#include "banks/AppDelegate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "frameworks/pelma/KRBankManager.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/PropertyListFile.h"
#include "support/BankText.h"
#include "support/Processes.h"
#include "support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using testing_support::bankText;
using testing_support::readFile;

std::set<std::string> names(const fs::path& folder) {
  std::set<std::string> result;
  for (const auto& entry : fs::directory_iterator(folder))
    result.insert(entry.path().filename());
  return result;
}

class AppDelegateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(documents);
    fs::create_directories(banks);
    setenv("PELMA_DOCUMENTS_DIR", documents.c_str(), 1);
    setenv("PELMA_BANKS_DIR", banks.c_str(), 1);
  }

  TemporaryFolder scratch;
  const fs::path root = scratch.path(), documents = root / "Documents", banks = root / "banks";
  KRBankManager registry;
};

// A bank already in the bank folder stays, and the newer copy in the documents is discarded.
TEST_F(AppDelegateTest, LaunchMovesExactlyThePlbEntriesAndRewritesTheTestFile) {
  scratch.write("Documents/a.plb", bankText("New"));
  scratch.write("banks/a.plb", bankText("Old"));
  scratch.write("Documents/b.PLB", bankText("B"));
  scratch.write("Documents/c.plb", bankText("C"));
  scratch.write("Documents/notes.txt", "notes");
  scratch.write("Documents/set.plb/bank.plb", bankText("Set"));
  scratch.write("Documents/set.plb/cover.png", "png");
  scratch.write("banks/test.txt", "something else");

  AppDelegate delegate(nullptr, &registry);
  EXPECT_TRUE(delegate.didFinishLaunchingWithOptions());
  EXPECT_EQ(names(banks), (std::set<std::string>{"a.plb", "c.plb", "set.plb", "test.txt"}));
  EXPECT_EQ(names(banks / "set.plb"), (std::set<std::string>{"bank.plb", "cover.png"}));
  EXPECT_EQ(names(documents), (std::set<std::string>{"b.PLB", "notes.txt"}));
  EXPECT_EQ(readFile(banks / "a.plb"), bankText("Old"));
  EXPECT_TRUE(platform::readPropertyList(banks / "test.txt"));  // rewritten at every launch
}

// The documents folder is a file and the bank folder's place is taken by a file (nothing can be
// written into it, also as root).
TEST_F(AppDelegateTest, UnusableFoldersLeaveEverythingAsItWas) {
  fs::remove_all(documents);
  fs::remove_all(banks);
  scratch.write("Documents", "not a folder");
  scratch.write("banks", "in the way");
  scratch.write("in/bank.plb", bankText("Opened"));
  AppDelegate delegate(nullptr, &registry);
  EXPECT_TRUE(delegate.didFinishLaunchingWithOptions());
  EXPECT_TRUE(delegate.openURL("file://" + (root / "in" / "bank.plb").string()));
  EXPECT_EQ(readFile(documents), "not a folder");
  EXPECT_EQ(readFile(banks), "in the way");
  EXPECT_EQ(readFile(root / "in" / "bank.plb"), bankText("Opened"));  // the opened file stays
}

// A link as a bank, and a link inside a bank folder, both pointing out of the documents folder:
// neither is followed (one log line each); the rest of the folder bank is installed.
TEST_F(AppDelegateTest, LinksAreNeverFollowedOutOfTheDocumentsFolder) {
  scratch.write("outside/secret/a.txt", "not a bank");
  scratch.write("Documents/set.plb/bank.plb", bankText("Set"));
  fs::create_directory_symlink(root / "outside", documents / "set.plb" / "home");
  fs::create_directory_symlink(root / "outside" / "secret", documents / "linked.plb");
  platform::LogCapture log;
  AppDelegate(nullptr, &registry).didFinishLaunchingWithOptions();
  EXPECT_EQ(names(banks), (std::set<std::string>{"set.plb", "test.txt"}));
  EXPECT_EQ(names(banks / "set.plb"), (std::set<std::string>{"bank.plb"}));
  const auto lines = log.lines();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.starts_with("Not copied"); }),
            2);
  EXPECT_EQ(readFile(root / "outside" / "secret" / "a.txt"), "not a bank");
}

// A fresh account: no bank folder, no data folder at all, and a home whose path needs escaping in
// a URL. The banks left in the documents folder end up installed and readable by the registry;
// when the bank folder cannot be made, they stay where they are.
TEST_F(AppDelegateTest, OnAFreshAccountBanksLeftInTheDocumentsEndUpInTheBankFolder) {
  const fs::path home = root / "a b%41c";
  for (const char* variable :
       {"PELMA_DOCUMENTS_DIR", "PELMA_BANKS_DIR", "XDG_DATA_HOME", "XDG_DOCUMENTS_DIR"})
    unsetenv(variable);
  setenv("HOME", home.c_str(), 1);
  scratch.write("a b%41c/Documents/Pelma/Mine.plb", bankText("Mine", {"Soft", "Hard"}));
  scratch.write("a b%41c/Documents/Pelma/Set.plb/bank.plb", bankText("Set"));
  AppDelegate delegate(nullptr, &registry);
  delegate.didFinishLaunchingWithOptions();
  const fs::path installed = home / ".local" / "share" / "pelma" / "banks";
  EXPECT_EQ(names(installed), (std::set<std::string>{"Mine.plb", "Set.plb", "test.txt"}));
  registry.refresh();
  ASSERT_EQ(registry.installedBanks().size(), 2u);
  EXPECT_EQ(registry.installedBanks()[0].patchNames, (std::vector<std::string>{"Soft", "Hard"}));
  EXPECT_TRUE(fs::is_empty(home / "Documents" / "Pelma"));

  // The data folder's place is taken by a file: the bank folder cannot be made.
  scratch.write("a b%41c/Documents/Pelma/Kept.plb", bankText("Kept"));
  setenv("XDG_DATA_HOME", scratch.write("data", "a file").c_str(), 1);
  platform::LogCapture log;
  AppDelegate(nullptr, &registry).didFinishLaunchingWithOptions();
  EXPECT_EQ(readFile(home / "Documents" / "Pelma" / "Kept.plb"), bankText("Kept"));
  const auto lines = log.lines();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.starts_with("Cannot make"); }),
            1);
  unsetenv("XDG_DATA_HOME");
}

TEST_F(AppDelegateTest, OpenedUrlsAreAddedWhenTheyArePelmaLinksOrPlbFiles) {
  scratch.write("in/bank.plb", bankText("Opened"));
  scratch.write("in/y.txt", bankText("Linked"));
  int updates = 0;
  AppDelegate delegate(nullptr, &registry);
  const auto observer = platform::NotificationCenter::defaultCenter().addObserver(
      kBanksUpdatedNotification, &delegate, [&](const platform::Notification&) { ++updates; });

  EXPECT_TRUE(delegate.openURL("pelma://" + (root / "in" / "y.txt").string()));
  EXPECT_EQ(updates, 1);
  EXPECT_TRUE(delegate.handleOpenURL("file://" + (root / "in" / "bank.plb").string()));
  EXPECT_EQ(updates, 2);
  EXPECT_TRUE(registry.containsBankWithName("Opened"));
  for (const char* name : {"bank.txt", "bank.PLB"}) {
    EXPECT_TRUE(delegate.handleOpenURL("file://" + (root / "in" / name).string()));
  }
  EXPECT_TRUE(delegate.openURL(""));
  EXPECT_EQ(updates, 2);
  platform::NotificationCenter::defaultCenter().removeObserver(observer);
}

}  // namespace
