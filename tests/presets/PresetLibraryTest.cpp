// Presets as LV2 bundles in ~/.lv2 (a home folder of the test's own): saved, listed, loaded,
// renamed and deleted with real mda JX10; installed presets left alone; hostile names and
// damaged or out-of-range preset files refused with a message, the file left as it was.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioUnit.h"
#include "presets/PresetLibrary.h"
#include "support/OfflineRig.h"
#include "support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using presets::Preset;
using presets::PresetLibrary;

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class Presets : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    home = new TemporaryFolder;
    setenv("HOME", home->path().c_str(), 1);
  }
  static void TearDownTestSuite() { delete home; }
  void TearDown() override { fs::remove_all(presets::userPresetFolder()); }

  std::optional<Preset> named(const std::string& name) {
    for (const Preset& preset : library.presets()) {
      if (preset.name == name) return preset;
    }
    return std::nullopt;
  }

  static inline TemporaryFolder* home = nullptr;
  testing_support::OfflineRig rig{"MDA JX10"};
  PresetLibrary library{rig.unit};
};

TEST(PresetBundleName, IsASafeBoundedFolderNameWhateverTheNameGiven) {
  EXPECT_EQ(presets::bundleBaseName("MDA JX10", "Bright Pad"), "MDA_JX10-Bright_Pad");
  for (const std::string& hostile :
       std::vector<std::string>{"../../etc/passwd", "/", "..", ".hidden", "a/b\\c\n\x01",
                                std::string(5000, 'x'), "", "   ", "\xff\xfe"}) {
    const std::string name = presets::bundleBaseName("../Pelma", hostile);
    EXPECT_FALSE(name.empty());
    EXPECT_LE(name.size(), 96u);
    EXPECT_EQ(name.find('/'), std::string::npos) << name;
    EXPECT_EQ(name.find(".."), std::string::npos) << name;
    EXPECT_NE(name.front(), '.') << name;
  }
}

TEST_F(Presets, SavedListedLoadedRenamedAndDeletedAsBundlesInTheUsersFolder) {
  rig.unit->setParameterValue("vcf_freq", 0.25f);
  ASSERT_EQ(library.save("Dark Pad"), "");
  const fs::path bundle = presets::userPresetFolder() / "MDA_JX10-Dark_Pad.preset.lv2";
  EXPECT_TRUE(fs::exists(bundle / "manifest.ttl"));
  EXPECT_NE(contents(bundle / "MDA_JX10-Dark_Pad.ttl").find("Dark Pad"), std::string::npos);

  auto saved = named("Dark Pad");
  ASSERT_TRUE(saved);
  EXPECT_TRUE(saved->own);
  rig.unit->setParameterValue("vcf_freq", 0.9f);
  ASSERT_EQ(library.load(*saved), "");
  EXPECT_FLOAT_EQ(rig.unit->parameterValue("vcf_freq"), 0.25f);

  // Saved again under the same name: one preset, with the new sound.
  rig.unit->setParameterValue("vcf_freq", 0.5f);
  EXPECT_TRUE(library.exists("Dark Pad"));
  ASSERT_EQ(library.save("Dark Pad"), "");
  ASSERT_EQ(library.load(*named("Dark Pad")), "");
  EXPECT_FLOAT_EQ(rig.unit->parameterValue("vcf_freq"), 0.5f);

  ASSERT_EQ(library.rename(*named("Dark Pad"), "Warm Pad"), "");
  EXPECT_FALSE(named("Dark Pad"));
  EXPECT_FALSE(fs::exists(bundle));
  auto renamed = named("Warm Pad");
  ASSERT_TRUE(renamed);
  rig.unit->setParameterValue("vcf_freq", 0.9f);
  ASSERT_EQ(library.load(*renamed), "");
  EXPECT_FLOAT_EQ(rig.unit->parameterValue("vcf_freq"), 0.5f);

  ASSERT_EQ(library.remove(*renamed), "");
  EXPECT_FALSE(named("Warm Pad"));
  EXPECT_TRUE(fs::is_empty(presets::userPresetFolder()));

  // The default state: JX10's own default cutoff.
  ASSERT_EQ(library.resetToDefault(), "");
  EXPECT_FLOAT_EQ(rig.unit->parameterValue("vcf_freq"), 0.9f);
}

// An instrument playing in a process of its own saves its sound as a preset too, which loads
// back with that sound.
TEST_F(Presets, AnInstrumentInAProcessOfItsOwnSavesItsSound) {
  testing_support::OfflineRig outside("MDA JX10", 256, 48000.0,
                                      platform::kAudioComponentInstantiationLoadOutOfProcess);
  ASSERT_TRUE(outside.unit->isOutOfProcess());
  outside.unit->setParameterValue("vcf_freq", 0.125f);
  ASSERT_EQ(PresetLibrary(outside.unit).save("From Outside"), "");
  auto saved = named("From Outside");
  ASSERT_TRUE(saved);
  ASSERT_EQ(library.load(*saved), "");
  EXPECT_FLOAT_EQ(rig.unit->parameterValue("vcf_freq"), 0.125f);
}

TEST_F(Presets, InstalledPresetsAreListedAndLoadedButNeverRenamedOrDeleted) {
  const auto all = library.presets();
  ASSERT_GE(all.size(), 50u);  // mda JX10's factory presets
  const Preset installed = all.front();
  EXPECT_FALSE(installed.own);
  EXPECT_EQ(library.load(installed), "");
  EXPECT_NE(library.remove(installed), "");
  EXPECT_NE(library.rename(installed, "Mine"), "");
  EXPECT_TRUE(named(installed.name));
  EXPECT_FALSE(fs::exists(presets::userPresetFolder() / "MDA_JX10-Mine.preset.lv2"));
}

TEST_F(Presets, ADamagedOrOutOfRangePresetIsRefusedWithAMessageAndLeftAsItWas) {
  rig.unit->setParameterValue("vcf_freq", 0.4375f);  // exact in binary: found in the file
  ASSERT_EQ(library.save("Cut"), "");
  ASSERT_EQ(library.save("Loud"), "");
  const fs::path cut = presets::userPresetFolder() / "MDA_JX10-Cut.preset.lv2/MDA_JX10-Cut.ttl";
  const fs::path loud = presets::userPresetFolder() / "MDA_JX10-Loud.preset.lv2/MDA_JX10-Loud.ttl";
  // One cut short in the middle of a statement, one with the cutoff at 99 (its range is 0 to 1).
  std::string text = contents(cut);
  text.resize(text.size() * 2 / 3);
  std::ofstream(cut, std::ios::binary | std::ios::trunc) << text;
  std::string outOfRange = contents(loud);
  const auto at = outOfRange.find("0.4375");
  ASSERT_NE(at, std::string::npos);
  outOfRange.replace(at, 6, "99.0");
  std::ofstream(loud, std::ios::binary | std::ios::trunc) << outOfRange;

  rig.unit->setParameterValue("vcf_freq", 0.7f);
  const std::string damaged = library.load({"file://" + cut.string(), "Cut", true});
  EXPECT_NE(damaged.find("damaged"), std::string::npos) << damaged;
  const std::string wrong = library.load({"file://" + loud.string(), "Loud", true});
  EXPECT_NE(wrong.find("VCF Freq to 99"), std::string::npos) << wrong;
  EXPECT_FLOAT_EQ(rig.unit->parameterValue("vcf_freq"), 0.7f);
  EXPECT_EQ(contents(cut), text);
  EXPECT_EQ(contents(loud), outOfRange);
}

}  // namespace
