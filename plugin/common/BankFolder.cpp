#include "common/BankFolder.h"

#include <cstdlib>

namespace pelma {

std::filesystem::path bankFolder() {
  auto environment = [](const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? std::filesystem::path(value) : std::filesystem::path();
  };
  if (auto dir = environment("PELMA_BANKS_DIR"); !dir.empty()) return dir;
  if (auto data = environment("XDG_DATA_HOME"); !data.empty()) return data / "pelma" / "banks";
  auto home = environment("HOME");
  return (home.empty() ? std::filesystem::path("/tmp") : home) / ".local" / "share" / "pelma" /
         "banks";
}

}  // namespace pelma
