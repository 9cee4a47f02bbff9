#include "platform/foundation/Folders.h"

#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

#include "common/BankFolder.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

// The value of an environment variable, or empty when it is unset or empty.
std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::string(value) : std::string();
}

std::filesystem::path home() {
  std::string value = environment("HOME");
  return value.empty() ? std::filesystem::path("/tmp") : std::filesystem::path(value);
}

std::filesystem::path dataFolder(const char* name) {
  if (auto data = environment("XDG_DATA_HOME"); !data.empty()) {
    return std::filesystem::path(data) / "pelma" / name;
  }
  return home() / ".local" / "share" / "pelma" / name;
}

}  // namespace

bool makeFolder(const std::filesystem::path& folder) {
  std::error_code error;
  if (std::filesystem::is_directory(folder, error)) return true;
  std::filesystem::create_directories(folder, error);
  if (std::filesystem::is_directory(folder, error)) return true;
  // Said once per folder: the folder getters are asked often.
  static std::mutex mutex;
  static std::set<std::filesystem::path> reported;
  std::lock_guard lock(mutex);
  if (reported.insert(folder).second) {
    log("Cannot make the folder {}: {}", printable(folder.string()),
        error ? error.message() : "something else is in its place");
  }
  return false;
}

std::filesystem::path bankFolder() {
  std::filesystem::path folder = pelma::bankFolder();
  makeFolder(folder);
  return folder;
}

std::filesystem::path storeFolder() {
  auto dir = environment("PELMA_STORE_DIR");
  std::filesystem::path folder = dir.empty() ? dataFolder("store") : std::filesystem::path(dir);
  makeFolder(folder);
  return folder;
}

std::filesystem::path documentsFolder() {
  std::filesystem::path folder = home() / "Documents" / "Pelma";
  if (auto dir = environment("PELMA_DOCUMENTS_DIR"); !dir.empty()) {
    folder = dir;
  } else if (auto documents = environment("XDG_DOCUMENTS_DIR"); !documents.empty()) {
    folder = std::filesystem::path(documents) / "Pelma";
  }
  makeFolder(folder);
  return folder;
}

std::filesystem::path userLv2Folder() {
  return home() / ".lv2";
}

std::string lv2SearchPath() {
  if (auto path = environment("LV2_PATH"); !path.empty()) return path;
  return userLv2Folder().string() + ":/usr/local/lib/lv2:/usr/lib/lv2";
}

}  // namespace platform
