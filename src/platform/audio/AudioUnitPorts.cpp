// An LV2 instrument's ports: which the host knows, the buffers and values each is connected to,
// and the control inputs by symbol.

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

std::string unknownRequiredPort(Lv2World& world, const LilvPlugin* plugin) {
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
  portValues_.assign(count, 0.0f);
  silence_.assign(maxFrames_, 0.0f);
  int audioOutputs = 0;
  int midiInputPort = -1;
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
        if (audioOutputs < 2) outputPorts_[audioOutputs++] = static_cast<int>(index);
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
      portValues_[index] = value;
      p.defaultValue = value;
      if (isInput) {
        p.controlIndex = static_cast<int>(controlTargets_.size());
        controlTargets_.push_back(std::make_unique<std::atomic<float>>(value));
      }
    } else if (lilv_port_is_a(plugin_, port, atom)) {
      p.kind = isInput ? Port::atomIn : Port::atomOut;
      p.bufferIndex = static_cast<int>(atomBuffers_.size());
      atomBuffers_.emplace_back(kAtomBufferSize, 0);
      if (!isInput) atomOutputBuffers_.push_back(p.bufferIndex);
      if (isInput && midiInputPort < 0 && lilv_port_supports_event(plugin_, port, midiEvent)) {
        midiInputPort = static_cast<int>(index);
        acceptsTimePosition_ = lilv_port_supports_event(plugin_, port, position);
      }
    }
  }
  if (outputPorts_[1] < 0) outputPorts_[1] = outputPorts_[0];
  // Only now: atomBuffers_ may have moved its elements while it grew.
  if (midiInputPort >= 0) midiInputBuffer_ = &atomBuffers_[ports_[midiInputPort].bufferIndex];
}

void AudioUnit::connectPorts() {
  outputsElsewhere_ = false;
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
        location = &portValues_[index];
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
  controlsChanged_.store(true, std::memory_order_release);
}

void AudioUnit::setControllerBindings(const std::vector<ControllerBinding>& bindings) {
  auto table = std::make_unique<ControllerTable>();
  for (const ControllerBinding& binding : bindings) {
    if (binding.controller > 127) continue;
    const auto port = std::find_if(ports_.begin(), ports_.end(), [&](const Port& p) {
      return p.kind == Port::controlIn && p.symbol == binding.port.symbol;
    });
    if (port == ports_.end()) continue;
    table->binding[binding.controller] = static_cast<int>(table->ports.size());
    table->controlIndex.push_back(port->controlIndex);
    table->ports.push_back(binding.port);
  }
  controllerTable_.publish(std::move(table));
}

void AudioUnit::listenForControllers(bool listen) noexcept {
  heardController_.store(-1);
  listening_.store(listen);
}

}  // namespace platform
