#pragma once

// Sound banks (.plb): reading, writing and checking them. A bank is a text file `NAME.plb`, or a
// folder `NAME.plb/` holding that text as `bank.plb` beside anything else (artwork, notes).
//
//   # comments start with '#'
//   pelma-bank 1              format version: readers take every bank of their major version
//   name = Warm Things        the name the registry knows the bank by (default: the file stem)
//   version = 1.2             the bank's own version, free text
//
//   [Soft Pad]                a patch: its name, then parameter symbol = value lines
//   osc1_wave = saw           choices by label or number
//   cutoff = 1200             numbers are clamped into the parameter's range
//
//   end                       required: a bank without it is taken as truncated
//
// Unknown keys are ignored; parameters a patch leaves out take their defaults. A patch with a
// value that is not a number or label is skipped; a bank that is malformed, truncated or of a
// newer format is skipped. Each skip logs one line.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/Parameters.h"

namespace pelma {

inline constexpr int kBankFormatVersion = 1;
inline constexpr std::size_t kMaxPatchesPerBank = 128;  // what MIDI program change can reach
inline constexpr std::string_view kBankExtension = ".plb";
inline constexpr std::string_view kFolderBankFile = "bank.plb";

struct Patch {
  std::string name;
  ParameterValues values = defaultParameterValues();
};

struct Bank {
  std::string name;
  std::string version;
  std::vector<Patch> patches;
  std::filesystem::path location;  // the file or folder it was read from; empty if none
};

// Parses bank text. `fallbackName` names a bank without a name line; `origin` names the source in
// log lines. Nothing on a malformed, truncated or newer bank (one log line).
std::optional<Bank> parseBank(std::string_view text, std::string_view fallbackName,
                              std::string_view origin);

// The text of a bank, every parameter of every patch written out; parseBank reads it back equal.
std::string formatBank(const Bank& bank);

// Parameter lines alone ("symbol = value"), as in a patch; used for saved plug-in state.
std::string formatParameterValues(const ParameterValues& values);
std::optional<ParameterValues> parseParameterValues(std::string_view text);

// True for a directory entry name that may hold a bank: ends in ".plb" (case-sensitive) and is
// not hidden (names starting with '.' are copies in progress).
bool isBankEntryName(std::string_view name);

// Reads one bank file or folder; nothing (one log line) when it is not a readable bank.
std::optional<Bank> readBank(const std::filesystem::path& entry);

// Reads every bank in a folder, sorted by entry name in byte order. Of banks sharing a name, the
// first in that order wins and the others are skipped with one log line each. Entries that are
// not banks are ignored; a missing folder gives no banks.
std::vector<Bank> readBankFolder(const std::filesystem::path& folder);

// Drops banks whose name an earlier bank already has (one log line each), keeping the order.
void removeDuplicateBanks(std::vector<Bank>& banks);

}  // namespace pelma
