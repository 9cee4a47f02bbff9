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

inline constexpr std::uint32_t kControlPort = 0;  // atom input: MIDI and messages
inline constexpr std::uint32_t kLeftPort = 1;
inline constexpr std::uint32_t kRightPort = 2;
inline constexpr std::uint32_t kFirstParameterPort = 3;
inline constexpr std::uint32_t kBankPort = kFirstParameterPort + kParameterCount;
inline constexpr std::uint32_t kProgramPort = kBankPort + 1;
inline constexpr std::uint32_t kPortCount = kProgramPort + 1;

// The factory bank's file in the bundle; it is always bank 0.
inline constexpr const char* kFactoryBankFile = "Factory.plb";

}  // namespace pelma
