// Bank intake on real folders: banks moved from the documents folder at launch, the test file,
// banks opened from other programs, and folders that are not folders.

#include "banks/AppDelegate.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "frameworks/pelma/KRBankManager.h"
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
