#include "banks/BankShopInstall.h"

#include <fmt/format.h>

#include "platform/foundation/Files.h"
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

std::filesystem::path pathOfFileUrl(const std::string& url) {
  if (!url.starts_with("file://")) return url;
  const auto decoded = platform::percentDecoded(url.substr(7));
  return decoded ? *decoded : url.substr(7);
}

std::optional<platform::PropertyDictionary> installPackageContents(
    BankFileOperations& files, const std::filesystem::path& package,
    const std::filesystem::path& container) {
  auto contentInfo = files.readPropertyList(package / "ContentInfo.plist");
  platform::log("DOWNLOADED SOURCE {} ", package.string());
  const auto contents = package / "Contents";
  for (const std::string& name : files.contentsOfDirectory(contents)) {
    platform::log("DIR ENTRY: {}", name);
    files.moveItem(contents / name, container / name);  // a name already there stays
  }
  platform::log("DICT {}", contentInfo ? describe(*contentInfo) : std::string("(null)"));
  return contentInfo;
}

}  // namespace bank_shop
