#pragma once

// Where the application keeps its files on the desktop.

#include <filesystem>
#include <string>

namespace platform {

// The shared bank folder: $PELMA_BANKS_DIR, else $XDG_DATA_HOME/pelma/banks, else
// ~/.local/share/pelma/banks.
std::filesystem::path bankFolder();

// The bank shop's own files (receipts, downloads, unpacked packages): $PELMA_STORE_DIR, else
// $XDG_DATA_HOME/pelma/store, else ~/.local/share/pelma/store.
std::filesystem::path storeFolder();

// The documents folder for file transfer: $PELMA_DOCUMENTS_DIR, else $XDG_DOCUMENTS_DIR/Pelma,
// else ~/Documents/Pelma.
std::filesystem::path documentsFolder();

// Where LV2 plug-ins are searched: $LV2_PATH, else the standard Linux locations.
std::string lv2SearchPath();

}  // namespace platform
