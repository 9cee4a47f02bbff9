#include "platform/store/Receipts.h"

#include <fmt/format.h>

#include <cstdint>
#include <nlohmann/json.hpp>

#include "platform/foundation/Files.h"

namespace platform {

std::optional<std::vector<Receipt>> parseReceipts(std::string_view json, std::string* error) {
  if (json.size() > kMaximumReceiptsBytes || !jsonNestingWithin(json, 2)) {
    *error = "it is too large or too deeply nested";
    return std::nullopt;
  }
  const auto document = nlohmann::json::parse(json, nullptr, false);
  if (!document.is_array()) {
    *error = "it is not a list of receipts";
    return std::nullopt;
  }
  const auto isIdentifier = [](const nlohmann::json& value) {
    return value.is_string() && !value.get_ref<const std::string&>().empty() &&
           value.get_ref<const std::string&>().size() <= kMaximumIdentifierLength;
  };
  std::vector<Receipt> receipts;
  for (const auto& entry : document) {
    if (!entry.is_object() || !isIdentifier(entry.value("transaction", nlohmann::json())) ||
        !isIdentifier(entry.value("product", nlohmann::json())) ||
        !entry.value("finished", nlohmann::json()).is_boolean()) {
      *error = "receipt " + std::to_string(receipts.size() + 1) + " is malformed";
      return std::nullopt;
    }
    receipts.push_back({entry["transaction"].get<std::string>(),
                        entry["product"].get<std::string>(), entry["finished"].get<bool>()});
  }
  return receipts;
}

std::string formatReceipts(const std::vector<Receipt>& receipts) {
  nlohmann::json document = nlohmann::json::array();
  for (const Receipt& receipt : receipts) {
    document.push_back({{"transaction", receipt.transactionIdentifier},
                        {"product", receipt.productIdentifier},
                        {"finished", receipt.finished}});
  }
  return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

std::string fileNameFor(std::string_view identifier) {
  std::string name;
  for (char c : identifier.substr(0, 48)) {
    const bool kept = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '-' || c == '_';
    name += kept ? c : '_';
  }
  std::uint64_t hash = 14695981039346656037ull;  // FNV-1a: the same name in every run
  for (unsigned char c : identifier)
    hash = (hash ^ c) * 1099511628211ull;
  return fmt::format("{}-{:016x}", name, hash);
}

}  // namespace platform
