// The instance's audio-thread work: ports, MIDI, patch choice and bank set swaps. Called by the
// host's audio thread (run, connect_port, work_response): no allocation, locks, logging or I/O.

#include <lv2/atom/util.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "dsp/Denormals.h"
#include "lv2/PelmaPlugin.h"

namespace pelma {
namespace {

int roundedPortValue(float value) noexcept {
  return static_cast<int>(std::lround(std::clamp(value, 0.0f, 16383.0f)));
}

}  // namespace

void PelmaPlugin::connectPort(std::uint32_t port, void* data) noexcept {
  if (port == kControlPort) {
    control_ = static_cast<const LV2_Atom_Sequence*>(data);
  } else if (port == kLeftPort) {
    left_ = static_cast<float*>(data);
  } else if (port == kRightPort) {
    right_ = static_cast<float*>(data);
  } else if (port == kBankPort) {
    bankPort_ = static_cast<const float*>(data);
  } else if (port == kProgramPort) {
    programPort_ = static_cast<const float*>(data);
  } else if (port == kNotifyPort) {
    notify_ = static_cast<LV2_Atom_Sequence*>(data);
  } else if (port == kLevelPort) {
    level_ = static_cast<float*>(data);
  } else if (port >= kFirstParameterPort && port < kBankPort) {
    parameterPorts_[port - kFirstParameterPort] = static_cast<const float*>(data);
  }
}

bool PelmaPlugin::selectPatch(int bank, int program) noexcept {
  const BankSet* set = banks_.load();
  if (!set || bank < 0 || program < 0 || static_cast<std::size_t>(bank) >= set->banks.size()) {
    return false;
  }
  const auto& patches = set->banks[static_cast<std::size_t>(bank)].patches;
  if (static_cast<std::size_t>(program) >= patches.size()) return false;
  synth_.setParameters(patches[static_cast<std::size_t>(program)].values);
  bank_ = bank;
  program_ = program;
  bankSelectMsb_ = bank >> 7;
  bankSelectLsb_ = bank & 0x7F;
  return true;
}

void PelmaPlugin::applyPortChanges() noexcept {
  if (resyncPorts_) {
    // After a state restore the ports hold what the host restored; the state already holds the
    // sound, so take the ports as seen without applying them.
    resyncPorts_ = false;
    if (bankPort_) lastBankPort_ = *bankPort_;
    if (programPort_) lastProgramPort_ = *programPort_;
    for (std::size_t i = 0; i < kParameterCount; ++i) {
      if (parameterPorts_[i]) lastParameterPorts_[i] = *parameterPorts_[i];
    }
    return;
  }
  float bankValue = bankPort_ ? *bankPort_ : lastBankPort_;
  float programValue = programPort_ ? *programPort_ : lastProgramPort_;
  bool finite = std::isfinite(bankValue) && std::isfinite(programValue);
  if (finite && (bankValue != lastBankPort_ || programValue != lastProgramPort_)) {
    lastBankPort_ = bankValue;
    lastProgramPort_ = programValue;
    selectPatch(roundedPortValue(bankValue), roundedPortValue(programValue));
  }
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    if (!parameterPorts_[i]) continue;
    float value = *parameterPorts_[i];
    if (value == lastParameterPorts_[i] || !std::isfinite(value)) continue;
    lastParameterPorts_[i] = value;
    synth_.setParameter(i, value);
  }
}

void PelmaPlugin::handleMidi(const std::uint8_t* message, std::uint32_t size) noexcept {
  if (size < 2) return;
  // Every channel plays the same instrument.
  std::uint8_t status = message[0] & 0xF0;
  int data1 = message[1];
  int data2 = size >= 3 ? message[2] : 0;
  switch (status) {
    case 0x80:
      if (size >= 3) synth_.noteOff(data1);
      break;
    case 0x90:
      if (size >= 3) synth_.noteOn(data1, data2);
      break;
    case 0xB0:
      if (size < 3) break;
      switch (data1) {
        case 0:
          bankSelectMsb_ = data2 & 0x7F;
          break;
        case 32:
          bankSelectLsb_ = data2 & 0x7F;
          break;
        case 1:
          synth_.modWheel(data2);
          break;
        case 64:
          synth_.sustainPedal(data2 >= 64);
          break;
        case 120:
          synth_.allSoundOff();
          break;
        case 121:
          synth_.resetControllers();
          break;
        case 123:
          synth_.allNotesOff();
          break;
        default:
          break;
      }
      break;
    case 0xC0:
      selectPatch(bankSelectMsb_ * 128 + bankSelectLsb_, data1 & 0x7F);
      break;
    case 0xE0:
      if (size >= 3) synth_.pitchBend((data1 & 0x7F) | (data2 << 7));
      break;
    default:
      break;
  }
}

void PelmaPlugin::requestBanks(WorkRequest request) noexcept {
  if (!worker_) return;
  if (request == WorkRequest::Look && requestPending_) return;
  if (worker_->schedule_work(worker_->handle, sizeof request, &request) == LV2_WORKER_SUCCESS) {
    requestPending_ = true;
  }
}

LV2_Worker_Status PelmaPlugin::workResponse(std::uint32_t size, const void* data) noexcept {
  requestPending_ = false;
  if (size != sizeof(const BankSet*)) return LV2_WORKER_ERR_UNKNOWN;
  const BankSet* fresh;
  std::memcpy(&fresh, data, sizeof fresh);
  if (!fresh) return LV2_WORKER_SUCCESS;
  // Keep the chosen bank by name: its number may change when banks come or go.
  const BankSet* old = banks_.load();
  int bank = 0;
  if (old && static_cast<std::size_t>(bank_) < old->banks.size()) {
    const std::string& name = old->banks[static_cast<std::size_t>(bank_)].name;
    for (std::size_t i = 0; i < fresh->banks.size(); ++i) {
      if (fresh->banks[i].name == name) bank = static_cast<int>(i);
    }
  }
  banks_.store(fresh);
  bank_ = bank;
  bankSelectMsb_ = bank >> 7;
  bankSelectLsb_ = bank & 0x7F;
  publishSelection();
  return LV2_WORKER_SUCCESS;
}

void PelmaPlugin::publishSelection() noexcept {
  const BankSet* set = banks_.load();
  const bool known = set && bank_ >= 0 && static_cast<std::size_t>(bank_) < set->banks.size();
  savedBank_.store(known ? &set->banks[static_cast<std::size_t>(bank_)] : nullptr,
                   std::memory_order_release);
  savedProgram_.store(program_, std::memory_order_relaxed);
  const ParameterValues& values = synth_.parameters();
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    savedParameters_[i].store(values[i], std::memory_order_relaxed);
  }
}

void PelmaPlugin::run(std::uint32_t frames) noexcept {
  ScopedFlushDenormals flushDenormals;
  if (!left_ || !right_) return;
  applyPortChanges();

  framesSinceLook_ += frames;
  if (framesSinceLook_ >= static_cast<std::uint64_t>(sampleRate_)) {
    framesSinceLook_ = 0;
    requestBanks(WorkRequest::Look);
  }

  std::uint32_t done = 0;
  if (control_) {
    LV2_ATOM_SEQUENCE_FOREACH(control_, event) {
      auto at =
          static_cast<std::uint32_t>(std::clamp<std::int64_t>(event->time.frames, done, frames));
      synth_.render(left_ + done, right_ + done, at - done);
      done = at;
      if (event->body.type == uris_.midiEvent) {
        handleMidi(reinterpret_cast<const std::uint8_t*>(event + 1), event->body.size);
      } else if (event->body.type == uris_.atomObject) {
        const auto* object = reinterpret_cast<const LV2_Atom_Object*>(&event->body);
        if (object->body.otype == uris_.refreshBanks) requestBanks(WorkRequest::Reread);
        if (object->body.otype == uris_.describe) {
          sentSet_ = nullptr;  // every bank again, then the selection
          selectionSent_ = false;
        }
        // Other objects, time:Position among them, need nothing from this instrument.
      }
    }
  }
  synth_.render(left_ + done, right_ + done, frames - done);
  publishSelection();
  writeNotifications();
  writeLevel(frames);
}

void PelmaPlugin::writeNotifications() noexcept {
  if (!notify_) return;
  // The host gives an empty chunk whose size is the space it offers.
  const std::uint32_t capacity = notify_->atom.size;
  lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<std::uint8_t*>(notify_),
                            sizeof(LV2_Atom) + capacity);
  LV2_Atom_Forge_Frame sequence;
  if (!lv2_atom_forge_sequence_head(&forge_, &sequence, 0)) return;
  auto room = [this] { return forge_.size - forge_.offset; };

  const BankSet* set = banks_.load();
  if (set != sentSet_) {
    sentSet_ = set;
    nextBankMessage_ = 0;
    selectionSent_ = false;  // bank numbers may have moved
  }
  for (; set && nextBankMessage_ < set->messages.size(); ++nextBankMessage_) {
    const auto& message = set->messages[nextBankMessage_];
    const auto size = static_cast<std::uint32_t>(message.size());
    if (room() < sizeof(LV2_Atom_Event) + lv2_atom_pad_size(size)) break;  // the next block
    lv2_atom_forge_frame_time(&forge_, 0);
    lv2_atom_forge_write(&forge_, message.data(), size);
  }

  const ParameterValues& values = synth_.parameters();
  const bool changed =
      !selectionSent_ || bank_ != sentBank_ || program_ != sentProgram_ || values != sentValues_;
  constexpr std::uint32_t kSelectionSize = 64 + sizeof(float) * kParameterCount;
  if (changed && room() >= kSelectionSize) {
    LV2_Atom_Forge_Frame object;
    lv2_atom_forge_frame_time(&forge_, 0);
    lv2_atom_forge_object(&forge_, &object, 0, uris_.selection);
    lv2_atom_forge_key(&forge_, uris_.bankIndex);
    lv2_atom_forge_int(&forge_, bank_);
    lv2_atom_forge_key(&forge_, uris_.programIndex);
    lv2_atom_forge_int(&forge_, program_);
    lv2_atom_forge_key(&forge_, uris_.values);
    lv2_atom_forge_vector(&forge_, sizeof(float), uris_.atomFloat, kParameterCount, values.data());
    lv2_atom_forge_pop(&forge_, &object);
    selectionSent_ = true;
    sentBank_ = bank_;
    sentProgram_ = program_;
    sentValues_ = values;
  }
  lv2_atom_forge_pop(&forge_, &sequence);
}

void PelmaPlugin::writeLevel(std::uint32_t frames) noexcept {
  if (!level_) return;
  float peak = 0;
  for (std::uint32_t i = 0; i < frames; ++i)
    peak = std::max({peak, std::fabs(left_[i]), std::fabs(right_[i])});
  // Falls by about 26 dB a second, so a meter read a few times a second still sees every peak.
  const float decay =
      std::exp(-3.0f * static_cast<float>(frames) / static_cast<float>(sampleRate_));
  peak_ = std::max(peak, peak_ * decay);
  *level_ = peak_;
}

}  // namespace pelma
