// libFuzzer target for the bank catalog reader: any bytes must give products or a reason, never a
// crash, and every product read must have what a download needs. Built and run by scripts/fuzz.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/foundation/Log.h"
#include "platform/store/StoreCatalog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    platform::setLogSink([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  std::string error;
  const auto products =
      platform::parseCatalog(std::string_view(reinterpret_cast<const char*>(data), size),
                             "https://x/c/catalog.json", &error);
  if (!products) {
    if (error.empty()) std::abort();
    return 0;
  }
  for (const auto& product : *products) {
    if (product.identifier.empty() || product.packageSha256.size() != 64 ||
        product.packageUrl.empty())
      std::abort();
    platform::localizedText(product.titles, {"de_CH", "en"});
  }
  return 0;
}
