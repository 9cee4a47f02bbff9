#pragma once

// The registry of installed sound banks: the banks in the bank folder (platform::bankFolder(),
// asked afresh each time), known by the name inside each bank. Main thread only.
//
// Two banks with the same name: the one whose file or folder name sorts first (byte order) wins,
// the other is skipped with one log line. The bank folder stays flat; the registry never renames
// or overwrites anything in it.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// One installed bank, as the screens list it.
struct KRInstalledBank {
  std::string name;
  std::string version;
  std::vector<std::string> patchNames;
  std::filesystem::path location;
};

// Posted on the main thread when banks were added to the bank folder (the sender is who added
// them): the instrument and the screens that list banks read them again.
inline constexpr const char* kBanksUpdatedNotification = "BanksUpdated";

class KRBankManager {
 public:
  // The one registry of the process; it reads the bank folder when first asked for.
  static KRBankManager& sharedInstance();

  // Re-reads the bank folder.
  void refresh();

  // True when an installed bank has exactly this name.
  bool containsBankWithName(std::string_view name) const;

  // Installs the bank a URL names and refreshes. Accepted: a file URL of a .plb file or folder
  // (file:///path/Bank.plb), and the same path with the pelma scheme (pelma:///path/Bank.plb or
  // pelma:/path/Bank.plb). The bank is checked, then copied into the bank folder under its own
  // entry name. Anything else, an unreadable bank, an entry name or bank name already installed:
  // one log line and nothing changes.
  void addBankFromUrl(std::string_view url);

  // The installed banks, sorted by entry name.
  const std::vector<KRInstalledBank>& installedBanks() const { return banks_; }

  KRBankManager() = default;  // tests make their own; the app uses sharedInstance()

 private:
  std::vector<KRInstalledBank> banks_;
};
