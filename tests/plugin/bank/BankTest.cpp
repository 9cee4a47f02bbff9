#include "bank/Bank.h"

#include <gtest/gtest.h>

#include "platform/foundation/Log.h"

namespace pelma {
namespace {

constexpr const char* kTwoPatches = R"(# a comment
pelma-bank 1
name = Warm Things
version = 1.2
colour = orange

[Soft Pad]
osc1_wave = Triangle
cutoff = 1200
sparkle = 11

[Loud]
volume = 3
end
)";

TEST(BankTest, ReadsNameVersionAndPatchesIgnoringUnknownKeys) {
  platform::LogCapture log;
  auto bank = parseBank(kTwoPatches, "fallback", "test");
  ASSERT_TRUE(bank);
  EXPECT_EQ(bank->name, "Warm Things");
  EXPECT_EQ(bank->version, "1.2");
  ASSERT_EQ(bank->patches.size(), 2u);
  EXPECT_EQ(bank->patches[0].name, "Soft Pad");
  EXPECT_EQ(bank->patches[0].values[kOsc1Wave], kTriangle);
  EXPECT_EQ(bank->patches[0].values[kCutoff], 1200.0f);
  EXPECT_EQ(bank->patches[0].values[kResonance], kParameters[kResonance].defaultValue);
  EXPECT_EQ(bank->patches[1].values[kVolume], 3.0f);
  EXPECT_TRUE(log.lines().empty());
}

TEST(BankTest, ClampsOutOfRangeValuesAndRoundsChoices) {
  auto bank = parseBank(
      "pelma-bank 1\n[x]\ncutoff = 99999\nresonance = -4\nosc2_semitones = 3.6\n"
      "osc1_wave = 9\nvolume = 1e60\nend\n",
      "n", "clamp");
  ASSERT_TRUE(bank);
  const auto& v = bank->patches.at(0).values;
  EXPECT_EQ((std::vector{v[kCutoff], v[kResonance], v[kOsc2Semitones], v[kOsc1Wave], v[kVolume]}),
            (std::vector{20000.0f, 0.0f, 4.0f, 3.0f, 6.0f}));
}

TEST(BankTest, PatchWithBadValueIsSkippedWithOneLine) {
  platform::LogCapture log;
  auto bank = parseBank(
      "pelma-bank 1\n[good]\ncutoff = 500\n[bad]\ncutoff = loud\n[nan]\nvolume = nan\n"
      "[also good]\nend\n",
      "n", "bad.plb");
  ASSERT_TRUE(bank);
  ASSERT_EQ(bank->patches.size(), 2u);
  EXPECT_EQ(bank->patches[0].name, "good");
  EXPECT_EQ(bank->patches[1].name, "also good");
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(
      log.contains("Bank bad.plb: patch \"bad\" skipped: it has a value that is not understood"));
}

TEST(BankTest, MalformedTruncatedAndNewerBanksAreSkippedWithOneLine) {
  struct Case {
    const char* text;
    const char* line;
  };
  const Case cases[] = {
      {"", "Bank b skipped: it does not start with \"pelma-bank 1\""},
      {"pelma-bank one\nend\n", "Bank b skipped: it does not start with \"pelma-bank 1\""},
      {"pelma-bank 2\nend\n", "Bank b skipped: format 2 needs a newer Pelma"},
      {"pelma-bank 1\n[a]\ncutoff 300\nend\n", "Bank b skipped: line 3 is not understood"},
      {"pelma-bank 1\n[  ]\nend\n", "Bank b skipped: line 2 is not understood"},
      {"pelma-bank 1\nname = x\n[a]\ncutoff = 300\n",
       "Bank b skipped: it is truncated (no \"end\" line)"},
      {"pelma-bank 1\nend\n", "Bank b skipped: it has no name"},
  };
  for (const Case& c : cases) {
    platform::LogCapture log;
    EXPECT_FALSE(parseBank(c.text, "", "b")) << c.text;
    EXPECT_EQ(log.lines(), std::vector<std::string>{c.line}) << c.text;
  }
}

TEST(BankTest, EveryTruncationOfAGoodBankIsRejectedOrComplete) {
  platform::LogCapture quiet;
  std::string text = kTwoPatches;
  for (std::size_t length = 0; length < text.size(); ++length) {
    auto bank = parseBank(std::string_view(text).substr(0, length), "x", "cut");
    // Only cuts after "end" can read back, and then the bank is whole.
    if (bank) {
      EXPECT_GE(length, text.rfind("end"));
      EXPECT_EQ(bank->patches.size(), 2u);
    }
  }
}

TEST(BankTest, CarriageReturnsAndMissingNameAreAccepted) {
  auto bank = parseBank("pelma-bank 1\r\n[Pad]\r\ncutoff = 700\r\nend\r\n", "From File", "crlf");
  ASSERT_TRUE(bank);
  EXPECT_EQ(bank->name, "From File");
  EXPECT_EQ(bank->patches.at(0).values[kCutoff], 700.0f);
}

TEST(BankTest, PatchesBeyondWhatProgramChangeReachesAreDropped) {
  std::string text = "pelma-bank 1\n";
  for (int i = 0; i < 130; ++i)
    text += "[p" + std::to_string(i) + "]\n";
  text += "end\n";
  platform::LogCapture log;
  auto bank = parseBank(text, "many", "many");
  ASSERT_TRUE(bank);
  EXPECT_EQ(bank->patches.size(), kMaxPatchesPerBank);
  EXPECT_TRUE(log.contains("Bank many: patches after the first 128 ignored"));
}

// The sound's text reading back is the plug-in's state test (PelmaBanksTest.StateRestores...).
TEST(BankTest, SoundTextThatIsNotUnderstoodIsRefused) {
  EXPECT_FALSE(parseParameterValues("cutoff = high\n"));
  EXPECT_FALSE(parseParameterValues("just words\n"));
}

}  // namespace
}  // namespace pelma
