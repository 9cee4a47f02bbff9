// Banks on disk: reading single banks and whole bank folders, writing bank files.

#include <algorithm>
#include <fstream>
#include <iterator>
#include <system_error>

#include "bank/Bank.h"
#include "common/Messages.h"

namespace pelma {
namespace {

// Real banks are a few kilobytes; anything far larger is not one of ours.
constexpr std::uintmax_t kMaxBankFileSize = 4 * 1024 * 1024;

std::optional<std::string> readSmallFile(const std::filesystem::path& file) {
  std::error_code error;
  auto size = std::filesystem::file_size(file, error);
  if (error || size > kMaxBankFileSize) return std::nullopt;
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return text;
}

}  // namespace

bool isBankEntryName(std::string_view name) {
  return name.size() > kBankExtension.size() && name.front() != '.' &&
         name.substr(name.size() - kBankExtension.size()) == kBankExtension;
}

std::optional<Bank> readBank(const std::filesystem::path& entry) {
  std::string entryName = entry.filename().string();
  std::string stem = isBankEntryName(entryName)
                         ? entryName.substr(0, entryName.size() - kBankExtension.size())
                         : entryName;
  std::error_code error;
  bool isFolder = std::filesystem::is_directory(entry, error);
  auto file = isFolder ? entry / kFolderBankFile : entry;
  auto text = readSmallFile(file);
  if (!text) {
    message("Bank {} skipped: {} cannot be read", entry.string(), file.filename().string());
    return std::nullopt;
  }
  auto bank = parseBank(*text, stem, entry.string());
  if (bank) bank->location = entry;
  return bank;
}

void removeDuplicateBanks(std::vector<Bank>& banks) {
  std::vector<Bank> kept;
  kept.reserve(banks.size());
  for (Bank& bank : banks) {
    auto first = std::find_if(kept.begin(), kept.end(),
                              [&](const Bank& other) { return other.name == bank.name; });
    if (first != kept.end()) {
      message("Bank {} skipped: the bank named \"{}\" in {} comes first", bank.location.string(),
              bank.name, first->location.string());
      continue;
    }
    kept.push_back(std::move(bank));
  }
  banks = std::move(kept);
}

std::vector<Bank> readBankFolder(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error)) {
    std::string name = it->path().filename().string();
    if (isBankEntryName(name)) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  std::vector<Bank> banks;
  for (const std::string& name : names) {
    if (auto bank = readBank(folder / name)) banks.push_back(std::move(*bank));
  }
  removeDuplicateBanks(banks);
  return banks;
}

}  // namespace pelma
