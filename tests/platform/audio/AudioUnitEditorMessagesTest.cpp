// The message path between a plug-in and its editor, with our own instrument (it has an atom
// notify output and a level control output): the editor's atoms reach the plug-in in the next
// block, and the plug-in's output events and control output changes come back while an editor
// is attached, and only then.

#include <gtest/gtest.h>
#include <lv2/atom/atom.h>
#include <lv2/midi/midi.h>

#include <cstring>
#include <map>
#include <vector>

#include "AudioAnalysis.h"
#include "OfflineRig.h"
#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2World.h"

using namespace testing_support;

namespace {

struct PluginEvents {
  std::map<std::uint32_t, std::vector<LV2_URID>> objectTypes;  // by port
  std::map<std::uint32_t, std::vector<float>> values;          // control outputs, by port
  std::size_t count = 0;
};

PluginEvents drain(platform::AudioUnit& unit) {
  PluginEvents events;
  const LV2_URID objectType = platform::Lv2World::shared()->map(LV2_ATOM__Object);
  const LV2_URID floatType = platform::Lv2World::shared()->map(LV2_ATOM__Float);
  alignas(LV2_Atom) std::uint8_t buffer[32768];
  std::uint32_t port = 0;
  while (unit.readPluginEvent(&port, buffer, sizeof buffer)) {
    ++events.count;
    const auto* atom = reinterpret_cast<const LV2_Atom*>(buffer);
    if (atom->type == objectType) {
      events.objectTypes[port].push_back(
          reinterpret_cast<const LV2_Atom_Object*>(atom)->body.otype);
    } else if (atom->type == floatType) {
      events.values[port].push_back(reinterpret_cast<const LV2_Atom_Float*>(atom)->body);
    }
  }
  return events;
}

constexpr std::uint32_t kNotifyPort = 35, kLevelPort = 36;  // Pelma's port layout

TEST(AudioUnitEditorMessages, PassBothWaysWhileAnEditorIsAttached) {
  OfflineRig rig("Pelma");
  ASSERT_TRUE(rig.unit);
  platform::AudioUnit& unit = *rig.unit;
  auto map = [](const char* uri) { return platform::Lv2World::shared()->map(uri); };
  rig.render(1024);
  EXPECT_EQ(drain(unit).count, 0u) << "nothing is kept while no editor is attached";

  unit.setEditorAttached(true);
  const LV2_Atom_Object describe{{sizeof(LV2_Atom_Object_Body), map(LV2_ATOM__Object)},
                                 {0, map("urn:pelma:synth#describe")}};
  ASSERT_TRUE(unit.sendEditorEvent(describe.atom));
  rig.render(256);
  PluginEvents answer = drain(unit);
  const std::vector<LV2_URID> expected{map("urn:pelma:synth#bankNames"),
                                       map("urn:pelma:synth#selection")};
  EXPECT_EQ(answer.objectTypes[kNotifyPort], expected);
  EXPECT_EQ(answer.values[kLevelPort], std::vector<float>{0.0f}) << "silence, reported once";

  // A note written by the editor as a MIDI atom sounds, and the level output follows it.
  struct {
    LV2_Atom atom;
    std::uint8_t bytes[3];
  } note{{3, map(LV2_MIDI__MidiEvent)}, {0x90, 60, 100}};
  ASSERT_TRUE(unit.sendEditorEvent(note.atom));
  const auto audio = rig.render(4800);
  EXPECT_GT(peak(audio.data(), audio.size()), 0.01);
  PluginEvents playing = drain(unit);
  ASSERT_FALSE(playing.values[kLevelPort].empty());
  EXPECT_GT(playing.values[kLevelPort].back(), 0.01f);

  unit.setEditorAttached(false);
  rig.render(1024);
  EXPECT_EQ(drain(unit).count, 0u);
}

}  // namespace
