// Entry point of Pelma host.

#include <fmt/format.h>

#include <cstdio>
#include <string_view>

#include "platform/foundation/Folders.h"

namespace {

constexpr std::string_view kInstrumentName = "Pelma";

void printUsage() {
  fmt::print(
      "Usage: pelma [--version] [--help]\n"
      "Hosts the LV2 instrument \"{}\" and plays it from the keyboard, MIDI and the step "
      "sequencer.\n",
      kInstrumentName);
}

void printWhatWillLoad() {
  fmt::print("Instrument: \"{}\" (LV2 instrument plug-in)\n", kInstrumentName);
  fmt::print("LV2 search path: {}\n", platform::lv2SearchPath());
  fmt::print("Bank folder: {}\n", platform::bankFolder().string());
  fmt::print("Documents folder: {}\n", platform::documentsFolder().string());
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--version") {
      fmt::print("pelma {}\n", PELMA_VERSION);
      return 0;
    }
    if (argument == "--help" || argument == "-h") {
      printUsage();
      return 0;
    }
    fmt::print(stderr, "pelma: unknown option {}\n", argument);
    printUsage();
    return 2;
  }
  fmt::print("Pelma host {}\n", PELMA_VERSION);
  printWhatWillLoad();
  fmt::print("The audio engine and screens are not built yet; nothing to play.\n");
  return 0;
}
