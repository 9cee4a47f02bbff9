#include "frameworks/pelma/KRBankManager.h"

#include <algorithm>
#include <optional>
#include <system_error>

#include "bank/Bank.h"
#include "platform/foundation/Files.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"

namespace {

// The local path a file: or pelma: URL names, or nothing. Both schemes take an absolute path,
// with an empty or "localhost" authority ("file:///a/b.plb", "pelma://localhost/a/b.plb") or
// none ("pelma:/a/b.plb").
std::optional<std::filesystem::path> localPath(std::string_view url) {
  auto colon = url.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view scheme = url.substr(0, colon);
  if (scheme != "file" && scheme != "pelma") return std::nullopt;
  std::string_view rest = url.substr(colon + 1);
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    auto slash = rest.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    std::string_view host = rest.substr(0, slash);
    if (!host.empty() && host != "localhost") return std::nullopt;
    rest.remove_prefix(slash);
  }
  rest = rest.substr(0, rest.find_first_of("?#"));
  if (rest.empty() || rest.front() != '/') return std::nullopt;
  auto decoded = platform::percentDecoded(rest);
  if (!decoded) return std::nullopt;
  std::filesystem::path path(*decoded);
  while (!path.has_filename() && path.has_relative_path())
    path = path.parent_path();
  return path;
}

}  // namespace

KRBankManager& KRBankManager::sharedInstance() {
  static KRBankManager* instance = [] {
    auto* manager = new KRBankManager();  // lives as long as the process
    manager->refresh();
    return manager;
  }();
  return *instance;
}

void KRBankManager::refresh() {
  banks_.clear();
  for (auto& bank : pelma::readBankFolder(platform::bankFolder())) {
    KRInstalledBank installed{
        std::move(bank.name), std::move(bank.version), {}, std::move(bank.location)};
    for (auto& patch : bank.patches)
      installed.patchNames.push_back(std::move(patch.name));
    banks_.push_back(std::move(installed));
  }
}

bool KRBankManager::containsBankWithName(std::string_view name) const {
  return std::any_of(banks_.begin(), banks_.end(),
                     [&](const KRInstalledBank& bank) { return bank.name == name; });
}

void KRBankManager::addBankFromUrl(std::string_view url) {
  auto source = localPath(url);
  if (!source) {
    platform::log("Bank not added: {} is not a file or pelma URL of a local bank", url);
    return;
  }
  std::string entryName = source->filename().string();
  if (!pelma::isBankEntryName(entryName)) {
    platform::log("Bank not added: {} is not a .plb file or folder", source->string());
    return;
  }
  auto bank = pelma::readBank(*source);  // logs why when it is not a bank
  if (!bank) return;
  refresh();
  if (containsBankWithName(bank->name)) {
    platform::log("Bank not added: a bank named \"{}\" is already installed", bank->name);
    return;
  }
  auto folder = platform::bankFolder();
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  auto destination = folder / entryName;
  if (std::filesystem::exists(destination, error)) {
    platform::log("Bank not added: {} already exists", destination.string());
    return;
  }
  if (!platform::copyItemWithoutReplacing(*source, destination)) {
    platform::log("Bank not added: {} could not be copied to {}", source->string(),
                  destination.string());
    return;
  }
  refresh();
}
