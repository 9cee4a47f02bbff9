#include "platform/store/StoreCatalog.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <utility>

#include "platform/foundation/Files.h"
#include "platform/foundation/Log.h"

namespace platform {
namespace {

std::map<std::string, std::string> texts(const nlohmann::json& value) {
  std::map<std::string, std::string> result;
  if (value.is_string()) result["default"] = value.get<std::string>();
  if (value.is_object()) {
    for (const auto& [locale, text] : value.items())
      if (text.is_string()) result[locale] = text.get<std::string>();
  }
  return result;
}

bool isHex(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c); });
}

}  // namespace

std::string resolveUrl(std::string_view base, std::string_view reference) {
  if (reference.find("://") != std::string_view::npos) return std::string(reference);
  const auto scheme = base.find("://");
  if (scheme == std::string_view::npos) return std::string(reference);
  if (reference.starts_with('/')) {
    const auto pathStart = base.find('/', scheme + 3);
    return std::string(base.substr(0, pathStart)) + std::string(reference);
  }
  const auto lastSlash = base.rfind('/');
  return std::string(base.substr(0, lastSlash + 1)) + std::string(reference);
}

std::optional<std::vector<CatalogProduct>> parseCatalog(std::string_view json,
                                                        std::string_view catalogUrl,
                                                        std::string* error) {
  if (json.size() > kMaximumCatalogBytes || !jsonNestingWithin(json, kMaximumCatalogDepth)) {
    *error = "the catalog is too large or too deeply nested";
    return std::nullopt;
  }
  const auto document = nlohmann::json::parse(json, nullptr, false);
  if (document.is_discarded()) {
    *error = "the catalog is not JSON";
    return std::nullopt;
  }
  if (!document.is_object() || !document.contains("products") || !document["products"].is_array()) {
    *error = "the catalog has no \"products\" list";
    return std::nullopt;
  }
  std::vector<CatalogProduct> products;
  for (const auto& entry : document["products"]) {
    CatalogProduct product;
    if (!entry.is_object() || !entry.value("identifier", nlohmann::json()).is_string() ||
        entry["identifier"].get_ref<const std::string&>().empty()) {
      *error = "a catalog product has no identifier";
      return std::nullopt;
    }
    product.identifier = entry["identifier"].get<std::string>();
    const std::string name = "product " + printable(product.identifier, 80);
    const auto& package = entry.value("package", nlohmann::json());
    if (!package.is_object() || !package.value("url", nlohmann::json()).is_string() ||
        !package.value("size", nlohmann::json()).is_number_unsigned() ||
        !package.value("sha256", nlohmann::json()).is_string()) {
      *error = name + " has no package with url, size and sha256";
      return std::nullopt;
    }
    product.packageUrl = resolveUrl(catalogUrl, package["url"].get<std::string>());
    product.packageSize = package["size"].get<std::uint64_t>();
    product.packageSha256 = package["sha256"].get<std::string>();
    std::transform(product.packageSha256.begin(), product.packageSha256.end(),
                   product.packageSha256.begin(), [](unsigned char c) { return std::tolower(c); });
    if (product.packageSha256.size() != 64 || !isHex(product.packageSha256)) {
      *error = name + " has a malformed sha256";
      return std::nullopt;
    }
    // The optional fields, each of its one type when present.
    using Check = bool (*)(const nlohmann::json&);
    const std::pair<const char*, Check> fields[] = {
        {"title", [](const nlohmann::json& v) { return v.is_string() || v.is_object(); }},
        {"description", [](const nlohmann::json& v) { return v.is_string() || v.is_object(); }},
        {"price", [](const nlohmann::json& v) { return v.is_string() || v.is_number(); }},
        {"priceLocale", [](const nlohmann::json& v) { return v.is_string(); }},
        {"free", [](const nlohmann::json& v) { return v.is_boolean(); }}};
    for (const auto& [key, isRightType] : fields) {
      if (entry.contains(key) && !isRightType(entry[key])) {
        *error = name + " has a malformed \"" + key + "\"";
        return std::nullopt;
      }
    }
    product.titles = texts(entry.value("title", nlohmann::json()));
    product.descriptions = texts(entry.value("description", nlohmann::json()));
    const auto& price = entry.value("price", nlohmann::json("0"));
    product.price = price.is_string() ? price.get<std::string>() : price.dump();
    product.priceLocale = entry.value("priceLocale", std::string("en_US"));
    product.free = entry.value("free", false);
    products.push_back(std::move(product));
  }
  return products;
}

std::string localizedText(const std::map<std::string, std::string>& texts,
                          const std::vector<std::string>& languages) {
  for (std::string language : languages) {
    std::replace(language.begin(), language.end(), '-', '_');
    if (auto found = texts.find(language); found != texts.end()) return found->second;
    const auto underscore = language.find('_');
    if (underscore != std::string::npos) {
      if (auto found = texts.find(language.substr(0, underscore)); found != texts.end())
        return found->second;
    }
  }
  if (auto found = texts.find("default"); found != texts.end()) return found->second;
  return texts.empty() ? std::string() : texts.begin()->second;
}

}  // namespace platform
