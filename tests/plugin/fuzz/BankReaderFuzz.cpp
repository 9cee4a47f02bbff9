// libFuzzer target for the bank reader: any bytes must give a bank or nothing, never a crash, and
// every bank read must write out and read back the same. Built and run by scripts/fuzz-banks.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "bank/Bank.h"
#include "platform/foundation/Log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    platform::setLogSink([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  pelma::parseParameterValues(text);
  auto bank = pelma::parseBank(text, "fuzz", "fuzz");
  if (!bank) return 0;
  auto again = pelma::parseBank(pelma::formatBank(*bank), "", "again");
  if (!again || again->name != bank->name || again->patches.size() != bank->patches.size()) {
    std::abort();
  }
  for (std::size_t i = 0; i < bank->patches.size(); ++i) {
    if (again->patches[i].name != bank->patches[i].name ||
        again->patches[i].values != bank->patches[i].values) {
      std::abort();
    }
  }
  return 0;
}
