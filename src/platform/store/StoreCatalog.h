#pragma once

// The bank catalog a store serves: catalog.json, next to one zip package per product.
//
//   {"products": [{"identifier": "org.example.bank.strings",
//                  "title": {"default": "Strings", "de": "Streicher"},
//                  "description": {"default": "Warm string pads"},
//                  "price": "1.99", "priceLocale": "en_US", "free": false,
//                  "package": {"url": "strings.zip", "size": 1234, "sha256": "9f86..."}}]}
//
// Titles and descriptions are chosen by the user's languages ("de_CH", then "de"), falling back to
// "default". A package URL is taken relative to the catalog's own URL.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct CatalogProduct {
  std::string identifier;
  std::map<std::string, std::string> titles;        // by locale name, and "default"
  std::map<std::string, std::string> descriptions;  // the same
  std::string price;                                // a decimal number as text: "1.99"
  std::string priceLocale;                          // the locale its currency is shown in: "de_DE"
  bool free = false;                                // bought without a payment sheet
  std::string packageUrl;                           // absolute
  std::uint64_t packageSize = 0;
  std::string packageSha256;  // lower-case hex
};

inline constexpr std::size_t kMaximumCatalogBytes = 1 << 20;
inline constexpr int kMaximumCatalogDepth = 16;

// The products, in catalog order; nothing, with a one-line reason in `error`, when `json` is not a
// catalog: larger than kMaximumCatalogBytes or nested deeper than kMaximumCatalogDepth, not JSON,
// no product list, a product without an identifier or a package, or a field of the wrong type.
std::optional<std::vector<CatalogProduct>> parseCatalog(std::string_view json,
                                                        std::string_view catalogUrl,
                                                        std::string* error);

// `texts` for the first of `languages` ("de_CH", "de-CH" or "de") found, else "default", else any.
std::string localizedText(const std::map<std::string, std::string>& texts,
                          const std::vector<std::string>& languages);

// `reference` resolved against `base` the way a browser does for the cases a catalog uses: an
// absolute URL stays, "/x" replaces the path, anything else replaces the last path segment.
std::string resolveUrl(std::string_view base, std::string_view reference);

}  // namespace platform
