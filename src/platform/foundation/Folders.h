#pragma once

// Where the application keeps its files on the desktop. Each folder is made (with its parents)
// when it is asked for and missing, so it exists before anything uses it; a folder that cannot be
// made is reported with one log line, and its path is still returned.

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

// Makes `folder` and its parents when missing. False, with one log line per folder, when it
// cannot be made or something else is in its place.
bool makeFolder(const std::filesystem::path& folder);

// The user's own LV2 folder, ~/.lv2 (not made here): where LV2 hosts save presets.
std::filesystem::path userLv2Folder();

// Where LV2 plug-ins are searched: $LV2_PATH, else the standard Linux locations.
std::string lv2SearchPath();

}  // namespace platform
