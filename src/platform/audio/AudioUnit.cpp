// Creating an LV2 instrument instance, its host features, worker thread and state.

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
#include "platform/foundation/AudioThread.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

constexpr std::uint32_t kAtomBufferSize = 32768;

std::string nodeString(LilvNode* node) {
  std::string text = node ? lilv_node_as_string(node) : "";
  lilv_node_free(node);
  return text;
}

int logPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...);

int logVprintf(LV2_Log_Handle handle, LV2_URID, const char* format, va_list args) {
  auto* host = static_cast<Lv2Host*>(handle);
  char line[512];
  const int length = std::vsnprintf(line, sizeof line, format, args);
  std::size_t size = std::strlen(line);
  while (size > 0 && line[size - 1] == '\n')
    line[--size] = '\0';
  if (onAudioThread()) {
    // Printed by the worker thread.
    if (host->logRing.write(line, static_cast<std::uint32_t>(size))) sem_post(&host->wake);
  } else {
    log("{}: {}", host->pluginName, line);
  }
  return length;
}

int logPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = logVprintf(handle, type, format, args);
  va_end(args);
  return result;
}

LV2_Worker_Status scheduleWork(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data) {
  auto* host = static_cast<Lv2Host*>(handle);
  ByteRing& ring = onAudioThread() ? host->requests : host->mainRequests;
  if (!ring.write(data, size)) return LV2_WORKER_ERR_NO_SPACE;
  sem_post(&host->wake);
  return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status respond(LV2_Worker_Respond_Handle handle, uint32_t size, const void* data) {
  auto* host = static_cast<Lv2Host*>(handle);
  return host->responses.write(data, size) ? LV2_WORKER_SUCCESS : LV2_WORKER_ERR_NO_SPACE;
}

char* makePath(LV2_State_Make_Path_Handle handle, const char* path) {
  auto* host = static_cast<Lv2Host*>(handle);
  std::filesystem::path full = host->stateFolder / path;
  std::error_code ignored;
  std::filesystem::create_directories(full.parent_path(), ignored);
  return strdup(full.c_str());
}

char* abstractPath(LV2_State_Map_Path_Handle handle, const char* absolute) {
  auto* host = static_cast<Lv2Host*>(handle);
  std::filesystem::path path(absolute);
  auto relative = path.lexically_relative(host->stateFolder);
  if (!relative.empty() && *relative.begin() != "..") return strdup(relative.c_str());
  return strdup(absolute);
}

char* absolutePath(LV2_State_Map_Path_Handle handle, const char* abstract) {
  auto* host = static_cast<Lv2Host*>(handle);
  std::filesystem::path path(abstract);
  return strdup(path.is_absolute() ? abstract : (host->stateFolder / path).c_str());
}

void freePath(LV2_State_Free_Path_Handle, char* path) {
  std::free(path);
}

}  // namespace

Lv2Host::Lv2Host(Lv2World& world, const std::string& name, double rate, std::uint32_t maxFrames)
    : pluginName(name),
      sampleRate(static_cast<float>(rate)),
      minBlock(1),
      maxBlock(static_cast<int32_t>(maxFrames)),
      nominalBlock(static_cast<int32_t>(maxFrames)),
      sequenceSize(static_cast<int32_t>(kAtomBufferSize)),
      requests(1 << 16),
      mainRequests(1 << 16),
      responses(1 << 16),
      logRing(1 << 14),
      stateFolder(bankFolder().parent_path() / "state") {
  sem_init(&wake, 0, 0);
  const LV2_URID atomFloat = world.map(LV2_ATOM__Float);
  const LV2_URID atomInt = world.map(LV2_ATOM__Int);
  options = {
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_PARAMETERS__sampleRate), sizeof(float), atomFloat,
       &sampleRate},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__minBlockLength), sizeof(int32_t), atomInt,
       &minBlock},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t), atomInt,
       &maxBlock},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__nominalBlockLength), sizeof(int32_t),
       atomInt, &nominalBlock},
      {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__sequenceSize), sizeof(int32_t), atomInt,
       &sequenceSize},
      {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr},
  };
  logFeature = {this, logPrintf, logVprintf};
  schedule = {this, scheduleWork};
  makePathFeature = {this, makePath};
  mapPathFeature = {this, abstractPath, absolutePath};
  freePathFeature = {this, freePath};
  features = {
      {LV2_URID__map, world.mapFeature()},     {LV2_URID__unmap, world.unmapFeature()},
      {LV2_OPTIONS__options, options.data()},  {LV2_BUF_SIZE__boundedBlockLength, nullptr},
      {LV2_WORKER__schedule, &schedule},       {LV2_LOG__log, &logFeature},
      {LV2_STATE__makePath, &makePathFeature}, {LV2_STATE__mapPath, &mapPathFeature},
      {LV2_STATE__freePath, &freePathFeature},
  };
  for (auto& feature : features)
    featurePointers.push_back(&feature);
  featurePointers.push_back(nullptr);
}

Lv2Host::~Lv2Host() {
  sem_destroy(&wake);
}

// The features a plug-in may require of this host, besides the ones we pass.
static bool isSupportedFeature(const std::string& uri, const Lv2Host& host) {
  static const std::set<std::string> alsoSupported = {LV2_CORE__isLive, LV2_CORE__hardRTCapable,
                                                      LV2_CORE__inPlaceBroken};
  for (const auto& feature : host.features) {
    if (uri == feature.URI) return true;
  }
  return alsoSupported.count(uri) > 0;
}

// The symbol of the first port that the plug-in needs connected but whose type this host does
// not know (it would be left unconnected and the plug-in would write through a null pointer), or
// nothing.
static std::string unknownRequiredPort(Lv2World& world, const LilvPlugin* plugin) {
  const LilvNode* known[] = {world.node(LV2_CORE__AudioPort), world.node(LV2_CORE__ControlPort),
                             world.node(LV2_CORE__CVPort), world.node(LV2_ATOM__AtomPort)};
  const LilvNode* optional = world.node(LV2_CORE__connectionOptional);
  for (std::uint32_t index = 0; index < lilv_plugin_get_num_ports(plugin); ++index) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin, index);
    const bool isKnown = std::any_of(std::begin(known), std::end(known), [&](const LilvNode* type) {
      return lilv_port_is_a(plugin, port, type);
    });
    if (!isKnown && !lilv_port_has_property(plugin, port, optional))
      return lilv_node_as_string(lilv_port_get_symbol(plugin, port));
  }
  return {};
}

std::shared_ptr<AudioUnit> AudioUnit::create(std::shared_ptr<Lv2World> world,
                                             const LilvPlugin* plugin, double sampleRate,
                                             std::uint32_t maxFrames, std::string* error) {
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

  unit->instance_ =
      lilv_plugin_instantiate(plugin, sampleRate, unit->host_->featurePointers.data());
  if (!unit->instance_) {
    if (error) *error = "\"" + unit->name_ + "\" failed to instantiate";
    return nullptr;
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
  unit->contextReader_ = unit->contextBlock_.makeReader();
  unit->startInstance();
  return unit;
}

AudioUnit::~AudioUnit() {
  endInstance();
}

void AudioUnit::startInstance() {
  host_->worker = static_cast<const LV2_Worker_Interface*>(
      lilv_instance_get_extension_data(instance_, LV2_WORKER__interface));
  connectPorts();
  lilv_instance_activate(instance_);
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

void AudioUnit::findPorts() {
  Lv2World& world = *world_;
  const LilvNode* audio = world.node(LV2_CORE__AudioPort);
  const LilvNode* control = world.node(LV2_CORE__ControlPort);
  const LilvNode* cv = world.node(LV2_CORE__CVPort);
  const LilvNode* atom = world.node(LV2_ATOM__AtomPort);
  const LilvNode* input = world.node(LV2_CORE__InputPort);
  const LilvNode* midiEvent = world.node(LV2_MIDI__MidiEvent);
  const LilvNode* position = world.node(LV2_TIME__Position);

  const std::uint32_t count = lilv_plugin_get_num_ports(plugin_);
  std::vector<float> minimum(count), maximum(count), defaults(count);
  lilv_plugin_get_port_ranges_float(plugin_, minimum.data(), maximum.data(), defaults.data());
  ports_.resize(count);
  silence_.assign(maxFrames_, 0.0f);
  int audioOutputs = 0;
  for (std::uint32_t index = 0; index < count; ++index) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin_, index);
    Port& p = ports_[index];
    p.symbol = lilv_node_as_string(lilv_port_get_symbol(plugin_, port));
    const bool isInput = lilv_port_is_a(plugin_, port, input);
    if (lilv_port_is_a(plugin_, port, audio)) {
      p.kind = isInput ? Port::audioIn : Port::audioOut;
      if (!isInput) {
        p.bufferIndex = static_cast<int>(audioBuffers_.size());
        audioBuffers_.emplace_back(maxFrames_, 0.0f);
        if (audioOutputs < 2) outputPorts_[audioOutputs++] = p.bufferIndex;
      }
    } else if (lilv_port_is_a(plugin_, port, cv)) {
      p.kind = Port::cv;
      p.bufferIndex = static_cast<int>(audioBuffers_.size());
      audioBuffers_.emplace_back(maxFrames_, 0.0f);
    } else if (lilv_port_is_a(plugin_, port, control)) {
      p.kind = isInput ? Port::controlIn : Port::controlOut;
      // A missing (NaN) default means the minimum, or 0 without one.
      float value = defaults[index];
      if (std::isnan(value)) value = std::isnan(minimum[index]) ? 0.0f : minimum[index];
      p.value = value;
      p.defaultValue = value;
      if (isInput) {
        p.controlIndex = static_cast<int>(controlTargets_.size());
        controlTargets_.push_back(std::make_unique<std::atomic<float>>(value));
      }
    } else if (lilv_port_is_a(plugin_, port, atom)) {
      p.kind = isInput ? Port::atomIn : Port::atomOut;
      p.bufferIndex = static_cast<int>(atomBuffers_.size());
      atomBuffers_.emplace_back(kAtomBufferSize, 0);
      if (isInput && midiInputPort_ < 0 && lilv_port_supports_event(plugin_, port, midiEvent)) {
        midiInputPort_ = static_cast<int>(index);
        acceptsTimePosition_ = lilv_port_supports_event(plugin_, port, position);
      }
    }
  }
  if (outputPorts_[1] < 0) outputPorts_[1] = outputPorts_[0];
}

void AudioUnit::connectPorts() {
  for (std::uint32_t index = 0; index < ports_.size(); ++index) {
    Port& p = ports_[index];
    void* location = nullptr;
    switch (p.kind) {
      case Port::audioIn:
        location = silence_.data();
        break;
      case Port::audioOut:
      case Port::cv:
        location = audioBuffers_[p.bufferIndex].data();
        break;
      case Port::controlIn:
      case Port::controlOut:
        location = &p.value;
        break;
      case Port::atomIn:
      case Port::atomOut:
        location = atomBuffers_[p.bufferIndex].data();
        break;
      case Port::other:
        break;
    }
    lilv_instance_connect_port(instance_, index, location);
  }
  // Empty sequences in every atom input until the first block.
  for (auto& p : ports_) {
    if (p.kind == Port::atomIn) {
      auto* sequence = reinterpret_cast<LV2_Atom_Sequence*>(atomBuffers_[p.bufferIndex].data());
      sequence->atom = {sizeof(LV2_Atom_Sequence_Body), world_->map(LV2_ATOM__Sequence)};
      sequence->body = {0, 0};
    }
  }
}

void AudioUnit::runWorkerThread() {
  std::vector<std::uint8_t> message(1 << 16);
  const auto capacity = static_cast<std::uint32_t>(message.size());
  char line[512];
  auto work = [&](std::uint32_t size) {
    if (host_->worker && host_->worker->work) {
      host_->worker->work(lilv_instance_get_handle(instance_), respond, host_.get(), size,
                          message.data());
    }
  };
  // Woken for every request and log line, and once more to stop.
  while (sem_wait(&host_->wake) == 0 || errno == EINTR) {
    if (!workerRunning_) break;
    while (auto size = host_->requests.read(message.data(), capacity))
      work(*size);
    while (auto size = host_->mainRequests.read(message.data(), capacity))
      work(*size);
    while (auto size = host_->logRing.read(line, sizeof line - 1)) {
      line[*size] = '\0';
      log("{}: {}", name_, line);
    }
  }
}

std::uint32_t AudioUnit::nominalBlockLength() const {
  return static_cast<std::uint32_t>(host_->nominalBlock);
}

void AudioUnit::setNominalBlockLength(std::uint32_t frames) {
  frames = std::clamp<std::uint32_t>(frames, 1, maxFrames_);
  if (static_cast<std::uint32_t>(host_->nominalBlock) == frames) return;
  host_->nominalBlock = static_cast<int32_t>(frames);
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
  while (incoming_.pop()) {
  }
  releaseAllNotes_.store(true, std::memory_order_release);
}

void AudioUnit::setMusicalContextBlock(MusicalContextBlock block) {
  contextBlock_.publish(std::make_unique<MusicalContextBlock>(std::move(block)));
}

bool AudioUnit::sendObjectMessage(const std::string& typeUri) {
  if (midiInputPort_ < 0) return false;
  const LV2_Atom_Object object{{sizeof(LV2_Atom_Object_Body), world_->map(LV2_ATOM__Object)},
                               {0, world_->map(typeUri.c_str())}};
  return sendEditorEvent(object.atom);
}

std::vector<std::string> AudioUnit::parameterSymbols() const {
  std::vector<std::string> symbols;
  for (const Port& p : ports_) {
    if (p.kind == Port::controlIn) symbols.push_back(p.symbol);
  }
  return symbols;
}

float AudioUnit::parameterValue(const std::string& symbol) const {
  for (const Port& p : ports_) {
    if (p.kind == Port::controlIn && p.symbol == symbol)
      return controlTargets_[p.controlIndex]->load();
  }
  return 0.0f;
}

void AudioUnit::setParameterValue(const std::string& symbol, float value) {
  for (const Port& p : ports_) {
    if (p.kind == Port::controlIn && p.symbol == symbol)
      controlTargets_[p.controlIndex]->store(value);
  }
}

}  // namespace platform
