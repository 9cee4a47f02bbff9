#pragma once

// The folder that holds the installed banks, shared by the host and every copy of the plug-in:
// $PELMA_BANKS_DIR, else $XDG_DATA_HOME/pelma/banks, else ~/.local/share/pelma/banks.

#include <filesystem>

namespace pelma {

std::filesystem::path bankFolder();

}  // namespace pelma
