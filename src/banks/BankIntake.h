#pragma once

// How bank files come in from outside: moved from the documents folder into the bank folder at
// launch, and opened from other programs as URLs (a file URL ending in ".plb", or any "pelma:"
// URL). The file system is reached through BankFileOperations. Main thread.

#include <filesystem>
#include <string>
#include <string_view>

#include "banks/BankFileOperations.h"

namespace bank_intake {

// The URL's scheme ("file", "pelma"), or empty when it has none.
std::string urlScheme(std::string_view url);
// The last component of the URL's path, percent-decoded ("/" for the root); empty when the URL
// has no path.
std::string urlLastPathComponent(std::string_view url);
// The text after the last dot of a name, or empty.
std::string pathExtension(std::string_view name);

// A "pelma" URL whatever its path; otherwise a URL whose last path component has the extension
// "plb", exactly (".PLB" is not a bank).
bool isBankUrl(std::string_view url);

// Every top-level entry of `documents` whose extension is exactly "plb" is copied to `container`
// under its own name and then removed from `documents` once `container` has that name: copied
// now, or there already (that entry stays as it was and the newer copy is discarded). A copy that
// failed otherwise (no bank folder, a link, a full disk) removes nothing. Logs each name it
// copies.
void moveItemsToPlace(BankFileOperations& files, const std::filesystem::path& documents,
                      const std::filesystem::path& container);

// Rewrites "test.txt" in the container ({TEST: TEST}) and logs the container's listing.
void writeTestFileAndListContainer(BankFileOperations& files,
                                   const std::filesystem::path& container);

}  // namespace bank_intake
