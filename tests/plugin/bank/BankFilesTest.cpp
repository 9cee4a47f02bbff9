#include <gtest/gtest.h>

#include "bank/Bank.h"
#include "platform/foundation/Log.h"
#include "support/BankText.h"
#include "support/TemporaryFolder.h"

namespace pelma {
namespace {

using testing_support::bankText;

std::vector<std::string> names(const std::vector<Bank>& banks) {
  std::vector<std::string> result;
  for (const auto& bank : banks)
    result.push_back(bank.name);
  return result;
}

TEST(BankFilesTest, ReadsFileAndFolderBanksAndIgnoresEverythingElse) {
  TemporaryFolder folder;
  folder.write("b.plb", bankText("Bravo"));
  folder.write("a.plb/bank.plb", bankText("Alpha"));
  folder.write("a.plb/cover.png", "not text at all \x01\x02");
  folder.write("test.txt", "<plist><dict><key>TEST</key><string>TEST</string></dict></plist>");
  folder.write("c.PLB", bankText("Upper case extension"));
  folder.write(".d.plb.partial", bankText("Half copied"));
  folder.write("notes/e.plb", bankText("In a subfolder"));
  platform::LogCapture log;
  auto banks = readBankFolder(folder.path());
  EXPECT_EQ(names(banks), (std::vector<std::string>{"Alpha", "Bravo"}));
  EXPECT_EQ(banks[0].location, folder.path() / "a.plb");
  EXPECT_EQ(banks[0].patches.at(0).values[kCutoff], 500.0f);
  EXPECT_TRUE(log.lines().empty());
}

TEST(BankFilesTest, BrokenBanksAreSkippedWithOneLineEachAndAMissingFolderHasNone) {
  TemporaryFolder folder;
  folder.write("good.plb", bankText("Good"));
  folder.write("cut.plb", bankText("Cut").substr(0, 30));
  folder.write("empty.plb/readme.txt", "no bank file in this folder");
  platform::LogCapture log;
  auto banks = readBankFolder(folder.path());
  EXPECT_EQ(names(banks), std::vector<std::string>{"Good"});
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(log.contains("Bank " + (folder.path() / "empty.plb").string() +
                           " skipped: bank.plb cannot be read"));
  EXPECT_TRUE(readBankFolder("/nonexistent/pelma/banks").empty());  // quietly
  EXPECT_EQ(log.lines().size(), 2u);
}

TEST(BankFilesTest, OfTwoBanksWithOneNameTheFirstEntryNameWins) {
  TemporaryFolder folder;
  folder.write("zz-new.plb", bankText("Shared", {"from zz"}));
  folder.write("aa-old.plb/bank.plb", bankText("Shared", {"from aa"}));
  folder.write("mm.plb", bankText("Other"));
  platform::LogCapture log;
  auto banks = readBankFolder(folder.path());
  ASSERT_EQ(names(banks), (std::vector<std::string>{"Shared", "Other"}));
  EXPECT_EQ(banks[0].patches.at(0).name, "from aa");
  EXPECT_EQ(log.lines().size(), 1u);
}

}  // namespace
}  // namespace pelma
