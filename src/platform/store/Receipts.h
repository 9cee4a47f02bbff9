#pragma once

// The purchase service's receipts file: a JSON list of the purchases made on this machine,
//
//   [{"transaction": "1732540000000-42", "product": "org.example.bank.strings", "finished": true}]
//
// read as hostile data (bounded, every field of its type) and written whole.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct Receipt {
  std::string transactionIdentifier;
  std::string productIdentifier;
  bool finished = false;
};

inline constexpr std::size_t kMaximumReceiptsBytes = 4 << 20;
inline constexpr std::size_t kMaximumIdentifierLength = 256;

// The receipts, in file order; nothing, with a one-line reason in `error`, when `json` is larger
// than kMaximumReceiptsBytes, not a list of receipts, or a receipt has a field missing, of the
// wrong type, or an identifier empty or longer than kMaximumIdentifierLength.
std::optional<std::vector<Receipt>> parseReceipts(std::string_view json, std::string* error);

std::string formatReceipts(const std::vector<Receipt>& receipts);

// A file name made from an identifier: letters, digits, '-' and '_' kept (others become '_'), cut
// short, and followed by a hash of the whole identifier, so that two identifiers never share a
// name and no name leaves the folder it is used in ("../x" becomes "___x-...").
std::string fileNameFor(std::string_view identifier);

}  // namespace platform
