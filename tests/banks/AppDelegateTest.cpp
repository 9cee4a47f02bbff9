// Bank intake on real folders: banks moved from the documents folder at launch, the test file and
// the listing, banks opened from other programs, the lifecycle lines, and folders that are missing
// or are not folders.

#include "banks/AppDelegate.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "banks/BankIntake.h"
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

TEST_F(AppDelegateTest, LaunchMovesExactlyThePlbEntriesAndListsTheBankFolder) {
  scratch.write("Documents/a.plb", bankText("A"));
  scratch.write("Documents/b.PLB", bankText("B"));
  scratch.write("Documents/notes.txt", "notes");
  scratch.write("Documents/set.plb/bank.plb", bankText("Set"));
  scratch.write("Documents/set.plb/cover.png", "png");

  platform::LogCapture log;
  AppDelegate delegate(nullptr, &registry);
  EXPECT_TRUE(delegate.didFinishLaunchingWithOptions());

  EXPECT_EQ(names(banks), (std::set<std::string>{"a.plb", "set.plb", "test.txt"}));
  EXPECT_EQ(names(banks / "set.plb"), (std::set<std::string>{"bank.plb", "cover.png"}));
  EXPECT_EQ(names(documents), (std::set<std::string>{"b.PLB", "notes.txt"}));
  const auto test = platform::readPropertyList(banks / "test.txt");
  ASSERT_TRUE(test);
  EXPECT_EQ(*test, (platform::PropertyDictionary{{"TEST", platform::PropertyValue{"TEST"}}}));

  std::vector<std::string> lines = log.lines();
  ASSERT_GE(lines.size(), 6u);
  EXPECT_EQ(lines[0], "Did finish launching with options");
  std::set<std::string> copied, listed;
  std::vector<std::string> numbers;
  for (const std::string& line : lines) {
    if (line.rfind("Copying from itunes docs path ", 0) == 0) copied.insert(line.substr(30));
    if (line.rfind("File ", 0) == 0) {
      numbers.push_back(line.substr(5, line.find(':') - 5));
      listed.insert(line.substr(line.find(": ") + 2));
    }
  }
  EXPECT_EQ(copied, (std::set<std::string>{"a.plb", "set.plb"}));
  EXPECT_EQ(listed, names(banks));
  EXPECT_EQ(numbers, (std::vector<std::string>{"1", "2", "3"}));
  EXPECT_NE(std::find(lines.begin(), lines.end(), "list files"), lines.end());
}

TEST_F(AppDelegateTest, ABankAlreadyInTheBankFolderStaysAndTheNewerCopyIsDiscarded) {
  scratch.write("banks/a.plb", bankText("Old"));
  scratch.write("Documents/a.plb", bankText("New"));
  scratch.write("banks/test.txt", "something else");
  AppDelegate delegate(nullptr, &registry);
  delegate.didFinishLaunchingWithOptions();
  EXPECT_EQ(readFile(banks / "a.plb"), bankText("Old"));
  EXPECT_FALSE(fs::exists(documents / "a.plb"));
  EXPECT_TRUE(platform::readPropertyList(banks / "test.txt"));  // rewritten at every launch
}

TEST_F(AppDelegateTest, MissingOrUnusableFoldersChangeNothingElse) {
  // A documents folder that is a file, and a bank folder that does not exist.
  fs::remove_all(documents);
  scratch.write("Documents", "not a folder");
  fs::remove_all(banks);
  AppDelegate delegate(nullptr, &registry);
  platform::LogCapture log;
  EXPECT_TRUE(delegate.didFinishLaunchingWithOptions());
  EXPECT_EQ(readFile(documents), "not a folder");
  EXPECT_TRUE(log.contains("list files"));
}

TEST_F(AppDelegateTest, ABankFolderThatCannotBeWrittenLeavesEverythingElseAsItWas) {
  // The bank folder's place is taken by a file (nothing can be written into it, also as root).
  fs::remove_all(banks);
  scratch.write("banks", "in the way");
  scratch.write("Documents/notes.txt", "keep me");
  scratch.write("in/bank.plb", bankText("Opened"));
  AppDelegate delegate(nullptr, &registry);
  EXPECT_TRUE(delegate.didFinishLaunchingWithOptions());
  EXPECT_TRUE(delegate.openURL("file://" + (root / "in" / "bank.plb").string()));
  EXPECT_EQ(readFile(banks), "in the way");
  EXPECT_EQ(readFile(documents / "notes.txt"), "keep me");
  EXPECT_EQ(readFile(root / "in" / "bank.plb"), bankText("Opened"));  // the opened file stays
}

TEST_F(AppDelegateTest, OpenedUrlsAreAddedWhenTheyArePelmaLinksOrPlbFiles) {
  scratch.write("in/bank.plb", bankText("Opened"));
  scratch.write("in/y.txt", bankText("Linked"));
  int updates = 0;
  AppDelegate delegate(nullptr, &registry);
  const auto observer = platform::NotificationCenter::defaultCenter().addObserver(
      kBanksUpdatedNotification, &delegate, [&](const platform::Notification&) { ++updates; });

  platform::LogCapture log;
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

  const std::vector<std::string> lines = log.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "open url 2"), 2);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "add bank"), 2);
  EXPECT_EQ(lines[1], "Handle open url pelma://" + (root / "in" / "y.txt").string() + "  | pelma ");
  platform::NotificationCenter::defaultCenter().removeObserver(observer);
}

TEST_F(AppDelegateTest, LifecycleLinesForBackgroundForegroundAndActiveOnly) {
  AppDelegate delegate(nullptr, &registry);
  platform::LogCapture log;
  delegate.applicationStateChanged(Qt::ApplicationInactive);  // resigning active: nothing
  delegate.applicationStateChanged(Qt::ApplicationHidden);
  delegate.applicationStateChanged(Qt::ApplicationActive);
  delegate.applicationWillTerminate();
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"applicationDidEnterBackground",
                                                   "applicationWillEnterForeground",
                                                   "applicationDidBecomeActive"}));
}

// What OpenedUrlsAreAdded... does not reach: a query is not the path, and edge cases of the parts.
TEST(BankIntakeUrls, SchemeComesBeforeTheCaseSensitiveExtension) {
  using namespace bank_intake;
  EXPECT_TRUE(isBankUrl("https://example.org/bank.plb?x=1.txt"));
  EXPECT_EQ(urlLastPathComponent("pelma://host"), "");
  EXPECT_EQ(urlLastPathComponent("file:///"), "/");
  EXPECT_EQ(pathExtension(".plb"), "");
  EXPECT_EQ(urlScheme("/not/a/url"), "");
}

}  // namespace
