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
  std::string fileUrl(url);
  if (url.starts_with("pelma:")) fileUrl.replace(0, 5, "file");
  auto path = platform::pathOfFileUrl(fileUrl);
  if (!path) return std::nullopt;
  while (!path->has_filename() && path->has_relative_path())
    *path = path->parent_path();
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
    platform::log("Bank not added: {} is not a file or pelma URL of a local bank",
                  platform::printable(url));
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
