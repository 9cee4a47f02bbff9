// Banks through the built plug-in: the factory bank, banks in the bank folder, choosing bank and
// patch by MIDI and by port, refreshing while running, LV2 state and presets.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lv2/atom/util.h>

#include <cmath>

#include "../PelmaRig.h"
#include "bank/Bank.h"
#include "platform/audio/Lv2World.h"
#include "platform/foundation/Log.h"
#include "support/BankText.h"
#include "support/TemporaryFolder.h"

namespace {

class PelmaBanksTest : public ::testing::Test {
 protected:
  TemporaryFolder banks_{true};

  void writeBank(const std::string& entry, const std::string& name, int cutoff) {
    banks_.write(entry, testing_support::bankText(name, {"Only"}, cutoff));
  }
  // The state after one more block, so the latest choice is in it.
  static PelmaRig::Saved stateAfterBlock(PelmaRig& synth) {
    synth.render(64);
    return synth.saveState();
  }
  // Chooses bank and patch by MIDI; the state after the next block.
  static PelmaRig::Saved selectBank(PelmaRig& synth, int bank, int program) {
    synth.midi(0xB0, 0, static_cast<std::uint8_t>(bank >> 7));
    synth.midi(0xB0, 32, static_cast<std::uint8_t>(bank & 0x7F));
    synth.midi(0xC0, static_cast<std::uint8_t>(program));
    return stateAfterBlock(synth);
  }
  // Renders until the plug-in announces a set of `count` banks on its notify output (its worker
  // thread reads the folder) — within two thirds of a second of audio.
  static bool announcesBanks(PelmaRig& synth, int count) {
    synth.unit->setEditorAttached(true);
    platform::Lv2World& world = *platform::Lv2World::shared();
    return synth.renderUntil([&] {
      for (const auto& event : synth.takePluginEvents()) {
        const auto* object = reinterpret_cast<const LV2_Atom_Object*>(event.data());
        const LV2_Atom* banks = nullptr;
        if (object->atom.type != world.map(LV2_ATOM__Object) ||
            object->body.otype != world.map(pelma::kBankMessageUri))
          continue;
        lv2_atom_object_get(object, world.map(pelma::kBankCountUri), &banks, 0);
        if (banks && reinterpret_cast<const LV2_Atom_Int*>(banks)->body == count) return true;
      }
      return false;
    });
  }
};

using ::testing::HasSubstr;

// Which files are banks is BankFilesTest's; here, the numbers the plug-in gives them. What the
// plug-in says about them reaches the host's log through log:log.
TEST_F(PelmaBanksTest, BanksInTheFolderFollowTheFactoryBankInEntryOrder) {
  writeBank("b.plb", "Second", 432);
  writeBank("a.plb/bank.plb", "First", 222);
  writeBank("factory.plb", "Factory", 999);  // named like the factory bank: skipped
  platform::LogCapture log;
  PelmaRig synth;
  EXPECT_TRUE(log.contains("Pelma: banks: Factory, First, Second"));
  synth.midi(0xC5, 100);  // no such patch in the factory bank, bank 0: nothing changes
  const auto initial = stateAfterBlock(synth);
  EXPECT_EQ(initial.bank, "Factory");
  EXPECT_THAT(initial.sound, HasSubstr("cutoff = 8000\n"));
  auto state = selectBank(synth, 2, 0);
  EXPECT_EQ(state.bank, "Second");
  EXPECT_THAT(state.sound, HasSubstr("cutoff = 432\n"));
  EXPECT_THAT(selectBank(synth, 1, 0).sound, HasSubstr("cutoff = 222\n"));
  EXPECT_THAT(selectBank(synth, 3, 0).sound, HasSubstr("cutoff = 222\n"));  // no bank 3
}

// The plug-in looks at the bank folder about once a second, and at once when asked to; the bank
// chosen is kept by name when a new bank shifts the numbers.
TEST_F(PelmaBanksTest, NewBanksComeInWithinASecondOrOnARefreshMessage) {
  PelmaRig synth;
  writeBank("later.plb", "Later", 777);
  synth.render(43000);
  EXPECT_THAT(selectBank(synth, 1, 0).sound, HasSubstr("cutoff = 8000\n"));  // not there yet
  ASSERT_TRUE(announcesBanks(synth, 2));
  EXPECT_THAT(selectBank(synth, 1, 0).sound, HasSubstr("cutoff = 777\n"));

  writeBank("a.plb", "Fresh", 555);  // well before the next look; takes bank number 1
  synth.unit->sendObjectMessage(pelma::kRefreshBanksUri);
  ASSERT_TRUE(announcesBanks(synth, 3));
  EXPECT_EQ(stateAfterBlock(synth).bank, "Later");
  EXPECT_THAT(selectBank(synth, 1, 0).sound, HasSubstr("cutoff = 555\n"));
}

TEST_F(PelmaBanksTest, PortsChooseThePatchAndMovedControlsOverrideIt) {
  PelmaRig synth;
  synth.set("program", 3);
  EXPECT_THAT(stateAfterBlock(synth).sound, HasSubstr("cutoff = 300\n"));
  synth.set("cutoff", 1234);
  auto state = stateAfterBlock(synth);
  EXPECT_THAT(state.sound, HasSubstr("cutoff = 1234\n"));
  EXPECT_THAT(state.sound, HasSubstr("resonance = 0.35\n"));  // the rest of Round Bass stays
  synth.set("program", NAN);                                  // a broken port value chooses nothing
  synth.render(1024);
  state = stateAfterBlock(synth);
  EXPECT_THAT(state.sound, HasSubstr("cutoff = 1234\n"));
  EXPECT_THAT(state.sound, HasSubstr("resonance = 0.35\n"));
}

TEST_F(PelmaBanksTest, StateRestoresChoiceAndSoundInAnotherInstanceAlsoWhenItsBankIsGone) {
  writeBank("m.plb", "Mine", 432);
  PelmaRig first;
  selectBank(first, 1, 0);
  first.set("resonance", 0.7f);
  auto saved = stateAfterBlock(first);
  EXPECT_THAT(saved.sound, HasSubstr("resonance = 0.7\n"));

  PelmaRig second;
  second.restoreState(saved);
  EXPECT_EQ(stateAfterBlock(second), saved);
  // The restored ports do not override the restored sound on the next blocks.
  second.render(1024);
  EXPECT_EQ(second.saveState(), saved);

  std::filesystem::remove(banks_.path() / "m.plb");
  PelmaRig third;
  third.restoreState(saved);
  auto state = stateAfterBlock(third);
  EXPECT_THAT(state.sound, HasSubstr("cutoff = 432\n"));
  EXPECT_EQ(state.bank, "Factory");
}

TEST_F(PelmaBanksTest, EveryFactoryPatchIsAnLv2Preset) {
  auto factory = pelma::readBank(std::filesystem::path(PELMA_LV2_BUNDLE) / "Factory.plb");
  ASSERT_TRUE(factory);
  ASSERT_GE(factory->patches.size(), 8u);
  PelmaRig synth;
  for (const auto& patch : factory->patches) {
    ASSERT_TRUE(synth.loadPreset(patch.name)) << patch.name;
    EXPECT_THAT(stateAfterBlock(synth).sound,
                HasSubstr(fmt::format("cutoff = {}\n", patch.values[pelma::kCutoff])))
        << patch.name;
  }
  EXPECT_FALSE(synth.loadPreset("No such preset"));
}

}  // namespace
