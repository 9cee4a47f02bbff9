#include "banks/BankIntake.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "platform/foundation/Files.h"
#include "platform/foundation/Log.h"

namespace bank_intake {
namespace {

// The path part of a URL: after the scheme and any authority, before a query or fragment.
std::string_view urlPath(std::string_view url) {
  const std::string scheme = urlScheme(url);
  if (!scheme.empty()) url.remove_prefix(scheme.size() + 1);
  if (url.substr(0, 2) == "//") {
    const auto slash = url.find('/', 2);
    url = slash == std::string_view::npos ? std::string_view{} : url.substr(slash);
  }
  return url.substr(0, url.find_first_of("?#"));
}

}  // namespace

std::string urlScheme(std::string_view url) {
  const auto colon = url.find(':');
  if (colon == std::string_view::npos || colon == 0 ||
      !std::isalpha(static_cast<unsigned char>(url[0])))
    return {};
  for (char c : url.substr(0, colon)) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return {};
  }
  return std::string(url.substr(0, colon));
}

std::string urlLastPathComponent(std::string_view url) {
  std::string_view path = urlPath(url);
  if (path.empty()) return {};
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  if (path == "/") return "/";
  const auto slash = path.rfind('/');
  const std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
  return platform::percentDecoded(last).value_or(std::string(last));
}

std::string pathExtension(std::string_view name) {
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return std::string(name.substr(dot + 1));
}

bool isBankUrl(std::string_view url) {
  if (urlScheme(url) == "pelma") return true;
  return pathExtension(urlLastPathComponent(url)) == "plb";
}

void moveItemsToPlace(BankFileOperations& files, const std::filesystem::path& documents,
                      const std::filesystem::path& container) {
  for (const std::string& name : files.contentsOfDirectory(documents)) {
    if (pathExtension(name) != "plb") continue;
    platform::log("Copying from itunes docs path {}", platform::printable(name));
    const bool copied = files.copyItem(documents / name, container / name);
    // Removed once the bank folder has that name, copied now or kept from before (then the newer
    // copy is discarded); a copy that failed otherwise leaves the bank where it was.
    const auto there = copied ? std::vector<std::string>{} : files.contentsOfDirectory(container);
    if (copied || std::find(there.begin(), there.end(), name) != there.end())
      files.removeItem(documents / name);
  }
}

void writeTestFileAndListContainer(BankFileOperations& files,
                                   const std::filesystem::path& container) {
  files.writeStringPropertyList("TEST", "TEST", container / "test.txt");
  platform::log("list files");
  int position = 0;
  for (const std::string& name : files.contentsOfDirectory(container)) {
    platform::log("File {}: {}", ++position, platform::printable(name));
  }
}

}  // namespace bank_intake
