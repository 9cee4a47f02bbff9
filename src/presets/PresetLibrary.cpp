#include "presets/PresetLibrary.h"

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <serd/serd.h>

#include <fmt/format.h>
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <set>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/ControlPorts.h"
#include "platform/audio/Lv2World.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"

namespace presets {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxBaseName = 96;
constexpr std::size_t kMaxLabel = 200;
// A preset is a page of Turtle; one far larger is not read.
constexpr std::uintmax_t kMaxPresetFile = 16u << 20;

std::string safeName(std::string text) {
  std::string result;
  for (const unsigned char c : text) {
    const bool keep = std::isalnum(c) || c == '-' || c == '_';
    if (!keep && !result.empty() && result.back() == '_') continue;  // one '_' per run
    result += keep ? static_cast<char>(c) : '_';
  }
  return result;
}

// A preset's label as it is written: no control characters, bounded.
std::string cleanLabel(const std::string& name) {
  std::string label;
  for (const char c : name) {
    if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) label += c;
  }
  const auto begin = label.find_first_not_of(' ');
  const auto end = label.find_last_not_of(' ');
  label = begin == std::string::npos ? std::string() : label.substr(begin, end - begin + 1);
  if (label.size() > kMaxLabel) label.resize(kMaxLabel);
  return label;
}

std::string quoted(const std::string& name) {
  return "\u201C" + platform::printable(name, 80) + "\u201D";
}

// The local file a preset URI names (its fragment left off), or empty for other URIs.
fs::path localFile(const std::string& uri) {
  if (uri.rfind("file:", 0) != 0) return {};
  char* path = lilv_file_uri_parse(uri.substr(0, uri.find('#')).c_str(), nullptr);
  if (!path) return {};
  fs::path result(path);
  lilv_free(path);
  return result;
}

// Whether `file` lies in a bundle folder directly inside the user's preset folder, links
// resolved: only those are the user's to rename and delete.
bool inUserFolder(const fs::path& file) {
  std::error_code error;
  const fs::path folder = fs::weakly_canonical(userPresetFolder(), error);
  if (error) return false;
  const fs::path real = fs::weakly_canonical(file, error);
  if (error) return false;
  const fs::path bundle = real.parent_path();
  return bundle.parent_path() == folder && bundle.extension() == ".lv2";
}

// The Turtle file a preset's data is in: the file its URI names, else the one the world read it
// from (rdfs:seeAlso).
fs::path presetFile(platform::Lv2World& world, const LilvNode* preset) {
  fs::path file = localFile(lilv_node_as_uri(preset));
  if (!file.empty()) return file;
  LilvNode* seeAlso =
      lilv_world_get(world.world(), preset, world.node(LILV_NS_RDFS "seeAlso"), nullptr);
  if (seeAlso && lilv_node_is_uri(seeAlso)) file = localFile(lilv_node_as_uri(seeAlso));
  lilv_node_free(seeAlso);
  return file;
}

// Empty when `file` reads whole as Turtle, else what is wrong with it.
std::string turtleProblem(const fs::path& file) {
  std::error_code error;
  const auto size = fs::file_size(file, error);
  if (error) return "it cannot be read";
  if (size > kMaxPresetFile) return "it is far larger than a preset";
  SerdReader* reader =
      serd_reader_new(SERD_TURTLE, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  serd_reader_set_error_sink(
      reader, [](void*, const SerdError*) { return SERD_SUCCESS; }, nullptr);
  const SerdStatus status =
      serd_reader_read_file(reader, reinterpret_cast<const uint8_t*>(file.c_str()));
  serd_reader_free(reader);
  return status == SERD_SUCCESS ? "" : "it is damaged (cut short or not an LV2 preset file)";
}

// Empty when every control value the state holds is a number within its control's range.
std::string rangeProblem(const LilvState* state, const std::string& pluginUri,
                         platform::AudioUnit& unit) {
  struct Check {
    std::vector<platform::ControlPort> ports;
    LV2_URID floatType, doubleType, intType;
    std::string problem;
  } check{platform::controlPorts(pluginUri),
          unit.mapURI(LV2_ATOM__Float),
          unit.mapURI(LV2_ATOM__Double),
          unit.mapURI(LV2_ATOM__Int),
          {}};
  lilv_state_emit_port_values(
      state,
      [](const char* symbol, void* user, const void* value, uint32_t size, uint32_t type) {
        auto* check = static_cast<Check*>(user);
        if (!check->problem.empty()) return;
        double number = NAN;
        if (type == check->floatType && size == sizeof(float)) {
          number = *static_cast<const float*>(value);
        } else if (type == check->doubleType && size == sizeof(double)) {
          number = *static_cast<const double*>(value);
        } else if (type == check->intType && size == sizeof(int32_t)) {
          number = *static_cast<const int32_t*>(value);
        }
        const auto port = std::find_if(check->ports.begin(), check->ports.end(),
                                       [&](const auto& p) { return p.symbol == symbol; });
        if (port == check->ports.end()) return;  // not a control of this plug-in: lilv skips it
        if (!std::isfinite(number) || number < port->minimum || number > port->maximum) {
          check->problem =
              fmt::format("it sets {} to {}, outside {} to {}", port->name,
                          std::isnan(number) ? std::string("no number") : fmt::format("{}", number),
                          port->minimum, port->maximum);
        }
      },
      &check);
  return check.problem;
}

// Reloads a bundle the world has read before, so that it sees the files as they are now.
void reloadBundle(platform::Lv2World& world, const fs::path& bundle, bool loadAgain) {
  LilvNode* uri = lilv_new_file_uri(world.world(), nullptr, (bundle.string() + "/").c_str());
  lilv_world_unload_bundle(world.world(), uri);
  if (loadAgain) lilv_world_load_bundle(world.world(), uri);
  lilv_node_free(uri);
}

// The user's preset bundles, read once a process when the search path leaves them out (LV2_PATH
// set without ~/.lv2): a preset saved there is then still listed after a restart.
void loadUserBundles(platform::Lv2World& world) {
  static std::set<std::string> done;
  const fs::path folder = userPresetFolder();
  const std::string path = ":" + platform::lv2SearchPath() + ":";
  if (path.find(":" + folder.string() + ":") != std::string::npos ||
      path.find(":" + folder.string() + "/:") != std::string::npos ||
      !done.insert(folder.string()).second)
    return;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name.size() > 11 && name.ends_with(".preset.lv2") && entry.is_directory(error))
      reloadBundle(world, entry.path(), true);
  }
}

}  // namespace

fs::path userPresetFolder() {
  return platform::userLv2Folder();
}

std::string bundleBaseName(const std::string& instrumentName, const std::string& presetName) {
  std::string name = safeName(instrumentName).substr(0, kMaxBaseName / 3);
  const std::string preset = safeName(presetName);
  name += "-" + (preset.empty() || preset == "_" ? std::string("preset") : preset);
  while (!name.empty() && (name.front() == '_' || name.front() == '-'))
    name.erase(0, 1);
  if (name.size() > kMaxBaseName) name.resize(kMaxBaseName);
  return name;
}

PresetLibrary::PresetLibrary(std::shared_ptr<platform::AudioUnit> unit) : unit_(std::move(unit)) {
  auto world = platform::Lv2World::shared();
  const auto lock = world->queryLock();
  loadUserBundles(*world);
}

fs::path PresetLibrary::bundleFor(const std::string& name) const {
  return userPresetFolder() / (bundleBaseName(unit_->name(), cleanLabel(name)) + ".preset.lv2");
}

std::vector<Preset> PresetLibrary::presets() const {
  std::vector<Preset> result;
  for (const platform::AudioUnitPreset& preset : unit_->presets()) {
    const fs::path file = localFile(preset.uri);
    result.push_back({preset.uri, preset.name, !file.empty() && inUserFolder(file)});
  }
  return result;
}

bool PresetLibrary::exists(const std::string& name) const {
  std::error_code error;
  return fs::exists(bundleFor(name), error);
}

std::string PresetLibrary::load(const Preset& preset) {
  auto world = platform::Lv2World::shared();
  {
    const auto lock = world->queryLock();
    LilvNode* node = lilv_new_uri(world->world(), preset.uri.c_str());
    const fs::path file = presetFile(*world, node);
    std::string problem = file.empty() ? "" : turtleProblem(file);
    LilvState* state = nullptr;
    if (problem.empty()) {
      lilv_world_load_resource(world->world(), node);
      state = lilv_state_new_from_world(world->world(), world->mapFeature(), node);
      if (!state) problem = "it holds no state for this instrument";
    }
    if (state) {
      problem = rangeProblem(state, unit_->uri(), *unit_);
      lilv_state_free(state);
    }
    lilv_node_free(node);
    if (!problem.empty()) {
      platform::log("Preset {} ({}) not loaded: {}", platform::printable(preset.name),
                    file.string(), problem);
      return fmt::format("The preset {} was not loaded: {}.", quoted(preset.name), problem);
    }
  }
  if (!unit_->loadPreset(preset.uri))
    return fmt::format("The preset {} could not be loaded.", quoted(preset.name));
  return {};
}

std::string PresetLibrary::resetToDefault() {
  return unit_->loadDefaultState() ? "" : "The default state could not be loaded.";
}

std::string PresetLibrary::writeBundle(void* stateHandle, const std::string& name) {
  auto* state = static_cast<LilvState*>(stateHandle);
  auto world = platform::Lv2World::shared();
  const auto lock = world->queryLock();
  const fs::path bundle = bundleFor(name);
  const std::string base = bundle.stem().stem().string();  // without ".preset.lv2"
  if (!platform::makeFolder(userPresetFolder()))
    return fmt::format("The preset could not be saved: {} cannot be made.",
                       userPresetFolder().string());
  lilv_state_set_label(state, cleanLabel(name).c_str());
  // The world forgets what it read of an older preset there before it reads the new one.
  LilvNode* oldPreset =
      lilv_new_file_uri(world->world(), nullptr, (bundle / (base + ".ttl")).string().c_str());
  lilv_world_unload_resource(world->world(), oldPreset);
  lilv_node_free(oldPreset);
  reloadBundle(*world, bundle, false);
  const int failed = lilv_state_save(world->world(), world->mapFeature(), world->unmapFeature(),
                                     state, nullptr, bundle.c_str(), (base + ".ttl").c_str());
  reloadBundle(*world, bundle, true);
  if (failed) {
    platform::log("Preset {} not saved in {}", platform::printable(name), bundle.string());
    return fmt::format("The preset {} could not be saved in {} (is the folder writable?).",
                       quoted(name), bundle.string());
  }
  platform::log("Preset {} saved in {}", platform::printable(name), bundle.string());
  return {};
}

std::shared_ptr<platform::AudioUnit> PresetLibrary::offGraphInstance() const {
  auto world = platform::Lv2World::shared();
  const auto lock = world->queryLock();
  LilvNode* pluginUri = lilv_new_uri(world->world(), unit_->uri().c_str());
  const LilvPlugin* plugin =
      lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world->world()), pluginUri);
  lilv_node_free(pluginUri);
  std::string failure;
  return plugin ? platform::AudioUnit::create(world, plugin, unit_->sampleRate(),
                                              unit_->maximumFramesToRender(), &failure)
                : nullptr;
}

std::string PresetLibrary::save(const std::string& name) {
  if (cleanLabel(name).empty()) return "A preset needs a name.";
  const fs::path bundle = bundleFor(name);
  LilvState* state = unit_->newLilvState(bundle.string());
  if (!state) {
    // An instrument in a process of its own gives its state as text; an instance here, off the
    // audio graph, takes it and gives it back in the form lilv saves.
    const std::string turtle = unit_->stateAsTurtle();
    auto scratch = turtle.empty() ? nullptr : offGraphInstance();
    if (scratch && scratch->restoreStateFromTurtle(turtle))
      state = scratch->newLilvState(bundle.string());
  }
  if (!state)
    return fmt::format("The preset {} could not be saved: {} cannot give its state here.",
                       quoted(name), unit_->name());
  std::string problem = writeBundle(state, name);
  lilv_state_free(state);
  return problem;
}

std::string PresetLibrary::rename(const Preset& preset, const std::string& newName) {
  if (!preset.own) return "Only your own presets can be renamed.";
  if (cleanLabel(newName).empty()) return "A preset needs a name.";
  const fs::path newBundle = bundleFor(newName);
  std::error_code error;
  // Only the label changes when the new name gives the same file.
  const bool sameFile =
      fs::weakly_canonical(localFile(preset.uri), error) ==
      fs::weakly_canonical(newBundle / (newBundle.stem().stem().string() + ".ttl"), error);
  if (!sameFile && exists(newName))
    return fmt::format("A preset named {} exists already.", quoted(newName));
  // lilv saves only states taken from an instance: a second instance of the plug-in, off the
  // audio graph, takes the preset and gives it back under its new name; the sound playing
  // meanwhile is not touched.
  auto scratch = offGraphInstance();
  LilvState* state = scratch && scratch->loadPreset(preset.uri)
                         ? scratch->newLilvState(newBundle.string())
                         : nullptr;
  if (!state)
    return fmt::format("The preset {} could not be read, so it was not renamed.",
                       quoted(preset.name));
  std::string problem = writeBundle(state, newName);
  lilv_state_free(state);
  if (problem.empty() && !sameFile) problem = remove(preset);
  return problem;
}

std::string PresetLibrary::remove(const Preset& preset) {
  const fs::path file = localFile(preset.uri);
  if (!preset.own || file.empty() || !inUserFolder(file))
    return fmt::format("{} is not one of your presets: it stays.", quoted(preset.name));
  auto world = platform::Lv2World::shared();
  const auto lock = world->queryLock();
  LilvNode* node = lilv_new_uri(world->world(), preset.uri.c_str());
  lilv_world_load_resource(world->world(), node);
  LilvState* state = lilv_state_new_from_world(world->world(), world->mapFeature(), node);
  int failed = 1;
  if (state) {
    failed = lilv_state_delete(world->world(), state);
    lilv_state_free(state);
  }
  lilv_world_unload_resource(world->world(), node);
  lilv_node_free(node);
  std::error_code error;
  // A preset lilv cannot read (damaged) goes by hand: its file, and the bundle when nothing but
  // its manifest is left in it.
  if (failed && fs::exists(file, error)) {
    fs::remove(file, error);
    const fs::path bundle = file.parent_path();
    const auto left = std::distance(fs::directory_iterator(bundle, error), {});
    if (left == 1 && fs::exists(bundle / "manifest.ttl", error)) {
      fs::remove(bundle / "manifest.ttl", error);
      fs::remove(bundle, error);
    }
    failed = fs::exists(file, error) ? 1 : 0;
  }
  reloadBundle(*world, file.parent_path(), fs::exists(file.parent_path(), error));
  if (failed) return fmt::format("The preset {} could not be deleted.", quoted(preset.name));
  platform::log("Preset {} deleted", platform::printable(preset.name));
  return {};
}

}  // namespace presets
