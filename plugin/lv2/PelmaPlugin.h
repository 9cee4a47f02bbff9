#pragma once

// One instance of the Pelma LV2 instrument: the sound engine, the installed banks and the chosen
// patch, the LV2 ports, and the worker and state glue.
//
// Banks are read at instantiation, on state restore and in the worker; the audio thread only
// swaps in a finished set. The worker looks at the bank folder when asked by a refreshBanks
// message and about once a second on its own, and re-reads it when its listing changed, so banks
// installed while the host runs appear without a restart. Bank sets are kept until the instance
// is freed, so the audio thread never frees memory and a state save can read names safely.

#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bank/Bank.h"
#include "common/Lv2Log.h"
#include "dsp/Synth.h"
#include "lv2/PelmaUris.h"

namespace pelma {

// The banks an instance offers, in bank-number order: the factory bank, then the bank folder's.
struct BankSet {
  std::vector<Bank> banks;
  // One bank message per bank (its names, for the editor), made when the set is read so the
  // audio thread only copies them to the notify port.
  std::vector<std::vector<std::uint8_t>> messages;
};

class PelmaPlugin {
 public:
  // Nothing when the host lacks urid:map.
  static std::unique_ptr<PelmaPlugin> create(double sampleRate, const char* bundlePath,
                                             const LV2_Feature* const* features);

  void connectPort(std::uint32_t port, void* data) noexcept;
  void activate() noexcept;
  void run(std::uint32_t frames) noexcept;  // audio thread

  // Worker thread: reads the bank folder; `workResponse` runs on the audio thread.
  LV2_Worker_Status work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle,
                         std::uint32_t size, const void* data);
  LV2_Worker_Status workResponse(std::uint32_t size, const void* data) noexcept;

  LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle);
  LV2_State_Status restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle);

 private:
  struct Uris {
    LV2_URID midiEvent, atomObject, atomString, atomInt, refreshBanks, stateBank, stateProgram,
        stateParameters, describe, bankMessage, bankIndex, bankCount, bankName, patchNames,
        selection, programIndex, values, atomFloat;
  };
  enum class WorkRequest : std::uint32_t { Look, Reread };

  PelmaPlugin(double sampleRate, std::filesystem::path bundle, LV2_URID_Map* map,
              LV2_Worker_Schedule* worker, const LV2_Feature* const* features);

  // Reads the factory bank and the bank folder into a new set owned by this instance; nothing
  // when the folder's listing is unchanged since the last read and `force` is false.
  const BankSet* readBanks(bool force);
  std::string bankFolderListing() const;

  bool selectPatch(int bank, int program) noexcept;
  void applyPortChanges() noexcept;
  void handleMidi(const std::uint8_t* message, std::uint32_t size) noexcept;
  void requestBanks(WorkRequest request) noexcept;
  void publishSelection() noexcept;
  void buildBankMessages(BankSet& set);
  // Audio thread: bank messages not yet sent and the selection when it changed, as far as the
  // notify port has room; and the output level.
  void writeNotifications() noexcept;
  void writeLevel(std::uint32_t frames) noexcept;

  Lv2Log log_;  // first: bank reading at construction already logs through it
  Synth synth_;
  const double sampleRate_;
  const std::filesystem::path bundle_;
  LV2_Worker_Schedule* worker_;
  Uris uris_{};

  // Ports.
  const LV2_Atom_Sequence* control_ = nullptr;
  float* left_ = nullptr;
  float* right_ = nullptr;
  std::array<const float*, kParameterCount> parameterPorts_{};
  const float* bankPort_ = nullptr;
  const float* programPort_ = nullptr;
  LV2_Atom_Sequence* notify_ = nullptr;
  float* level_ = nullptr;

  // Port values seen last: a port only takes effect when it changes, so a chosen patch stays
  // until the user moves a control.
  std::array<float, kParameterCount> lastParameterPorts_{};
  float lastBankPort_ = 0, lastProgramPort_ = 0;
  bool resyncPorts_ = false;

  // Bank sets: made by the worker and by instantiation/restore (which may overlap, hence the
  // mutex; the audio thread never takes it), read by the audio thread through banks_.
  std::mutex readMutex_;
  std::vector<std::unique_ptr<BankSet>> ownedSets_;
  std::string lastListing_;     // the folder as last read
  LV2_Atom_Forge bankForge_{};  // makes the bank messages, under readMutex_
  std::atomic<const BankSet*> banks_{nullptr};

  // Audio thread: the choice and MIDI bank select.
  int bank_ = 0, program_ = 0;
  int bankSelectMsb_ = 0, bankSelectLsb_ = 0;
  bool requestPending_ = false;
  std::uint64_t framesSinceLook_ = 0;

  // Audio thread: what the editor has been told.
  LV2_Atom_Forge forge_{};
  const BankSet* sentSet_ = nullptr;
  std::size_t nextBankMessage_ = 0;
  bool selectionSent_ = false;
  int sentBank_ = -1, sentProgram_ = -1;
  ParameterValues sentValues_{};
  float peak_ = 0;  // the decaying output peak written to the level port

  // What a state save reads while the audio thread runs. The chosen bank is one pointer into
  // its set (sets live as long as the instance), so its name can never come from another set
  // than its number.
  std::atomic<const Bank*> savedBank_{nullptr};
  std::atomic<int> savedProgram_{0};
  std::array<std::atomic<float>, kParameterCount> savedParameters_{};
};

}  // namespace pelma
