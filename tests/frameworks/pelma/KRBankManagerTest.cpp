#include "frameworks/pelma/KRBankManager.h"

#include <gtest/gtest.h>

#include "platform/foundation/Log.h"
#include "support/BankText.h"
#include "support/TemporaryFolder.h"

namespace {

using testing_support::bankText;

class KRBankManagerTest : public ::testing::Test {
 protected:
  TemporaryFolder installed_{true};  // the bank folder
  TemporaryFolder outside_;          // where banks come from
  KRBankManager registry_;
};

// Which entries count as banks is the bank folder reader's (BankFilesTest); the registry lists
// what it read at the last refresh, by each bank's own name.
TEST_F(KRBankManagerTest, RefreshListsTheInstalledBanksByTheirOwnNames) {
  const auto file = installed_.write("file-name.plb", bankText("Bank Title"));
  EXPECT_FALSE(registry_.containsBankWithName("Bank Title"));  // not read yet
  registry_.refresh();
  EXPECT_TRUE(registry_.containsBankWithName("Bank Title"));
  EXPECT_FALSE(registry_.containsBankWithName("file-name"));
  EXPECT_FALSE(registry_.containsBankWithName("bank title"));
  std::filesystem::remove(file);
  registry_.refresh();
  EXPECT_FALSE(registry_.containsBankWithName("Bank Title"));
}

TEST_F(KRBankManagerTest, AddsFileAndFolderBanksFromFileAndPelmaUrls) {
  auto file = outside_.write("My Bank.plb", bankText("Mine"));
  auto folder = outside_.write("set.plb/bank.plb", bankText("Set")).parent_path();
  outside_.write("set.plb/art/cover.txt", "cover");
  auto third = outside_.write("third.plb", bankText("Third"));

  registry_.addBankFromUrl("file://" + outside_.path().string() + "/My%20Bank.plb");
  registry_.addBankFromUrl("pelma://" + folder.string());
  registry_.addBankFromUrl("pelma:" + third.string());

  EXPECT_TRUE(registry_.containsBankWithName("Mine"));
  EXPECT_TRUE(registry_.containsBankWithName("Set"));
  EXPECT_TRUE(registry_.containsBankWithName("Third"));
  EXPECT_TRUE(std::filesystem::is_regular_file(installed_.path() / "My Bank.plb"));
  EXPECT_TRUE(
      std::filesystem::is_regular_file(installed_.path() / "set.plb" / "art" / "cover.txt"));
  EXPECT_TRUE(std::filesystem::exists(file));  // copied, not moved
  // Nothing half-copied is left behind.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(installed_.path()), {}), 3);
}

TEST_F(KRBankManagerTest, NeverOverwritesAnInstalledEntryOrName) {
  installed_.write("a.plb", bankText("Original"));
  auto sameEntry = outside_.write("a.plb", bankText("Newcomer"));
  auto sameName = outside_.write("b.plb", bankText("Original"));
  platform::LogCapture log;
  registry_.addBankFromUrl("file://" + sameEntry.string());
  registry_.addBankFromUrl("file://" + sameName.string());
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_FALSE(registry_.containsBankWithName("Newcomer"));
  EXPECT_FALSE(std::filesystem::exists(installed_.path() / "b.plb"));
  EXPECT_TRUE(registry_.containsBankWithName("Original"));
}

TEST_F(KRBankManagerTest, AnythingElseLogsOneLineAndChangesNothing) {
  auto text = outside_.write("notes.txt", "hello");
  auto broken = outside_.write("broken.plb", "pelma-bank 1\n[half");
  const std::string urls[] = {
      "http://example.com/x.plb",
      "pelma://remote-host/tmp/x.plb",
      "file:relative.plb",
      "pelma:",
      "file://" + text.string(),
      "pelma://" + (outside_.path() / "missing.plb").string(),
      "file://" + broken.string(),
      "file://" + outside_.path().string() + "/bad%2",
      "not a url",
  };
  for (const auto& url : urls) {
    platform::LogCapture log;
    registry_.addBankFromUrl(url);
    EXPECT_EQ(log.lines().size(), 1u) << url;
  }
  EXPECT_TRUE(std::filesystem::is_empty(installed_.path()));
  EXPECT_TRUE(registry_.installedBanks().empty());
}

TEST_F(KRBankManagerTest, AddingCreatesAMissingBankFolder) {
  auto nested = installed_.path() / "not" / "yet";
  ::setenv("PELMA_BANKS_DIR", nested.c_str(), 1);
  auto file = outside_.write("n.plb", bankText("Nested"));
  registry_.addBankFromUrl("file://" + file.string());
  EXPECT_TRUE(registry_.containsBankWithName("Nested"));
  EXPECT_TRUE(std::filesystem::exists(nested / "n.plb"));
}

}  // namespace
