#include "Lv2Instrument.h"

#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/log/log.h>
#include <lv2/midi/midi.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace {

// One URID map for the process, so saved states read back the same in every instance.
class UridMap {
 public:
  LV2_URID map(const char* uri) {
    std::lock_guard lock(mutex_);
    auto [it, added] = ids_.try_emplace(uri, static_cast<LV2_URID>(uris_.size() + 1));
    if (added) uris_.push_back(it->first);
    return it->second;
  }
  const char* unmap(LV2_URID id) {
    std::lock_guard lock(mutex_);
    return id >= 1 && id <= uris_.size() ? uris_[id - 1].c_str() : nullptr;
  }

  LV2_URID_Map mapFeature{this, [](LV2_URID_Map_Handle h, const char* uri) {
                            return static_cast<UridMap*>(h)->map(uri);
                          }};
  LV2_URID_Unmap unmapFeature{this, [](LV2_URID_Unmap_Handle h, LV2_URID id) {
                                return static_cast<UridMap*>(h)->unmap(id);
                              }};

 private:
  std::mutex mutex_;
  std::map<std::string, LV2_URID> ids_;
  std::vector<std::string> uris_;
};

UridMap& uridMap() {
  static UridMap* map = new UridMap();
  return *map;
}

LilvWorld* world() {
  static LilvWorld* world = [] {
    LilvWorld* w = lilv_world_new();
    lilv_world_load_all(w);
    return w;
  }();
  return world;
}

int logPrintf(LV2_Log_Handle, LV2_URID, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = std::vfprintf(stderr, format, args);
  va_end(args);
  return n;
}
int logVprintf(LV2_Log_Handle, LV2_URID, const char* format, va_list args) {
  return std::vfprintf(stderr, format, args);
}

constexpr std::uint32_t kAtomBufferSize = 32768;

}  // namespace

struct Lv2Instrument::Impl {
  enum class Kind { AudioIn, AudioOut, ControlIn, ControlOut, AtomIn, AtomOut, Other };
  struct Port {
    Kind kind = Kind::Other;
    std::string symbol;
    float value = 0;
    std::vector<float> audio;
    std::vector<std::uint64_t> atom;  // 8-byte aligned
  };

  const LilvPlugin* plugin = nullptr;
  LilvInstance* instance = nullptr;
  const LV2_Worker_Interface* worker = nullptr;
  std::vector<Port> ports;
  int leftPort = -1, rightPort = -1, eventPort = -1;
  std::uint32_t maxBlock;

  // Messages for the next block: MIDI bytes, an empty object of a type, or a whole atom.
  struct Pending {
    enum { Midi, Object, Atom } kind;
    std::vector<std::uint8_t> bytes;
    LV2_URID type = 0;
  };
  std::vector<Pending> pending;
  std::vector<std::vector<std::uint8_t>> outputEvents;
  std::vector<std::vector<std::uint8_t>> workRequests, workResponses;

  float sampleRateOption;
  std::int32_t minBlock = 1, maxBlockOption, nominalBlock = 256, sequenceSize = kAtomBufferSize;
  std::vector<LV2_Options_Option> options;
  LV2_Worker_Schedule schedule{this,
                               [](LV2_Worker_Schedule_Handle h, uint32_t size, const void* data) {
                                 auto* self = static_cast<Impl*>(h);
                                 auto* bytes = static_cast<const std::uint8_t*>(data);
                                 self->workRequests.emplace_back(bytes, bytes + size);
                                 return LV2_WORKER_SUCCESS;
                               }};
  LV2_Log_Log log{this, logPrintf, logVprintf};
  LV2_Feature mapFeature{LV2_URID__map, &uridMap().mapFeature};
  LV2_Feature unmapFeature{LV2_URID__unmap, &uridMap().unmapFeature};
  LV2_Feature scheduleFeature{LV2_WORKER__schedule, &schedule};
  LV2_Feature logFeature{LV2_LOG__log, &log};
  LV2_Feature optionsFeature{LV2_OPTIONS__options, nullptr};
  LV2_Feature boundedFeature{LV2_BUF_SIZE__boundedBlockLength, nullptr};
  std::vector<const LV2_Feature*> features;

  LV2_URID urid(const char* uri) { return uridMap().map(uri); }

  void runWorker() {
    if (!worker) return;
    while (!workRequests.empty()) {
      auto requests = std::move(workRequests);
      workRequests.clear();
      for (auto& request : requests) {
        worker->work(
            lilv_instance_get_handle(instance),
            [](LV2_Worker_Respond_Handle h, uint32_t size, const void* data) {
              auto* self = static_cast<Impl*>(h);
              auto* bytes = static_cast<const std::uint8_t*>(data);
              self->workResponses.emplace_back(bytes, bytes + size);
              return LV2_WORKER_SUCCESS;
            },
            this, static_cast<uint32_t>(request.size()), request.data());
      }
      for (auto& response : workResponses) {
        worker->work_response(lilv_instance_get_handle(instance),
                              static_cast<uint32_t>(response.size()), response.data());
      }
      workResponses.clear();
      if (worker->end_run) worker->end_run(lilv_instance_get_handle(instance));
    }
  }

  void writeEvents() {
    if (eventPort < 0) return;
    auto& buffer = ports[static_cast<std::size_t>(eventPort)].atom;
    LV2_Atom_Forge forge;
    lv2_atom_forge_init(&forge, &uridMap().mapFeature);
    lv2_atom_forge_set_buffer(&forge, reinterpret_cast<std::uint8_t*>(buffer.data()),
                              buffer.size() * sizeof(std::uint64_t));
    LV2_Atom_Forge_Frame sequence;
    lv2_atom_forge_sequence_head(&forge, &sequence, 0);
    for (const Pending& p : pending) {
      lv2_atom_forge_frame_time(&forge, 0);
      if (p.kind == Pending::Midi) {
        lv2_atom_forge_atom(&forge, static_cast<uint32_t>(p.bytes.size()),
                            urid(LV2_MIDI__MidiEvent));
        lv2_atom_forge_write(&forge, p.bytes.data(), static_cast<uint32_t>(p.bytes.size()));
      } else if (p.kind == Pending::Atom) {
        lv2_atom_forge_write(&forge, p.bytes.data(), static_cast<uint32_t>(p.bytes.size()));
      } else {
        LV2_Atom_Forge_Frame object;
        lv2_atom_forge_object(&forge, &object, 0, p.type);
        lv2_atom_forge_pop(&forge, &object);
      }
    }
    lv2_atom_forge_pop(&forge, &sequence);
    pending.clear();
  }

  void resetAtomOutputs() {
    for (Port& port : ports) {
      if (port.kind != Kind::AtomOut) continue;
      auto* atom = reinterpret_cast<LV2_Atom*>(port.atom.data());
      atom->size =
          static_cast<uint32_t>(port.atom.size() * sizeof(std::uint64_t) - sizeof(LV2_Atom));
      atom->type = urid(LV2_ATOM__Chunk);
    }
  }

  void collectOutputEvents() {
    for (Port& port : ports) {
      if (port.kind != Kind::AtomOut) continue;
      auto* sequence = reinterpret_cast<const LV2_Atom_Sequence*>(port.atom.data());
      if (sequence->atom.type != urid(LV2_ATOM__Sequence)) continue;
      LV2_ATOM_SEQUENCE_FOREACH(sequence, event) {
        auto* bytes = reinterpret_cast<const std::uint8_t*>(&event->body);
        outputEvents.emplace_back(bytes, bytes + sizeof(LV2_Atom) + event->body.size);
      }
    }
  }

  Port* find(const std::string& symbol) {
    for (Port& port : ports) {
      if (port.symbol == symbol) return &port;
    }
    return nullptr;
  }
};

Lv2Instrument::Lv2Instrument(const std::string& uri, double sampleRate, std::uint32_t maxBlock)
    : impl_(std::make_unique<Impl>()), sampleRate_(sampleRate) {
  Impl& m = *impl_;
  m.maxBlock = maxBlock;
  LilvNode* uriNode = lilv_new_uri(world(), uri.c_str());
  m.plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world()), uriNode);
  lilv_node_free(uriNode);
  if (!m.plugin) throw std::runtime_error("LV2 plug-in not installed: " + uri);

  m.sampleRateOption = static_cast<float>(sampleRate);
  m.maxBlockOption = static_cast<std::int32_t>(maxBlock);
  auto option = [&](const char* key, const char* type, const void* value, uint32_t size) {
    m.options.push_back({LV2_OPTIONS_INSTANCE, 0, m.urid(key), size, m.urid(type), value});
  };
  option(LV2_PARAMETERS__sampleRate, LV2_ATOM__Float, &m.sampleRateOption, sizeof(float));
  option(LV2_BUF_SIZE__minBlockLength, LV2_ATOM__Int, &m.minBlock, sizeof(std::int32_t));
  option(LV2_BUF_SIZE__maxBlockLength, LV2_ATOM__Int, &m.maxBlockOption, sizeof(std::int32_t));
  option(LV2_BUF_SIZE__nominalBlockLength, LV2_ATOM__Int, &m.nominalBlock, sizeof(std::int32_t));
  option(LV2_BUF_SIZE__sequenceSize, LV2_ATOM__Int, &m.sequenceSize, sizeof(std::int32_t));
  m.options.push_back({LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr});
  m.optionsFeature.data = m.options.data();
  m.features = {&m.mapFeature, &m.unmapFeature,   &m.scheduleFeature,
                &m.logFeature, &m.optionsFeature, &m.boundedFeature,
                nullptr};

  m.instance = lilv_plugin_instantiate(m.plugin, sampleRate, m.features.data());
  if (!m.instance) throw std::runtime_error("LV2 plug-in did not instantiate: " + uri);
  m.worker = static_cast<const LV2_Worker_Interface*>(
      lilv_instance_get_extension_data(m.instance, LV2_WORKER__interface));

  LilvNode* audio = lilv_new_uri(world(), LILV_URI_AUDIO_PORT);
  LilvNode* control = lilv_new_uri(world(), LILV_URI_CONTROL_PORT);
  LilvNode* atom = lilv_new_uri(world(), LV2_ATOM__AtomPort);
  LilvNode* cv = lilv_new_uri(world(), LILV_URI_CV_PORT);
  LilvNode* input = lilv_new_uri(world(), LILV_URI_INPUT_PORT);
  std::uint32_t count = lilv_plugin_get_num_ports(m.plugin);
  std::vector<float> defaults(count), minimums(count);
  lilv_plugin_get_port_ranges_float(m.plugin, minimums.data(), nullptr, defaults.data());
  m.ports.resize(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const LilvPort* port = lilv_plugin_get_port_by_index(m.plugin, i);
    Impl::Port& p = m.ports[i];
    p.symbol = lilv_node_as_string(lilv_port_get_symbol(m.plugin, port));
    bool isInput = lilv_port_is_a(m.plugin, port, input);
    void* location = nullptr;
    if (lilv_port_is_a(m.plugin, port, control)) {
      p.kind = isInput ? Impl::Kind::ControlIn : Impl::Kind::ControlOut;
      p.value =
          !std::isnan(defaults[i]) ? defaults[i] : (!std::isnan(minimums[i]) ? minimums[i] : 0);
      location = &p.value;
    } else if (lilv_port_is_a(m.plugin, port, audio) || lilv_port_is_a(m.plugin, port, cv)) {
      p.kind = isInput ? Impl::Kind::AudioIn : Impl::Kind::AudioOut;
      p.audio.assign(maxBlock, 0.0f);
      location = p.audio.data();
      if (!isInput && lilv_port_is_a(m.plugin, port, audio)) {
        if (m.leftPort < 0) {
          m.leftPort = static_cast<int>(i);
        } else if (m.rightPort < 0) {
          m.rightPort = static_cast<int>(i);
        }
      }
    } else if (lilv_port_is_a(m.plugin, port, atom)) {
      p.kind = isInput ? Impl::Kind::AtomIn : Impl::Kind::AtomOut;
      p.atom.assign(kAtomBufferSize / sizeof(std::uint64_t), 0);
      location = p.atom.data();
      if (isInput && m.eventPort < 0) m.eventPort = static_cast<int>(i);
    }
    lilv_instance_connect_port(m.instance, i, location);
  }
  for (LilvNode* node : {audio, control, atom, cv, input})
    lilv_node_free(node);
  if (m.rightPort < 0) m.rightPort = m.leftPort;
  m.writeEvents();
  lilv_instance_activate(m.instance);
}

Lv2Instrument::~Lv2Instrument() {
  lilv_instance_deactivate(impl_->instance);
  lilv_instance_free(impl_->instance);
}

bool Lv2Instrument::setControl(const std::string& symbol, float value) {
  auto* port = impl_->find(symbol);
  if (!port || port->kind != Impl::Kind::ControlIn) return false;
  port->value = value;
  return true;
}

float Lv2Instrument::control(const std::string& symbol) const {
  auto* port = impl_->find(symbol);
  return port ? port->value : NAN;
}

void Lv2Instrument::midi(std::initializer_list<std::uint8_t> bytes) {
  impl_->pending.push_back({Impl::Pending::Midi, std::vector<std::uint8_t>(bytes), 0});
}

void Lv2Instrument::message(const std::string& typeUri) {
  impl_->pending.push_back({Impl::Pending::Object, {}, impl_->urid(typeUri.c_str())});
}

void Lv2Instrument::atom(const LV2_Atom& atom) {
  auto* bytes = reinterpret_cast<const std::uint8_t*>(&atom);
  impl_->pending.push_back(
      {Impl::Pending::Atom, std::vector<std::uint8_t>(bytes, bytes + sizeof atom + atom.size), 0});
}

std::vector<std::vector<std::uint8_t>> Lv2Instrument::takeOutputEvents() {
  return std::exchange(impl_->outputEvents, {});
}

LV2_URID_Map* Lv2Instrument::sharedUridMap() {
  return &uridMap().mapFeature;
}

void Lv2Instrument::render(std::uint32_t frames, std::uint32_t block) {
  Impl& m = *impl_;
  block = std::min(block, m.maxBlock);
  while (frames > 0) {
    std::uint32_t n = std::min(block, frames);
    m.writeEvents();
    m.resetAtomOutputs();
    if (beforeRun) beforeRun();
    lilv_instance_run(m.instance, n);
    if (afterRun) afterRun();
    m.collectOutputEvents();
    m.runWorker();
    auto& l = m.ports[static_cast<std::size_t>(m.leftPort)].audio;
    auto& r = m.ports[static_cast<std::size_t>(m.rightPort)].audio;
    left_.insert(left_.end(), l.begin(), l.begin() + n);
    right_.insert(right_.end(), r.begin(), r.begin() + n);
    frames -= n;
  }
}

std::vector<float> Lv2Instrument::renderLeft(std::uint32_t frames, std::uint32_t block) {
  std::size_t start = left_.size();
  render(frames, block);
  return std::vector<float>(left_.begin() + static_cast<std::ptrdiff_t>(start), left_.end());
}

void Lv2Instrument::clearOutput() {
  left_.clear();
  right_.clear();
}

std::string Lv2Instrument::saveState() {
  Impl& m = *impl_;
  LilvState* state = lilv_state_new_from_instance(
      m.plugin, m.instance, &uridMap().mapFeature, nullptr, nullptr, nullptr, nullptr,
      [](const char* symbol, void* self, uint32_t* size, uint32_t* type) -> const void* {
        auto* port = static_cast<Impl*>(self)->find(symbol);
        if (!port || port->kind != Impl::Kind::ControlIn) return nullptr;
        *size = sizeof(float);
        *type = uridMap().map(LV2_ATOM__Float);
        return &port->value;
      },
      &m, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, m.features.data());
  if (!state) throw std::runtime_error("state could not be saved");
  char* text = lilv_state_to_string(world(), &uridMap().mapFeature, &uridMap().unmapFeature, state,
                                    "urn:pelma:test-state", "file:///tmp/");
  std::string result = text ? text : "";
  lilv_free(text);
  lilv_state_free(state);
  return result;
}

namespace {

void setPortValue(const char* symbol, void* self, const void* value, uint32_t size, uint32_t type) {
  auto* impl = static_cast<Lv2Instrument*>(self);
  if (size == sizeof(float) && type == uridMap().map(LV2_ATOM__Float)) {
    float v;
    std::memcpy(&v, value, sizeof v);
    impl->setControl(symbol, v);
  }
}

}  // namespace

void Lv2Instrument::restoreState(const std::string& turtle) {
  LilvState* state = lilv_state_new_from_string(world(), &uridMap().mapFeature, turtle.c_str());
  if (!state) throw std::runtime_error("state text could not be read");
  lilv_state_restore(state, impl_->instance, setPortValue, this, 0, impl_->features.data());
  lilv_state_free(state);
}

bool Lv2Instrument::loadPreset(const std::string& label) {
  Impl& m = *impl_;
  LilvNode* presetClass = lilv_new_uri(world(), "http://lv2plug.in/ns/ext/presets#Preset");
  LilvNode* labelPredicate = lilv_new_uri(world(), LILV_NS_RDFS "label");
  LilvNodes* presets = lilv_plugin_get_related(m.plugin, presetClass);
  bool loaded = false;
  LILV_FOREACH(nodes, it, presets) {
    const LilvNode* preset = lilv_nodes_get(presets, it);
    lilv_world_load_resource(world(), preset);
    LilvNode* name = lilv_world_get(world(), preset, labelPredicate, nullptr);
    bool match = name && label == lilv_node_as_string(name);
    lilv_node_free(name);
    if (!match) continue;
    LilvState* state = lilv_state_new_from_world(world(), &uridMap().mapFeature, preset);
    if (state) {
      lilv_state_restore(state, m.instance, setPortValue, this, 0, m.features.data());
      lilv_state_free(state);
      loaded = true;
    }
    break;
  }
  lilv_nodes_free(presets);
  lilv_node_free(labelPredicate);
  lilv_node_free(presetClass);
  return loaded;
}
