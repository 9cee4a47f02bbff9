#include "platform/foundation/Folders.h"

#include <cstdlib>
#include <string>

#include "common/BankFolder.h"

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

}  // namespace

std::filesystem::path bankFolder() {
  return pelma::bankFolder();
}

std::filesystem::path storeFolder() {
  if (auto dir = environment("PELMA_STORE_DIR"); !dir.empty()) return dir;
  if (auto data = environment("XDG_DATA_HOME"); !data.empty()) {
    return std::filesystem::path(data) / "pelma" / "store";
  }
  return home() / ".local" / "share" / "pelma" / "store";
}

std::filesystem::path documentsFolder() {
  if (auto dir = environment("PELMA_DOCUMENTS_DIR"); !dir.empty()) return dir;
  if (auto documents = environment("XDG_DOCUMENTS_DIR"); !documents.empty()) {
    return std::filesystem::path(documents) / "Pelma";
  }
  return home() / "Documents" / "Pelma";
}

std::string lv2SearchPath() {
  if (auto path = environment("LV2_PATH"); !path.empty()) return path;
  return (home() / ".lv2").string() + ":/usr/local/lib/lv2:/usr/lib/lv2";
}

}  // namespace platform
