#pragma once

// The test HTTP server (catalog-server.py) serving a folder on 127.0.0.1 at a free port, for as
// long as the object lives. PELMA_CATALOG_SERVER names the script.

#include <signal.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "support/Processes.h"

namespace testing_support {

class CatalogServer {
 public:
  explicit CatalogServer(const std::filesystem::path& folder) {
    const auto portFile = folder.parent_path() / (folder.filename().string() + ".port");
    pid_ = spawn({"python3", PELMA_CATALOG_SERVER, folder.string()}, portFile.string());
    waitFor(
        [&] {
          port_ = readFile(portFile.string());
          return port_.find('\n') != std::string::npos;
        },
        std::chrono::seconds(10));
    port_ = port_.substr(0, port_.find('\n'));
  }
  ~CatalogServer() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitForExit(pid_);
    }
  }
  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + port_ + "/" + path;
  }

 private:
  pid_t pid_ = 0;
  std::string port_;
};

}  // namespace testing_support
