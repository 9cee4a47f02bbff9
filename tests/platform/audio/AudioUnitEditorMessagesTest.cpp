// The message path between a plug-in and its editor, with our own instrument (it has an atom
// notify output and a level control output): the editor's atoms reach the plug-in in the next
// block, and the plug-in's output events and control output changes come back while an editor
// is attached, and only then; alike with the instrument in this process and in its own.

#include <gtest/gtest.h>
#include <lv2/atom/atom.h>
#include <lv2/midi/midi.h>

#include <algorithm>
#include <string>
#include <vector>

#include "AudioAnalysis.h"
#include "OfflineRig.h"
#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2World.h"

using namespace testing_support;

namespace {

// What the unit kept for the editor since the last call: how many events, and the level
// output's values.
struct PluginEvents {
  std::size_t count = 0;
  std::vector<float> levels;
  std::vector<std::string> objects;  // the types of the objects among them
};

constexpr std::uint32_t kLevelPort = 36;  // Pelma's port layout

PluginEvents drain(platform::AudioUnit& unit) {
  PluginEvents events;
  const LV2_URID floatType = platform::Lv2World::shared()->map(LV2_ATOM__Float);
  alignas(LV2_Atom) std::uint8_t buffer[32768];
  std::uint32_t port = 0;
  while (unit.readPluginEvent(&port, buffer, sizeof buffer)) {
    ++events.count;
    const auto* atom = reinterpret_cast<const LV2_Atom*>(buffer);
    if (port == kLevelPort && atom->type == floatType)
      events.levels.push_back(reinterpret_cast<const LV2_Atom_Float*>(atom)->body);
    if (atom->type == platform::Lv2World::shared()->map(LV2_ATOM__Object)) {
      const char* type = platform::Lv2World::shared()->unmap(
          reinterpret_cast<const LV2_Atom_Object*>(atom)->body.otype);
      events.objects.emplace_back(type ? type : "");
    }
  }
  return events;
}

// The plug-in's answers to the editor's requests (bank lists, the selection) are the editor's
// test (PelmaUiTest); here the path itself and that nothing is kept without an editor.
class AudioUnitEditorMessages : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(AudioUnitEditorMessages, PassBothWaysWhileAnEditorIsAttached) {
  OfflineRig rig("Pelma", 256, 48000.0, GetParam());
  ASSERT_TRUE(rig.unit);
  platform::AudioUnit& unit = *rig.unit;
  rig.render(1024);
  EXPECT_EQ(drain(unit).count, 0u) << "nothing is kept while no editor is attached";

  unit.setEditorAttached(true);
  rig.render(256);
  EXPECT_EQ(drain(unit).levels, std::vector<float>{0.0f}) << "silence, reported once";
  // A note written by the editor as a MIDI atom sounds, and the level output follows it.
  struct {
    LV2_Atom atom;
    std::uint8_t bytes[3];
  } note{{3, platform::Lv2World::shared()->map(LV2_MIDI__MidiEvent)}, {0x90, 60, 100}};
  ASSERT_TRUE(unit.sendEditorEvent(note.atom));
  const auto audio = rig.render(4800);
  EXPECT_GT(peak(audio.data(), audio.size()), 0.01);
  const PluginEvents playing = drain(unit);
  ASSERT_FALSE(playing.levels.empty());
  EXPECT_GT(playing.levels.back(), 0.01f);

  // The editor's describe request, as it opens: the banks and the sound come back.
  ASSERT_TRUE(unit.sendObjectMessage("urn:pelma:synth#describe"));
  rig.render(1024);
  const auto objects = drain(unit).objects;
  EXPECT_NE(std::find(objects.begin(), objects.end(), "urn:pelma:synth#bankNames"), objects.end());
  EXPECT_NE(std::find(objects.begin(), objects.end(), "urn:pelma:synth#selection"), objects.end());

  unit.setEditorAttached(false);
  rig.render(1024);
  EXPECT_EQ(drain(unit).count, 0u);
}

INSTANTIATE_TEST_SUITE_P(InAndOutOfProcess, AudioUnitEditorMessages,
                         ::testing::Values(0u,
                                           platform::kAudioComponentInstantiationLoadOutOfProcess));

}  // namespace
