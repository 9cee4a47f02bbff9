#pragma once

// The file operations bank intake and the bank shop's install step need, behind an interface so
// that their logic runs without the file system in tests of its own and with it in the
// application.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/PropertyList.h"

class BankFileOperations {
 public:
  virtual ~BankFileOperations() = default;
  // The names at the top level of `folder`, in the file system's order; none on error.
  virtual std::vector<std::string> contentsOfDirectory(const std::filesystem::path& folder) = 0;
  // Copies a file or a whole folder. Fails, changing nothing, when `to` exists.
  virtual bool copyItem(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // Moves a file or a whole folder. Fails, changing nothing, when `to` exists.
  virtual bool moveItem(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // Removes a file or a whole folder.
  virtual bool removeItem(const std::filesystem::path& path) = 0;
  // The property-list dictionary in `path`; nothing when it is missing or unreadable.
  virtual std::optional<platform::PropertyDictionary> readPropertyList(
      const std::filesystem::path& path) = 0;
  // Writes {key: value} as a property list, atomically, replacing an earlier file.
  virtual bool writeStringPropertyList(const std::string& key, const std::string& value,
                                       const std::filesystem::path& path) = 0;
};

// The real file system (std::filesystem; property lists through libplist).
class FilesystemBankFileOperations final : public BankFileOperations {
 public:
  std::vector<std::string> contentsOfDirectory(const std::filesystem::path& folder) override;
  bool copyItem(const std::filesystem::path& from, const std::filesystem::path& to) override;
  bool moveItem(const std::filesystem::path& from, const std::filesystem::path& to) override;
  bool removeItem(const std::filesystem::path& path) override;
  std::optional<platform::PropertyDictionary> readPropertyList(
      const std::filesystem::path& path) override;
  bool writeStringPropertyList(const std::string& key, const std::string& value,
                               const std::filesystem::path& path) override;
};
