// An LV2 instrument's state: saved as a property dictionary (control inputs by symbol, the
// properties its state interface stores), restored from one, and kept when the instance is made
// again at another sample rate. Main thread.

#include <lv2/atom/atom.h>
#include <lv2/state/state.h>
#include <lv2/worker/worker.h>

#include <lv2/presets/presets.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2Host.h"
#include "platform/audio/Lv2World.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

struct StateCollector {
  Lv2World* world;
  PropertyDictionary properties;
};

LV2_State_Status storeProperty(LV2_State_Handle handle, uint32_t key, const void* value,
                               size_t size, uint32_t type, uint32_t) {
  auto* collector = static_cast<StateCollector*>(handle);
  Lv2World& world = *collector->world;
  const char* keyUri = world.unmap(key);
  const char* typeUri = world.unmap(type);
  if (!keyUri || !typeUri) return LV2_STATE_ERR_UNKNOWN;
  const std::string typeName = typeUri;
  PropertyValue stored;
  if ((typeName == LV2_ATOM__String || typeName == LV2_ATOM__Path || typeName == LV2_ATOM__URI) &&
      size > 0) {
    stored = std::string(static_cast<const char*>(value),
                         strnlen(static_cast<const char*>(value), size));
  } else if (typeName == LV2_ATOM__Int && size == sizeof(int32_t)) {
    stored = std::int64_t{*static_cast<const int32_t*>(value)};
  } else if (typeName == LV2_ATOM__Long && size == sizeof(int64_t)) {
    stored = std::int64_t{*static_cast<const int64_t*>(value)};
  } else if (typeName == LV2_ATOM__Float && size == sizeof(float)) {
    stored = double{*static_cast<const float*>(value)};
  } else if (typeName == LV2_ATOM__Double && size == sizeof(double)) {
    stored = *static_cast<const double*>(value);
  } else if (typeName == LV2_ATOM__Bool && size == sizeof(int32_t)) {
    stored = *static_cast<const int32_t*>(value) != 0;
  } else {
    const auto* bytes = static_cast<const std::uint8_t*>(value);
    stored = PropertyData(bytes, bytes + size);
  }
  collector->properties[keyUri] = PropertyDictionary{{"type", typeName}, {"value", stored}};
  return LV2_STATE_SUCCESS;
}

// The stored properties as the plug-in reads them back: each value in its atom type's layout.
struct StateSource {
  struct Entry {
    LV2_URID type;
    std::vector<std::uint8_t> bytes;
  };
  std::map<LV2_URID, Entry> entries;

  template <typename T>
  static std::vector<std::uint8_t> bytesOf(T value) {
    std::vector<std::uint8_t> bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
  }

  StateSource(Lv2World& world, const PropertyDictionary& properties) {
    for (const auto& [key, stored] : properties) {
      const auto* property = stored.get<PropertyDictionary>();
      if (!property || !property->count("type") || !property->count("value")) continue;
      const auto* typeName = property->at("type").get<std::string>();
      if (!typeName) continue;
      const PropertyValue& value = property->at("value");
      std::vector<std::uint8_t> bytes;
      if (const auto* text = value.get<std::string>()) {
        bytes.assign(text->begin(), text->end());
        bytes.push_back(0);
      } else if (const auto* integer = value.get<std::int64_t>()) {
        bytes = *typeName == LV2_ATOM__Long ? bytesOf(*integer)
                                            : bytesOf(static_cast<int32_t>(*integer));
      } else if (const auto* real = value.get<double>()) {
        bytes = *typeName == LV2_ATOM__Double ? bytesOf(*real) : bytesOf(static_cast<float>(*real));
      } else if (const auto* flag = value.get<bool>()) {
        bytes = bytesOf(static_cast<int32_t>(*flag));
      } else if (const auto* data = value.get<PropertyData>()) {
        bytes = *data;
      }
      entries[world.map(key.c_str())] = {world.map(typeName->c_str()), std::move(bytes)};
    }
  }
};

const void* retrieveProperty(LV2_State_Handle handle, uint32_t key, size_t* size, uint32_t* type,
                             uint32_t* flags) {
  auto* source = static_cast<StateSource*>(handle);
  const auto found = source->entries.find(key);
  if (found == source->entries.end()) return nullptr;
  *size = found->second.bytes.size();
  *type = found->second.type;
  *flags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
  return found->second.bytes.data();
}

// lilv's port values, as control inputs.
void setPortValue(const char* symbol, void* user, const void* value, uint32_t size, uint32_t type) {
  auto* unit = static_cast<AudioUnit*>(user);
  if (type == unit->mapURI(LV2_ATOM__Float) && size == sizeof(float)) {
    unit->setParameterValue(symbol, *static_cast<const float*>(value));
  } else if (type == unit->mapURI(LV2_ATOM__Double) && size == sizeof(double)) {
    unit->setParameterValue(symbol, static_cast<float>(*static_cast<const double*>(value)));
  } else if (type == unit->mapURI(LV2_ATOM__Int) && size == sizeof(int32_t)) {
    unit->setParameterValue(symbol, static_cast<float>(*static_cast<const int32_t*>(value)));
  }
}

}  // namespace

// The plug-in's state interface; none for a plug-in in a process of its own, whose state is its
// control inputs only.
const LV2_State_Interface* AudioUnit::stateInterface() const {
  if (!instance_) return nullptr;
  return static_cast<const LV2_State_Interface*>(
      lilv_instance_get_extension_data(instance_, LV2_STATE__interface));
}

PropertyDictionary AudioUnit::fullState() {
  PropertyDictionary ports;
  for (const Port& p : ports_) {
    if (p.kind == Port::controlIn)
      ports[p.symbol] = double{controlTargets_[p.controlIndex]->load()};
  }
  StateCollector collector{world_.get(), {}};
  const auto* state = stateInterface();
  if (state && state->save) {
    state->save(lilv_instance_get_handle(instance_), storeProperty, &collector,
                LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, host_->featurePointers.data());
  }
  return PropertyDictionary{{"uri", uri_},
                            {"name", name_},
                            {"ports", std::move(ports)},
                            {"properties", std::move(collector.properties)}};
}

bool AudioUnit::suspendRun() {
  runSuspended_.store(true);
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (inRun_.load()) {
    if (std::chrono::steady_clock::now() > giveUp) {
      runSuspended_.store(false);
      log("\"{}\": its block did not end within a second; the state was not restored", name_);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return true;
}

bool AudioUnit::applyState(LilvState* state, const std::string& what) {
  if (!state) {
    log("\"{}\": no state could be read from {}", name_, what);
    return false;
  }
  const bool suspended = suspendRun();
  if (suspended) {
    lilv_state_restore(state, instance_, setPortValue, this, 0, host_->featurePointers.data());
    resumeRun();
  }
  lilv_state_free(state);
  return suspended;
}

bool AudioUnit::restoreStateFromFile(const std::string& path) {
  auto lock = world_->queryLock();
  return applyState(
      lilv_state_new_from_file(world_->world(), world_->mapFeature(), nullptr, path.c_str()), path);
}

namespace {
// The state's subject in the Turtle text; the text names no file, so relative URIs stay as they
// are.
constexpr const char* kStateUri = "urn:pelma:state";

const void* portValueOf(const char* symbol, void* user, uint32_t* size, uint32_t* type) {
  auto& values = *static_cast<std::pair<std::map<std::string, float>, LV2_URID>*>(user);
  const auto found = values.first.find(symbol);
  if (found == values.first.end()) return nullptr;
  *size = sizeof(float);
  *type = values.second;
  return &found->second;
}
}  // namespace

std::string AudioUnit::stateAsTurtle() {
  if (!instance_) return {};
  std::pair<std::map<std::string, float>, LV2_URID> values{{}, mapURI(LV2_ATOM__Float)};
  for (const Port& p : ports_) {
    if (p.kind == Port::controlIn) values.first[p.symbol] = controlTargets_[p.controlIndex]->load();
  }
  auto lock = world_->queryLock();
  LilvState* state = lilv_state_new_from_instance(
      plugin_, instance_, world_->mapFeature(), nullptr, nullptr, nullptr, nullptr, portValueOf,
      &values, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, host_->featurePointers.data());
  if (!state) return {};
  char* text = lilv_state_to_string(world_->world(), world_->mapFeature(), world_->unmapFeature(),
                                    state, kStateUri, nullptr);
  lilv_state_free(state);
  if (!text) return {};
  // lilv leaves the prefixes it uses undeclared here; declared, the text is Turtle on its own, as
  // other LV2 tools read it.
  std::string turtle =
      "@prefix atom: <http://lv2plug.in/ns/ext/atom#> .\n"
      "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
      "@prefix pset: <http://lv2plug.in/ns/ext/presets#> .\n"
      "@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .\n"
      "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
      "@prefix state: <http://lv2plug.in/ns/ext/state#> .\n"
      "@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .\n\n";
  if (std::string_view(text).find("@prefix") != std::string_view::npos) turtle.clear();
  turtle += text;
  lilv_free(text);
  return turtle;
}

bool AudioUnit::restoreStateFromTurtle(const std::string& turtle) {
  if (!instance_) return false;
  auto lock = world_->queryLock();
  return applyState(
      lilv_state_new_from_string(world_->world(), world_->mapFeature(), turtle.c_str()),
      "the session's state text");
}

bool AudioUnit::loadPreset(const std::string& presetUri) {
  auto lock = world_->queryLock();
  LilvNode* preset = lilv_new_uri(world_->world(), presetUri.c_str());
  lilv_world_load_resource(world_->world(), preset);
  LilvState* state = lilv_state_new_from_world(world_->world(), world_->mapFeature(), preset);
  lilv_node_free(preset);
  return applyState(state, presetUri);
}

bool AudioUnit::loadDefaultState() {
  for (const Port& p : ports_) {
    if (p.kind == Port::controlIn) controlTargets_[p.controlIndex]->store(p.defaultValue);
  }
  controlsChanged_.store(true, std::memory_order_release);
  auto lock = world_->queryLock();
  const LilvNode* plugin = lilv_plugin_get_uri(plugin_);
  if (!lilv_world_ask(world_->world(), plugin, world_->node(LV2_STATE__state), nullptr))
    return true;
  return applyState(lilv_state_new_from_world(world_->world(), world_->mapFeature(), plugin),
                    "its default state");
}

std::vector<AudioUnitPreset> AudioUnit::presets() const {
  std::vector<AudioUnitPreset> result;
  auto lock = world_->queryLock();
  LilvWorld* world = world_->world();
  LilvNodes* related = lilv_plugin_get_related(plugin_, world_->node(LV2_PRESETS__Preset));
  LILV_FOREACH(nodes, i, related) {
    const LilvNode* preset = lilv_nodes_get(related, i);
    lilv_world_load_resource(world, preset);
    LilvNode* label = lilv_world_get(
        world, preset, world_->node("http://www.w3.org/2000/01/rdf-schema#label"), nullptr);
    result.push_back(
        {lilv_node_as_uri(preset), label ? lilv_node_as_string(label) : lilv_node_as_uri(preset)});
    lilv_node_free(label);
  }
  lilv_nodes_free(related);
  std::sort(result.begin(), result.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  return result;
}

LilvState* AudioUnit::newLilvState(const std::string& saveFolder) {
  if (!instance_) {
    log("\"{}\" runs in a process of its own: its state cannot be taken as an LV2 state here",
        name_);
    return nullptr;
  }
  struct PortValues {
    AudioUnit* unit;
    float value;
  } values{this, 0.0f};
  const auto portValue = [](const char* symbol, void* user, uint32_t* size,
                            uint32_t* type) -> const void* {
    auto* values = static_cast<PortValues*>(user);
    values->value = values->unit->parameterValue(symbol);  // lilv copies it at once
    *size = sizeof(float);
    *type = values->unit->mapURI(LV2_ATOM__Float);
    return &values->value;
  };
  auto lock = world_->queryLock();
  const char* folder = saveFolder.c_str();
  return lilv_state_new_from_instance(
      plugin_, instance_, world_->mapFeature(), nullptr, folder, folder, folder, portValue, &values,
      LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, host_->featurePointers.data());
}

bool AudioUnit::restoreFullState(const PropertyDictionary& state) {
  if (const auto* ports =
          state.count("ports") ? state.at("ports").get<PropertyDictionary>() : nullptr) {
    for (const auto& [symbol, value] : *ports) {
      if (const auto* number = value.get<double>())
        setParameterValue(symbol, static_cast<float>(*number));
    }
  }
  const auto* properties =
      state.count("properties") ? state.at("properties").get<PropertyDictionary>() : nullptr;
  const auto* interface = stateInterface();
  if (!properties || !interface || !interface->restore) return true;
  StateSource source(*world_, *properties);
  if (!suspendRun()) return false;
  interface->restore(lilv_instance_get_handle(instance_), retrieveProperty, &source,
                     LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, host_->featurePointers.data());
  resumeRun();
  return true;
}

bool AudioUnit::setSampleRate(double sampleRate) {
  if (sampleRate == sampleRate_) return true;
  if (process_) {
    log("\"{}\" runs in a process of its own and cannot change its rate there; it stays at {} Hz",
        name_, sampleRate_);
    return false;
  }
  const PropertyDictionary state = fullState();
  endInstance();
  host_->sampleRate = static_cast<float>(sampleRate);
  auto lock = world_->queryLock();
  instance_ = lilv_plugin_instantiate(plugin_, sampleRate, host_->featurePointers.data());
  if (!instance_) {
    log("\"{}\" failed to instantiate at {} Hz; it stays at {} Hz", name_, sampleRate, sampleRate_);
    host_->sampleRate = static_cast<float>(sampleRate_);
    instance_ = lilv_plugin_instantiate(plugin_, sampleRate_, host_->featurePointers.data());
    if (!instance_) return false;
    startInstance();
    restoreFullState(state);
    return false;
  }
  sampleRate_ = sampleRate;
  // The new instance has heard no time yet.
  sentTempo_ = 0.0;
  sentPosition_ = {false, -1.0, 0.0};
  startInstance();
  restoreFullState(state);
  return true;
}

}  // namespace platform
