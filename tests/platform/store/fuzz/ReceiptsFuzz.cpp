// libFuzzer target for the receipts reader: any bytes must give receipts or a reason, never a
// crash; receipts read must write out and read back the same, and the file names made from their
// identifiers must stay inside the folder they are used in. Built and run by scripts/fuzz.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/store/Receipts.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string error;
  const auto receipts =
      platform::parseReceipts(std::string_view(reinterpret_cast<const char*>(data), size), &error);
  if (!receipts) {
    if (error.empty()) std::abort();
    return 0;
  }
  const auto again = platform::parseReceipts(platform::formatReceipts(*receipts), &error);
  if (!again || again->size() != receipts->size()) std::abort();
  for (std::size_t i = 0; i < receipts->size(); ++i) {
    const auto& [transaction, product, finished] = (*receipts)[i];
    if ((*again)[i].transactionIdentifier != transaction ||
        (*again)[i].productIdentifier != product || (*again)[i].finished != finished)
      std::abort();
    const std::string name = platform::fileNameFor(transaction);
    if (name.find_first_not_of(
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_") !=
        std::string::npos)
      std::abort();
  }
  return 0;
}
