// Instantiation, bank reading (worker thread), state, and the LV2 entry points.

#include "lv2/PelmaPlugin.h"

#include <lv2/atom/atom.h>
#include <lv2/midi/midi.h>

#include <algorithm>
#include <cstring>
#include <system_error>

#include "common/BankFolder.h"
#include "common/Messages.h"

namespace pelma {

std::unique_ptr<PelmaPlugin> PelmaPlugin::create(double sampleRate, const char* bundlePath,
                                                 const LV2_Feature* const* features) {
  auto* map = static_cast<LV2_URID_Map*>(const_cast<void*>(findFeature(features, LV2_URID__map)));
  if (!map) {
    message("the host does not provide urid:map");
    return nullptr;
  }
  if (sampleRate < 8000 || sampleRate > 768000) {
    Lv2Log log(features, map);
    message("sample rate {} is not supported", sampleRate);
    return nullptr;
  }
  auto* worker = static_cast<LV2_Worker_Schedule*>(
      const_cast<void*>(findFeature(features, LV2_WORKER__schedule)));
  return std::unique_ptr<PelmaPlugin>(
      new PelmaPlugin(sampleRate, bundlePath ? bundlePath : "", map, worker, features));
}

PelmaPlugin::PelmaPlugin(double sampleRate, std::filesystem::path bundle, LV2_URID_Map* map,
                         LV2_Worker_Schedule* worker, const LV2_Feature* const* features)
    : log_(features, map),
      synth_(sampleRate),
      sampleRate_(sampleRate),
      bundle_(std::move(bundle)),
      worker_(worker) {
  auto urid = [map](const char* uri) { return map->map(map->handle, uri); };
  uris_ = {urid(LV2_MIDI__MidiEvent), urid(LV2_ATOM__Object),    urid(LV2_ATOM__String),
           urid(LV2_ATOM__Int),       urid(kRefreshBanksUri),    urid(kStateBankUri),
           urid(kStateProgramUri),    urid(kStateParametersUri), urid(kDescribeUri),
           urid(kBankMessageUri),     urid(kBankIndexUri),       urid(kBankCountUri),
           urid(kBankNameUri),        urid(kPatchNamesUri),      urid(kSelectionUri),
           urid(kProgramIndexUri),    urid(kValuesUri),          urid(LV2_ATOM__Float)};
  lv2_atom_forge_init(&forge_, map);
  lv2_atom_forge_init(&bankForge_, map);
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    lastParameterPorts_[i] = kParameters[i].defaultValue;
  }
  banks_.store(readBanks(true));
  selectPatch(0, 0);
  publishSelection();
}

std::string PelmaPlugin::bankFolderListing() const {
  // Name, size and modification time of every bank entry: a change in any means a re-read.
  auto folder = bankFolder();
  std::vector<std::string> lines;
  std::error_code error;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error)) {
    std::string name = it->path().filename().string();
    if (!isBankEntryName(name)) continue;
    std::error_code ignored;
    auto file = it->is_directory(ignored) ? it->path() / kFolderBankFile : it->path();
    auto size = std::filesystem::file_size(file, ignored);
    auto time = std::filesystem::last_write_time(file, ignored).time_since_epoch().count();
    lines.push_back(name + '\t' + std::to_string(size) + '\t' + std::to_string(time));
  }
  std::sort(lines.begin(), lines.end());
  std::string listing = folder.string();
  for (const auto& line : lines)
    listing += '\n' + line;
  return listing;
}

const BankSet* PelmaPlugin::readBanks(bool force) {
  std::lock_guard lock(readMutex_);
  std::string listing = bankFolderListing();
  if (!force && listing == lastListing_) return nullptr;
  lastListing_ = std::move(listing);
  auto set = std::make_unique<BankSet>();
  if (auto factory = readBank(bundle_ / kFactoryBankFile)) {
    set->banks.push_back(std::move(*factory));
  }
  for (auto& bank : readBankFolder(bankFolder()))
    set->banks.push_back(std::move(bank));
  removeDuplicateBanks(set->banks);  // the factory bank's name is taken first
  std::string names;
  for (const auto& bank : set->banks)
    names += (names.empty() ? "" : ", ") + bank.name;
  message("banks: {}", names);
  buildBankMessages(*set);
  ownedSets_.push_back(std::move(set));
  return ownedSets_.back().get();
}

void PelmaPlugin::buildBankMessages(BankSet& set) {
  // A bank with more names than fit keeps the first ones: the forge stops at the buffer's end.
  constexpr std::size_t kMessageCapacity = kNotifyBufferSize / 2;
  LV2_Atom_Forge& forge = bankForge_;
  for (std::size_t i = 0; i < set.banks.size(); ++i) {
    std::vector<std::uint8_t> buffer(kMessageCapacity);
    lv2_atom_forge_set_buffer(&forge, buffer.data(), buffer.size());
    LV2_Atom_Forge_Frame object, names;
    lv2_atom_forge_object(&forge, &object, 0, uris_.bankMessage);
    lv2_atom_forge_key(&forge, uris_.bankIndex);
    lv2_atom_forge_int(&forge, static_cast<std::int32_t>(i));
    lv2_atom_forge_key(&forge, uris_.bankCount);
    lv2_atom_forge_int(&forge, static_cast<std::int32_t>(set.banks.size()));
    lv2_atom_forge_key(&forge, uris_.bankName);
    const std::string& bankName = set.banks[i].name;
    lv2_atom_forge_string(&forge, bankName.c_str(), static_cast<std::uint32_t>(bankName.size()));
    lv2_atom_forge_key(&forge, uris_.patchNames);
    lv2_atom_forge_tuple(&forge, &names);
    for (const Patch& patch : set.banks[i].patches) {
      lv2_atom_forge_string(&forge, patch.name.c_str(),
                            static_cast<std::uint32_t>(patch.name.size()));
    }
    lv2_atom_forge_pop(&forge, &names);
    lv2_atom_forge_pop(&forge, &object);
    const auto* atom = reinterpret_cast<const LV2_Atom*>(buffer.data());
    buffer.resize(sizeof(LV2_Atom) + atom->size);
    set.messages.push_back(std::move(buffer));
  }
}

LV2_Worker_Status PelmaPlugin::work(LV2_Worker_Respond_Function respond,
                                    LV2_Worker_Respond_Handle handle, std::uint32_t size,
                                    const void* data) {
  if (size != sizeof(WorkRequest)) return LV2_WORKER_ERR_UNKNOWN;
  WorkRequest request;
  std::memcpy(&request, data, sizeof request);
  const BankSet* set = readBanks(request == WorkRequest::Reread);
  return respond(handle, sizeof set, &set);
}

LV2_State_Status PelmaPlugin::save(LV2_State_Store_Function store, LV2_State_Handle handle) {
  constexpr std::uint32_t flags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
  if (const Bank* bank = savedBank_.load(std::memory_order_acquire)) {
    store(handle, uris_.stateBank, bank->name.c_str(), bank->name.size() + 1, uris_.atomString,
          flags);
  }
  std::int32_t program = savedProgram_.load(std::memory_order_relaxed);
  store(handle, uris_.stateProgram, &program, sizeof program, uris_.atomInt, flags);
  ParameterValues values;
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    values[i] = savedParameters_[i].load(std::memory_order_relaxed);
  }
  std::string text = formatParameterValues(values);
  store(handle, uris_.stateParameters, text.c_str(), text.size() + 1, uris_.atomString, flags);
  return LV2_STATE_SUCCESS;
}

LV2_State_Status PelmaPlugin::restore(LV2_State_Retrieve_Function retrieve,
                                      LV2_State_Handle handle) {
  if (const BankSet* fresh = readBanks(false)) banks_.store(fresh);
  const BankSet* set = banks_.load();
  std::size_t size = 0;
  std::uint32_t type = 0, flags = 0;
  auto text = [&](LV2_URID key) -> std::string {
    auto* value = static_cast<const char*>(retrieve(handle, key, &size, &type, &flags));
    if (!value || type != uris_.atomString) return {};
    return std::string(value, strnlen(value, size));
  };

  std::string bankName = text(uris_.stateBank);
  std::string parameters = text(uris_.stateParameters);
  if (bankName.empty() && parameters.empty()) return LV2_STATE_SUCCESS;  // a preset: ports only
  int program = 0;
  auto* programValue = retrieve(handle, uris_.stateProgram, &size, &type, &flags);
  if (programValue && type == uris_.atomInt && size == sizeof(std::int32_t)) {
    std::int32_t value;
    std::memcpy(&value, programValue, sizeof value);
    program = value;
  }
  auto found = std::find_if(set->banks.begin(), set->banks.end(),
                            [&](const Bank& bank) { return bank.name == bankName; });
  if (found != set->banks.end()) {
    bank_ = static_cast<int>(found - set->banks.begin());
    program_ = std::max(program, 0);
  } else if (!bankName.empty()) {
    message("the saved bank \"{}\" is not installed; its sound is kept", bankName);
  }
  // The saved values hold the sound exactly, also when controls were moved after the choice.
  if (auto values = parseParameterValues(parameters); values && !parameters.empty()) {
    synth_.setParameters(*values);
  } else {
    selectPatch(bank_, program_);
  }
  resyncPorts_ = true;
  publishSelection();
  return LV2_STATE_SUCCESS;
}

void PelmaPlugin::activate() noexcept {
  synth_.allSoundOff();
}

}  // namespace pelma

// LV2 entry points.

namespace {

using pelma::PelmaPlugin;

PelmaPlugin* self(LV2_Handle handle) {
  return static_cast<PelmaPlugin*>(handle);
}

LV2_Handle instantiate(const LV2_Descriptor*, double rate, const char* bundle,
                       const LV2_Feature* const* features) {
  return PelmaPlugin::create(rate, bundle, features).release();
}

void connectPort(LV2_Handle h, uint32_t port, void* data) {
  self(h)->connectPort(port, data);
}
void activate(LV2_Handle h) {
  self(h)->activate();
}
void run(LV2_Handle h, uint32_t frames) {
  self(h)->run(frames);
}
void cleanup(LV2_Handle h) {
  delete self(h);
}

LV2_Worker_Status work(LV2_Handle h, LV2_Worker_Respond_Function respond,
                       LV2_Worker_Respond_Handle handle, uint32_t size, const void* data) {
  return self(h)->work(respond, handle, size, data);
}
LV2_Worker_Status workResponse(LV2_Handle h, uint32_t size, const void* data) {
  return self(h)->workResponse(size, data);
}
LV2_State_Status save(LV2_Handle h, LV2_State_Store_Function store, LV2_State_Handle handle,
                      uint32_t, const LV2_Feature* const*) {
  return self(h)->save(store, handle);
}
LV2_State_Status restore(LV2_Handle h, LV2_State_Retrieve_Function retrieve,
                         LV2_State_Handle handle, uint32_t, const LV2_Feature* const*) {
  return self(h)->restore(retrieve, handle);
}

const void* extensionData(const char* uri) {
  static const LV2_Worker_Interface worker{work, workResponse, nullptr};
  static const LV2_State_Interface state{save, restore};
  if (std::strcmp(uri, LV2_WORKER__interface) == 0) return &worker;
  if (std::strcmp(uri, LV2_STATE__interface) == 0) return &state;
  return nullptr;
}

const LV2_Descriptor descriptor{pelma::kPluginUri, instantiate, connectPort,  activate, run,
                                nullptr,           cleanup,     extensionData};

}  // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
  return index == 0 ? &descriptor : nullptr;
}
