#include <fcntl.h>
#include <stdio.h>

#include <cerrno>
#include <system_error>

#include "banks/BankFileOperations.h"
#include "platform/foundation/Files.h"
#include "platform/foundation/PropertyListFile.h"

namespace fs = std::filesystem;

namespace {

// A package's ContentInfo.plist lists a few file names.
constexpr std::uint64_t kMaximumContentInfoBytes = 1 << 20;

}  // namespace

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

bool FilesystemBankFileOperations::moveItem(const fs::path& from, const fs::path& to) {
  // RENAME_NOREPLACE: an existing destination is never replaced, even one made a moment ago.
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EXDEV) return false;
  // Another file system: copied beside the destination and renamed, then the source removed.
  if (!platform::copyItemWithoutReplacing(from, to)) return false;
  std::error_code error;
  fs::remove_all(from, error);
  return true;
}

std::optional<platform::PropertyDictionary> FilesystemBankFileOperations::readPropertyList(
    const fs::path& path) {
  return platform::readPropertyList(path, kMaximumContentInfoBytes);
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
