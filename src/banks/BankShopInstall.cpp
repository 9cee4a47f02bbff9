#include "banks/BankShopInstall.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/foundation/Log.h"

namespace bank_shop {

std::string describe(const platform::PropertyValue& value) {
  struct Describer {
    std::string operator()(bool v) const { return v ? "1" : "0"; }
    std::string operator()(std::int64_t v) const { return std::to_string(v); }
    std::string operator()(double v) const { return fmt::format("{}", v); }
    std::string operator()(const std::string& v) const { return '"' + v + '"'; }
    std::string operator()(const platform::PropertyData& v) const {
      return fmt::format("<{} bytes>", v.size());
    }
    std::string operator()(const platform::PropertyArray& v) const {
      std::string text = "(";
      for (std::size_t i = 0; i < v.size(); ++i)
        text += (i ? ", " : "") + describe(v[i]);
      return text + ")";
    }
    std::string operator()(const platform::PropertyDictionary& v) const {
      std::string text = "{";
      bool first = true;
      for (const auto& [key, item] : v) {
        text += (first ? "" : "; ") + key + " = " + describe(item);
        first = false;
      }
      return text + "}";
    }
  };
  return std::visit(Describer{}, value.value);
}

InstalledPackage installPackageContents(BankFileOperations& files,
                                        const std::filesystem::path& package,
                                        const std::filesystem::path& container) {
  InstalledPackage installed{files.readPropertyList(package / "ContentInfo.plist")};
  platform::log("DOWNLOADED SOURCE {} ", platform::printable(package.string()));
  const auto contents = package / "Contents";
  const auto names = files.contentsOfDirectory(contents);
  for (const std::string& name : names) {
    platform::log("DIR ENTRY: {}", platform::printable(name));
    files.moveItem(contents / name, container / name);  // a name already there stays
  }
  const auto there = files.contentsOfDirectory(container);
  installed.inBankFolder =
      !names.empty() && std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        return std::find(there.begin(), there.end(), name) != there.end();
      });
  platform::log("DICT {}", installed.contentInfo
                               ? platform::printable(describe(*installed.contentInfo))
                               : std::string("(null)"));
  return installed;
}

}  // namespace bank_shop
