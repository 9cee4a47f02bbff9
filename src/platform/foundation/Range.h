#pragma once

#include <cstdint>

namespace platform {

// A run of consecutive indices: `length` items starting at `location`. Both are unsigned 64-bit,
// so a length computed from a negative count wraps around; code that loops over a range checks
// `location < location + length` first.
struct Range {
  std::uint64_t location = 0;
  std::uint64_t length = 0;

  friend bool operator==(const Range&, const Range&) = default;
};

}  // namespace platform
