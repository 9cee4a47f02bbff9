#pragma once

// A fresh folder under the system's temporary directory, removed with everything in it when the
// object goes away. Optionally made the bank folder through PELMA_BANKS_DIR meanwhile.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class TemporaryFolder {
 public:
  explicit TemporaryFolder(bool asBankFolder = false) : asBankFolder_(asBankFolder) {
    std::string pattern = (std::filesystem::temp_directory_path() / "pelma-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
    if (asBankFolder_) ::setenv("PELMA_BANKS_DIR", path_.c_str(), 1);
  }
  ~TemporaryFolder() {
    if (asBankFolder_) ::unsetenv("PELMA_BANKS_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Writes a file (creating folders on the way) and returns its path.
  std::filesystem::path write(const std::filesystem::path& relative,
                              const std::string& text) const {
    auto file = path_ / relative;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

 private:
  bool asBankFolder_;
  std::filesystem::path path_;
};
