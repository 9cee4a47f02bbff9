#pragma once

// The text of a small, valid bank file: its name, version 2, and one patch per name, each with
// the cutoff at 500.

#include <string>
#include <vector>

namespace testing_support {

inline std::string bankText(const std::string& name,
                            const std::vector<std::string>& patches = {"Only"}) {
  std::string text = "pelma-bank 1\nname = " + name + "\nversion = 2\n";
  for (const auto& patch : patches)
    text += "[" + patch + "]\ncutoff = 500\n";
  return text + "end\n";
}

}  // namespace testing_support
