#pragma once

// The text of a small, valid bank file: its name, version 2, and one patch per name, each with
// the same cutoff (500 unless a test needs another).

#include <string>
#include <vector>

namespace testing_support {

inline std::string bankText(const std::string& name,
                            const std::vector<std::string>& patches = {"Only"}, int cutoff = 500) {
  std::string text = "pelma-bank 1\nname = " + name + "\nversion = 2\n";
  for (const auto& patch : patches)
    text += "[" + patch + "]\ncutoff = " + std::to_string(cutoff) + "\n";
  return text + "end\n";
}

}  // namespace testing_support
