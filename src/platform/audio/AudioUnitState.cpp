// An LV2 instrument's state: saved as a property dictionary (control inputs by symbol, the
// properties its state interface stores) or as lilv's Turtle, restored from either, and kept
// when the instance is made again at another sample rate. Main thread.
//
// For a plug-in in a process of its own the same functions are asked of the host process over
// its control socket (askPluginProcess here, answerRequest there), so both run the code below
// on an instance in their own process. Stored properties cross as records (key and type URIDs,
// which both processes number alike, flags, size, bytes).

#include <lv2/atom/atom.h>
#include <lv2/state/state.h>
#include <lv2/worker/worker.h>

#include <lv2/presets/presets.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <map>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2Host.h"
#include "platform/audio/Lv2World.h"
#include "platform/audio/PluginProcess.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

struct StateCollector {
  Lv2World* world;
  PropertyDictionary properties;
};

// A number of the value's type, wherever the value lies: a property read from the plug-in host's
// records need not be aligned.
template <typename T>
T numberAt(const void* value) {
  T number;
  std::memcpy(&number, value, sizeof number);
  return number;
}

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
    stored = std::int64_t{numberAt<int32_t>(value)};
  } else if (typeName == LV2_ATOM__Long && size == sizeof(int64_t)) {
    stored = numberAt<std::int64_t>(value);
  } else if (typeName == LV2_ATOM__Float && size == sizeof(float)) {
    stored = double{numberAt<float>(value)};
  } else if (typeName == LV2_ATOM__Double && size == sizeof(double)) {
    stored = numberAt<double>(value);
  } else if (typeName == LV2_ATOM__Bool && size == sizeof(int32_t)) {
    stored = numberAt<int32_t>(value) != 0;
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

  StateSource() = default;
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

// A stored property as it crosses between the processes; `size` bytes follow.
struct PropertyRecord {
  std::uint32_t key, type, flags, size;
};

LV2_State_Status appendRecord(LV2_State_Handle handle, uint32_t key, const void* value, size_t size,
                              uint32_t type, uint32_t flags) {
  auto* records = static_cast<std::string*>(handle);
  if (size > kMaxControlMessage - records->size() - sizeof(PropertyRecord))
    return LV2_STATE_ERR_NO_SPACE;
  const PropertyRecord record{key, type, flags, static_cast<std::uint32_t>(size)};
  records->append(reinterpret_cast<const char*>(&record), sizeof record);
  records->append(static_cast<const char*>(value), size);
  return LV2_STATE_SUCCESS;
}

// Calls `each` with every whole record of `records` (from the other process: a record that does
// not fit ends the reading).
template <typename Each>
void forEachRecord(const std::string& records, Each each) {
  for (std::size_t at = 0; records.size() - at >= sizeof(PropertyRecord);) {
    PropertyRecord record;
    std::memcpy(&record, records.data() + at, sizeof record);
    at += sizeof record;
    if (record.size > records.size() - at) return;
    each(record, records.data() + at);
    at += record.size;
  }
}

std::string recordsOf(const StateSource& source) {
  std::string records;
  for (const auto& [key, entry] : source.entries)
    appendRecord(&records, key, entry.bytes.data(), entry.bytes.size(), entry.type,
                 LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
  return records;
}

StateSource sourceOf(const std::string& records) {
  StateSource source;
  forEachRecord(records, [&](const PropertyRecord& record, const char* bytes) {
    source.entries[record.key] = {record.type,
                                  std::vector<std::uint8_t>(bytes, bytes + record.size)};
  });
  return source;
}

// The control inputs' values for lilv_state_new_from_instance, which copies each at once.
struct PortValueSource {
  AudioUnit* unit;
  float value = 0.0f;
};
const void* portValueForLilv(const char* symbol, void* user, uint32_t* size, uint32_t* type) {
  auto* source = static_cast<PortValueSource*>(user);
  source->value = source->unit->parameterValue(symbol);
  *size = sizeof(float);
  *type = source->unit->mapURI(LV2_ATOM__Float);
  return &source->value;
}

constexpr const char* kStateSubject = "urn:pelma:state";

bool changesControls(char request) {
  using R = AudioUnit::HostRequest;
  return request == R::kRestoreTurtle || request == R::kRestoreFile || request == R::kLoadPreset ||
         request == R::kLoadDefault;
}

template <typename T>
std::string bytesOf(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// lilv's port values, as control inputs.
void setPortValue(const char* symbol, void* user, const void* value, uint32_t size, uint32_t type) {
  auto* unit = static_cast<AudioUnit*>(user);
  if (type == unit->mapURI(LV2_ATOM__Float) && size == sizeof(float)) {
    unit->setParameterValue(symbol, numberAt<float>(value));
  } else if (type == unit->mapURI(LV2_ATOM__Double) && size == sizeof(double)) {
    unit->setParameterValue(symbol, static_cast<float>(numberAt<double>(value)));
  } else if (type == unit->mapURI(LV2_ATOM__Int) && size == sizeof(int32_t)) {
    unit->setParameterValue(symbol, static_cast<float>(numberAt<int32_t>(value)));
  }
}

}  // namespace

// The plug-in's state interface; none for a plug-in in a process of its own here.
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
  if (process_) {
    collector.properties = reportedProperties();
  } else {
    saveProperties(storeProperty, &collector);
  }
  return PropertyDictionary{{"uri", uri_},
                            {"name", name_},
                            {"ports", std::move(ports)},
                            {"properties", std::move(collector.properties)}};
}

PropertyDictionary AudioUnit::reportedProperties() {
  StateCollector collector{world_.get(), {}};
  std::string records;
  const bool answered = askPluginProcess(kSaveProperties, {}, &records);
  std::lock_guard lock(propertiesMutex_);
  if (!answered) return lastProperties_;
  forEachRecord(records, [&](const PropertyRecord& record, const char* bytes) {
    storeProperty(&collector, record.key, bytes, record.size, record.type, record.flags);
  });
  lastProperties_ = collector.properties;
  return lastProperties_;
}

bool AudioUnit::saveProperties(LV2_State_Store_Function store, LV2_State_Handle handle) {
  const auto* state = stateInterface();
  if (!state || !state->save) return false;
  state->save(lilv_instance_get_handle(instance_), store, handle,
              LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, host_->featurePointers.data());
  return true;
}

bool AudioUnit::restoreProperties(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle) {
  const auto* state = stateInterface();
  if (!state || !state->restore || !suspendRun()) return false;
  state->restore(lilv_instance_get_handle(instance_), retrieve, handle,
                 LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, host_->featurePointers.data());
  resumeRun();
  return true;
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
  if (process_) return askPluginProcess(kRestoreFile, path);
  auto lock = world_->queryLock();
  return applyState(
      lilv_state_new_from_file(world_->world(), world_->mapFeature(), nullptr, path.c_str()), path);
}

bool AudioUnit::loadPreset(const std::string& presetUri) {
  if (process_) return askPluginProcess(kLoadPreset, presetUri);
  auto lock = world_->queryLock();
  LilvNode* preset = lilv_new_uri(world_->world(), presetUri.c_str());
  lilv_world_load_resource(world_->world(), preset);
  LilvState* state = lilv_state_new_from_world(world_->world(), world_->mapFeature(), preset);
  lilv_node_free(preset);
  return applyState(state, presetUri);
}

bool AudioUnit::loadDefaultState() {
  if (process_) return askPluginProcess(kLoadDefault, {});
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
  if (!properties) return true;
  StateSource source(*world_, *properties);
  if (process_) {
    if (!askPluginProcess(kRestoreProperties, recordsOf(source))) return false;
    reportedProperties();
    return true;
  }
  return restoreProperties(retrieveProperty, &source) || !stateInterface();
}

std::string AudioUnit::stateAsTurtle() {
  if (process_) {
    std::string turtle;
    return askPluginProcess(kSaveTurtle, {}, &turtle) ? turtle : std::string();
  }
  if (!instance_) return {};
  auto lock = world_->queryLock();
  PortValueSource ports{this};
  LilvState* state = lilv_state_new_from_instance(plugin_, instance_, world_->mapFeature(), nullptr,
                                                  nullptr, nullptr, nullptr, portValueForLilv,
                                                  &ports, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE,
                                                  host_->featurePointers.data());
  char* text = state ? lilv_state_to_string(world_->world(), world_->mapFeature(),
                                            world_->unmapFeature(), state, kStateSubject, nullptr)
                     : nullptr;
  lilv_state_free(state);
  if (!text) {
    log("\"{}\": its state could not be written", name_);
    return {};
  }
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
  if (process_) return askPluginProcess(kRestoreTurtle, turtle);
  if (!instance_) return false;
  auto lock = world_->queryLock();
  return applyState(
      lilv_state_new_from_string(world_->world(), world_->mapFeature(), turtle.c_str()),
      "the state given");
}

// A request: its letter, the number of control values, the values, the argument. An answer: 'y'
// or 'n', the number of control values (none unless the request may change them), the values,
// the answer itself.
bool AudioUnit::askPluginProcess(HostRequest request, const std::string& argument,
                                 std::string* answer) {
  const std::uint32_t count = static_cast<std::uint32_t>(controlTargets_.size());
  std::string message(1, request);
  message += bytesOf(count);
  for (const auto& target : controlTargets_)
    message += bytesOf(target->load());
  message += argument;
  std::string reply;
  if (!process_->ask(message, &reply)) return false;
  std::uint32_t returned = 0;
  if (reply.size() < 1 + sizeof returned) return false;
  std::memcpy(&returned, reply.data() + 1, sizeof returned);
  const std::size_t valuesAt = 1 + sizeof returned;
  if (returned != 0 && returned != count) return false;
  if ((reply.size() - valuesAt) / sizeof(float) < returned) return false;
  for (std::uint32_t i = 0; i < returned; ++i) {
    float value;
    std::memcpy(&value, reply.data() + valuesAt + i * sizeof value, sizeof value);
    if (std::isfinite(value)) controlTargets_[i]->store(value);
  }
  if (returned) controlsChanged_.store(true, std::memory_order_release);
  if (answer) *answer = reply.substr(valuesAt + returned * sizeof(float));
  if (reply[0] != 'y') return false;
  // The properties a restore leaves are known at once, for a remake after a crash.
  if (changesControls(request)) reportedProperties();
  return true;
}

std::string AudioUnit::answerRequest(const std::string& request) {
  std::uint32_t count = 0;
  if (request.size() < 1 + sizeof count) return "n";
  std::memcpy(&count, request.data() + 1, sizeof count);
  const std::size_t argumentAt = 1 + sizeof count + std::size_t{count} * sizeof(float);
  if (count != controlTargets_.size() || request.size() < argumentAt) return "n";
  for (std::uint32_t i = 0; i < count; ++i) {
    float value;
    std::memcpy(&value, request.data() + 1 + sizeof count + i * sizeof value, sizeof value);
    controlTargets_[i]->store(value);
  }
  const std::string argument = request.substr(argumentAt);
  std::string answer;
  bool done = false;
  switch (request[0]) {
    case kSaveProperties:
      done = true;
      saveProperties(appendRecord, &answer);
      break;
    case kRestoreProperties: {
      StateSource source = sourceOf(argument);
      done = restoreProperties(retrieveProperty, &source) || !stateInterface();
      break;
    }
    case kSaveTurtle:
      answer = stateAsTurtle();
      done = !answer.empty();
      break;
    case kRestoreTurtle:
      done = restoreStateFromTurtle(argument);
      break;
    case kRestoreFile:
      done = restoreStateFromFile(argument);
      break;
    case kLoadPreset:
      done = loadPreset(argument);
      break;
    case kLoadDefault:
      done = loadDefaultState();
      break;
    case kSampleRate: {
      double rate = 0.0;
      if (argument.size() != sizeof rate) break;
      std::memcpy(&rate, argument.data(), sizeof rate);
      // Blocks wait meanwhile: the instance is not there while it is made again.
      if (!std::isfinite(rate) || rate < 1000.0 || rate > 1536000.0 || !suspendRun()) break;
      done = setSampleRate(rate);
      resumeRun();
      break;
    }
    case kNominalBlock: {
      std::uint32_t frames = 0;
      if (argument.size() != sizeof frames) break;
      std::memcpy(&frames, argument.data(), sizeof frames);
      setNominalBlockLength(frames);
      done = true;
      break;
    }
    default:
      break;
  }
  std::string reply(1, done ? 'y' : 'n');
  const std::uint32_t returned = changesControls(request[0]) ? count : 0;
  reply += bytesOf(returned);
  for (std::uint32_t i = 0; i < returned; ++i)
    reply += bytesOf(controlTargets_[i]->load());
  return reply + answer;
}

bool AudioUnit::setSampleRate(double sampleRate) {
  if (sampleRate == sampleRate_) return true;
  if (process_) {
    if (!askPluginProcess(kSampleRate, bytesOf(sampleRate))) {
      log("\"{}\" failed to run at {} Hz in its own process; it stays at {} Hz", name_, sampleRate,
          sampleRate_);
      return false;
    }
    sampleRate_ = sampleRate;
    host_->sampleRate = static_cast<float>(sampleRate);
    sentTempo_ = 0.0;
    sentPosition_ = {false, -1.0, 0.0};
    return true;
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
