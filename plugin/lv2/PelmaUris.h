#pragma once

// The plug-in's URIs and port layout, shared by the module, the Turtle generator and the tests.

#include <cstdint>

#include "dsp/Parameters.h"

namespace pelma {

#define PELMA_URI "urn:pelma:synth"
inline constexpr const char* kPluginUri = PELMA_URI;
// An atom:Object of this type on the control port asks the plug-in to re-read the bank folder.
inline constexpr const char* kRefreshBanksUri = PELMA_URI "#refreshBanks";
// LV2 state keys: the chosen bank's name, the patch number in it, the parameter values.
inline constexpr const char* kStateBankUri = PELMA_URI "#bank";
inline constexpr const char* kStateProgramUri = PELMA_URI "#program";
inline constexpr const char* kStateParametersUri = PELMA_URI "#parameters";

// Messages between the plug-in and its editor (atom:eventTransfer on the control and notify
// ports). The editor sends a describe request when it opens; the plug-in answers with one bank
// message per installed bank and a selection message, and sends them again whenever banks are
// re-read or the sound changes.
inline constexpr const char* kUiUri = PELMA_URI "#ui";
inline constexpr const char* kDescribeUri = PELMA_URI "#describe";
// A bank: its number, the number of banks, its name and its patch names (a tuple of strings).
inline constexpr const char* kBankMessageUri = PELMA_URI "#bankNames";
inline constexpr const char* kBankIndexUri = PELMA_URI "#bankIndex";
inline constexpr const char* kBankCountUri = PELMA_URI "#bankCount";
inline constexpr const char* kBankNameUri = PELMA_URI "#bankName";
inline constexpr const char* kPatchNamesUri = PELMA_URI "#patchNames";
// The sound: bank number, patch number and every parameter value (a vector of floats).
inline constexpr const char* kSelectionUri = PELMA_URI "#selection";
inline constexpr const char* kProgramIndexUri = PELMA_URI "#programIndex";
inline constexpr const char* kValuesUri = PELMA_URI "#values";

inline constexpr std::uint32_t kControlPort = 0;  // atom input: MIDI and messages
inline constexpr std::uint32_t kLeftPort = 1;
inline constexpr std::uint32_t kRightPort = 2;
inline constexpr std::uint32_t kFirstParameterPort = 3;
inline constexpr std::uint32_t kBankPort = kFirstParameterPort + kParameterCount;
inline constexpr std::uint32_t kProgramPort = kBankPort + 1;
inline constexpr std::uint32_t kNotifyPort = kProgramPort + 1;  // atom output: to the editor
inline constexpr std::uint32_t kLevelPort = kNotifyPort + 1;    // control output: output peak
inline constexpr std::uint32_t kPortCount = kLevelPort + 1;
// Space the notify port asks of its host: the largest bank message with room to spare.
inline constexpr std::uint32_t kNotifyBufferSize = 16384;

// The factory bank's file in the bundle; it is always bank 0.
inline constexpr const char* kFactoryBankFile = "Factory.plb";

}  // namespace pelma
