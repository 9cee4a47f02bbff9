// Creating an LV2 instrument instance: checking what it requires, instantiating and activating
// it, and the settings the main thread gives it.

#include "platform/audio/AudioUnit.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/midi/midi.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>
#include <lv2/time/time.h>
#include <lv2/worker/worker.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "platform/audio/Lv2Host.h"
#include "platform/audio/Lv2World.h"
#include "platform/audio/PluginProcess.h"
#include "platform/foundation/AudioThread.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/MainQueue.h"
#include "platform/foundation/NotificationCenter.h"

namespace platform {
namespace {

std::string nodeString(LilvNode* node) {
  std::string text = node ? lilv_node_as_string(node) : "";
  lilv_node_free(node);
  return text;
}

}  // namespace

// The features a plug-in may require of this host, besides the ones we pass.
static bool isSupportedFeature(const std::string& uri, const Lv2Host& host) {
  static const std::set<std::string> alsoSupported = {LV2_CORE__isLive, LV2_CORE__hardRTCapable,
                                                      LV2_CORE__inPlaceBroken};
  for (const auto& feature : host.features) {
    if (uri == feature.URI) return true;
  }
  return alsoSupported.count(uri) > 0;
}

std::shared_ptr<AudioUnit> AudioUnit::create(std::shared_ptr<Lv2World> world,
                                             const LilvPlugin* plugin, double sampleRate,
                                             std::uint32_t maxFrames, std::string* error,
                                             bool outOfProcess) {
  auto lock = world->queryLock();  // everything here asks lilv, instantiation too
  std::shared_ptr<AudioUnit> unit(new AudioUnit());
  unit->world_ = world;
  unit->plugin_ = plugin;
  unit->name_ = nodeString(lilv_plugin_get_name(plugin));
  unit->uri_ = lilv_node_as_uri(lilv_plugin_get_uri(plugin));
  unit->sampleRate_ = sampleRate;
  unit->maxFrames_ = maxFrames;
  unit->host_ = std::make_unique<Lv2Host>(*world, unit->name_, sampleRate, maxFrames);

  LilvNodes* required = lilv_plugin_get_required_features(plugin);
  std::string missing;
  LILV_FOREACH(nodes, i, required) {
    const std::string feature = lilv_node_as_uri(lilv_nodes_get(required, i));
    if (!isSupportedFeature(feature, *unit->host_)) missing = feature;
  }
  lilv_nodes_free(required);
  if (!missing.empty()) {
    if (error)
      *error =
          "\"" + unit->name_ + "\" needs the LV2 feature " + missing + ", which this host lacks";
    return nullptr;
  }

  if (const std::string port = unknownRequiredPort(*world, plugin); !port.empty()) {
    if (error)
      *error =
          "\"" + unit->name_ + "\" has the port \"" + port + "\" of a type this host does not know";
    return nullptr;
  }

  if (!outOfProcess) {
    unit->instance_ =
        lilv_plugin_instantiate(plugin, sampleRate, unit->host_->featurePointers.data());
    if (!unit->instance_) {
      if (error) *error = "\"" + unit->name_ + "\" failed to instantiate";
      return nullptr;
    }
  }
  lv2_atom_forge_init(&unit->forge_, world->mapFeature());
  unit->urids_ = {world->map(LV2_MIDI__MidiEvent),      world->map(LV2_TIME__Position),
                  world->map(LV2_TIME__beatsPerMinute), world->map(LV2_TIME__beatsPerBar),
                  world->map(LV2_TIME__beatUnit),       world->map(LV2_TIME__speed),
                  world->map(LV2_TIME__frame),          world->map(LV2_TIME__bar),
                  world->map(LV2_TIME__barBeat),        world->map(LV2_TIME__beat)};
  unit->chunkType_ = world->map(LV2_ATOM__Chunk);
  unit->responseBuffer_.resize(1 << 16);
  unit->findPorts();
  unit->layoutSharedBlock();
  unit->contextReader_ = unit->contextBlock_.makeReader();
  unit->controllerReader_ = unit->controllerTable_.makeReader();
  // Input events that could not be given to the plug-in in their block (see
  // exchangeWithPluginProcess and carryInputOverRestores), for the next one.
  unit->carriedInput_.assign(kAtomBufferSize, 0);
  auto* carried = reinterpret_cast<LV2_Atom_Sequence*>(unit->carriedInput_.data());
  carried->atom = {sizeof(LV2_Atom_Sequence_Body), world->map(LV2_ATOM__Sequence)};
  if (outOfProcess) {
    lock.unlock();  // the host may take long to make the plug-in; lilv stays free meanwhile
    std::weak_ptr<AudioUnit> weak = unit;
    unit->process_ = PluginProcess::start(
        world, unit->name_, unit->uri_, sampleRate, maxFrames, unit->sharedBlockSize_,
        [weak] {
          // The watcher thread: the notification goes out on the main queue, while the unit lives.
          dispatchAsyncMain([weak] {
            if (auto unit = weak.lock()) unit->postInvalidation();
          });
        },
        error);
    if (!unit->process_) return nullptr;
    // Joined before this unit ends (its destructor ends the process first).
    unit->process_->setPeriodicTask([raw = unit.get()] { raw->reportedProperties(); });
  }
  unit->startInstance();
  return unit;
}

bool AudioUnit::isValid() const noexcept {
  return !process_ || process_->valid();
}

int AudioUnit::pluginProcessId() const {
  return process_ ? process_->pid() : 0;
}

void AudioUnit::postInvalidation() {
  NotificationCenter::defaultCenter().post(
      {kAudioComponentInstanceInvalidationNotification,
       this,
       {{"audioUnit", static_cast<AudioComponentInstance>(this)}}});
}

AudioUnit::~AudioUnit() {
  // The periodic task reads process_, which reset() clears before the process object ends.
  if (process_) process_->stopWatching();
  process_.reset();
  endInstance();
}

// Out of process, the worker thread here only prints the audio thread's log lines.
void AudioUnit::startInstance() {
  if (instance_) {
    host_->worker = static_cast<const LV2_Worker_Interface*>(
        lilv_instance_get_extension_data(instance_, LV2_WORKER__interface));
    connectPorts();
    lilv_instance_activate(instance_);
  }
  workerRunning_ = true;
  workerThread_ = std::thread([this] { runWorkerThread(); });
}

void AudioUnit::endInstance() {
  workerRunning_ = false;
  if (host_) sem_post(&host_->wake);
  if (workerThread_.joinable()) workerThread_.join();
  if (instance_) {
    lilv_instance_deactivate(instance_);
    lilv_instance_free(instance_);
    instance_ = nullptr;
  }
}

std::uint32_t AudioUnit::nominalBlockLength() const {
  return static_cast<std::uint32_t>(host_->nominalBlock);
}

void AudioUnit::setNominalBlockLength(std::uint32_t frames) {
  frames = std::clamp<std::uint32_t>(frames, 1, maxFrames_);
  if (static_cast<std::uint32_t>(host_->nominalBlock) == frames) return;
  host_->nominalBlock = static_cast<int32_t>(frames);
  if (process_) {
    askPluginProcess(kNominalBlock,
                     std::string(reinterpret_cast<const char*>(&frames), sizeof frames));
    return;
  }
  if (!instance_) return;
  const auto* options = static_cast<const LV2_Options_Interface*>(
      lilv_instance_get_extension_data(instance_, LV2_OPTIONS__interface));
  if (!options || !options->set) return;
  const LV2_Options_Option changed[] = {
      {LV2_OPTIONS_INSTANCE, 0, world_->map(LV2_BUF_SIZE__nominalBlockLength), sizeof(int32_t),
       world_->map(LV2_ATOM__Int), &host_->nominalBlock},
      {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
  options->set(lilv_instance_get_handle(instance_), changed);
}

std::uint32_t AudioUnit::mapURI(const char* uri) const {
  return world_->map(uri);
}

void AudioUnit::discardQueuedMidi() noexcept {
  while (midiToAudio_.pop()) {
  }
  releaseAllNotes_.store(true, std::memory_order_release);
}

void AudioUnit::setMusicalContextBlock(MusicalContextBlock block) {
  contextBlock_.publish(std::make_unique<MusicalContextBlock>(std::move(block)));
}

bool AudioUnit::sendObjectMessage(const std::string& typeUri) {
  if (!midiInputBuffer_) return false;
  const LV2_Atom_Object object{{sizeof(LV2_Atom_Object_Body), world_->map(LV2_ATOM__Object)},
                               {0, world_->map(typeUri.c_str())}};
  return sendEditorEvent(object.atom);
}

}  // namespace platform
