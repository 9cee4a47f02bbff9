#pragma once

// The instrument's presets as LV2 preset bundles (pset:Preset), shared with every other LV2 host:
// those installed with the plug-in and the user's own in ~/.lv2, listed by name and loaded; the
// sound of the moment saved as a new bundle "~/.lv2/<instrument>-<name>.preset.lv2/" (manifest.ttl
// and <instrument>-<name>.ttl, written by lilv); the user's own renamed and deleted. Presets
// installed elsewhere (under /usr) are never written or removed.
//
// Preset files come from outside: one that is damaged (not Turtle, cut short, too large) or holds
// a control value outside the control's range is not loaded, and the caller gets one message to
// show; the file stays as it is. Main thread.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace platform {
class AudioUnit;
}

namespace presets {

struct Preset {
  std::string uri;
  std::string name;
  bool own = false;  // a bundle in the user's preset folder: it may be renamed and deleted
};

// Where the user's presets live: ~/.lv2, the folder every LV2 host searches.
std::filesystem::path userPresetFolder();

// A bundle folder's base name made from an instrument's and a preset's names as a user or a file
// gave them: letters, digits, '-' and '_' only (anything else becomes '_'), never empty, never
// starting with '.', at most 96 bytes.
std::string bundleBaseName(const std::string& instrumentName, const std::string& presetName);

class PresetLibrary {
 public:
  explicit PresetLibrary(std::shared_ptr<platform::AudioUnit> unit);

  // The instrument's presets, by name.
  std::vector<Preset> presets() const;
  // Whether saving under `name` would replace a preset bundle that exists.
  bool exists(const std::string& name) const;

  // Each returns an empty string when it went well, else the one message to show.
  std::string load(const Preset& preset);
  std::string resetToDefault();
  // Saves the instrument's state under `name`, replacing a bundle of that name.
  std::string save(const std::string& name);
  std::string rename(const Preset& preset, const std::string& newName);
  std::string remove(const Preset& preset);

  // The bundle folder a preset of this instrument named `name` is saved in.
  std::filesystem::path bundleFor(const std::string& name) const;

 private:
  // A second instance of the instrument in this process, off the audio graph: lilv saves only
  // states taken from an instance, and the one playing may run in a process of its own.
  std::shared_ptr<platform::AudioUnit> offGraphInstance() const;
  std::string writeBundle(void* state, const std::string& name);
  std::shared_ptr<platform::AudioUnit> unit_;
};

}  // namespace presets
