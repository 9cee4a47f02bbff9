#pragma once

// Installing a downloaded bank package: its "ContentInfo.plist" read, every top-level entry of
// its "Contents" folder moved into the bank folder under its own name (a name already there is
// left as it was, and the new one stays in the package), with the log lines of each step. The
// file system is reached through BankFileOperations. Main thread.

#include <filesystem>
#include <optional>
#include <string>

#include "banks/BankFileOperations.h"

namespace bank_shop {

struct InstalledPackage {
  // What ContentInfo.plist holds; nothing when it was missing or unreadable.
  std::optional<platform::PropertyDictionary> contentInfo;
  // True when the package had contents and every entry of it is now in the bank folder (moved
  // there, or there already under that name). Only then is the purchase delivered.
  bool inBankFolder = false;
};

// Reads the package's ContentInfo.plist, logs "DOWNLOADED SOURCE", moves the Contents entries
// (a "DIR ENTRY" line each) and logs "DICT" with what was read.
InstalledPackage installPackageContents(BankFileOperations& files,
                                        const std::filesystem::path& package,
                                        const std::filesystem::path& container);

// A property-list value as one line of text: {Files = ("a.plb", "b.plb")}.
std::string describe(const platform::PropertyValue& value);

}  // namespace bank_shop
