#include "platform/audio/AudioComponent.h"

#include <lv2/core/lv2.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/audio/AudioUnit.h"
#include "platform/audio/Lv2World.h"
#include "platform/audio/PluginProcess.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"

namespace platform {
namespace {

// FNV-1a: a stable 32-bit code for a text; never 0, which means "any" in a query.
std::uint32_t code(const std::string& text) {
  std::uint32_t hash = 2166136261u;
  for (unsigned char c : text)
    hash = (hash ^ c) * 16777619u;
  return hash ? hash : 1;
}

std::string takeString(LilvNode* node) {
  std::string text = node ? lilv_node_as_string(node) : "";
  lilv_node_free(node);
  return text;
}

std::string hostOf(const std::string& uri) {
  const auto start = uri.find("://");
  if (start == std::string::npos) return uri;
  const auto end = uri.find('/', start + 3);
  return uri.substr(start + 3, end == std::string::npos ? std::string::npos : end - start - 3);
}

bool fieldMatches(std::uint32_t value, std::uint32_t query) {
  return query == 0 || value == query;
}

struct Installed {
  AudioUnitComponent component;
  const LilvPlugin* plugin;
};

std::vector<Installed> installedInstruments(Lv2World& world) {
  std::vector<Installed> result;
  auto lock = world.queryLock();
  const LilvNode* instrument = world.node(LV2_CORE__InstrumentPlugin);
  const LilvPlugins* plugins = lilv_world_get_all_plugins(world.world());
  LILV_FOREACH(plugins, i, plugins) {
    const LilvPlugin* plugin = lilv_plugins_get(plugins, i);
    if (!lilv_node_equals(lilv_plugin_class_get_uri(lilv_plugin_get_class(plugin)), instrument)) {
      continue;
    }
    AudioUnitComponent component;
    component.uri = lilv_node_as_uri(lilv_plugin_get_uri(plugin));
    component.name = takeString(lilv_plugin_get_name(plugin));
    component.manufacturerName = takeString(lilv_plugin_get_author_name(plugin));
    const std::string maker =
        component.manufacturerName.empty() ? hostOf(component.uri) : component.manufacturerName;
    component.audioComponentDescription = {kAudioUnitTypeMusicDevice, code(component.uri),
                                           code(maker), 0, 0};
    result.push_back({std::move(component), plugin});
  }
  std::sort(result.begin(), result.end(), [](const Installed& a, const Installed& b) {
    return a.component.name < b.component.name;
  });
  return result;
}

}  // namespace

bool AudioComponentDescription::matches(const AudioComponentDescription& query) const {
  return fieldMatches(componentType, query.componentType) &&
         fieldMatches(componentSubType, query.componentSubType) &&
         fieldMatches(componentManufacturer, query.componentManufacturer);
}

AudioUnitComponentManager& AudioUnitComponentManager::shared() {
  static AudioUnitComponentManager manager;
  return manager;
}

std::vector<AudioUnitComponent> AudioUnitComponentManager::componentsMatchingDescription(
    const AudioComponentDescription& query) {
  std::vector<AudioUnitComponent> result;
  for (auto& installed : installedInstruments(*Lv2World::shared())) {
    if (installed.component.audioComponentDescription.matches(query)) {
      result.push_back(std::move(installed.component));
    }
  }
  return result;
}

std::shared_ptr<AudioUnit> AudioUnitComponentManager::instantiateNow(
    const AudioComponentDescription& description, double sampleRate, std::uint32_t maxFrames,
    std::string* error, std::uint32_t options) {
  auto world = Lv2World::shared();
  for (const auto& installed : installedInstruments(*world)) {
    if (installed.component.audioComponentDescription.matches(description) &&
        description.componentSubType != 0) {
      return AudioUnit::create(
          world, installed.plugin, sampleRate, maxFrames, error,
          outOfProcessEnabled_ && (options & kAudioComponentInstantiationLoadOutOfProcess) != 0);
    }
  }
  if (error) *error = "no installed instrument matches the component description";
  return nullptr;
}

void AudioUnitComponentManager::instantiate(const AudioComponentDescription& description,
                                            double sampleRate, std::uint32_t maxFrames,
                                            std::uint32_t options, Completion completion) {
  auto done = std::make_shared<std::atomic<bool>>(false);
  std::thread thread([this, description, sampleRate, maxFrames, options, done,
                      completion = std::move(completion)] {
    std::string error;
    auto unit = instantiateNow(description, sampleRate, maxFrames, &error, options);
    dispatchAsyncMain([unit, error, completion] { completion(unit, error); });
    done->store(true);
  });
  instantiations_.push_back({std::move(thread), std::move(done)});
}

void AudioUnitComponentManager::finishInstantiations() {
  PluginProcess::abandonStarting();  // a plug-in host still making its plug-in is not waited for
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  for (Instantiation& instantiation : instantiations_) {
    while (!instantiation.done->load() && std::chrono::steady_clock::now() < giveUp)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (instantiation.done->load()) {
      instantiation.thread.join();
    } else {
      log("Not waiting for an instrument still being made in this process");
      instantiation.thread.detach();
      leftBehind_ = true;
    }
  }
  instantiations_.clear();
}

}  // namespace platform
