#include <system_error>

#include "banks/BankFileOperations.h"
#include "platform/foundation/Files.h"
#include "platform/foundation/PropertyListFile.h"

namespace fs = std::filesystem;

std::vector<std::string> FilesystemBankFileOperations::contentsOfDirectory(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  fs::directory_iterator entries(folder, error);
  if (error) return {};
  for (const auto& entry : entries)
    names.push_back(entry.path().filename().string());
  return names;
}

bool FilesystemBankFileOperations::copyItem(const fs::path& from, const fs::path& to) {
  return platform::copyItemWithoutReplacing(from, to);
}

bool FilesystemBankFileOperations::removeItem(const fs::path& path) {
  std::error_code error;
  return fs::remove_all(path, error) > 0 && !error;
}

bool FilesystemBankFileOperations::writeStringPropertyList(const std::string& key,
                                                           const std::string& value,
                                                           const fs::path& path) {
  return platform::writePropertyList({{key, platform::PropertyValue{value}}}, path);
}
