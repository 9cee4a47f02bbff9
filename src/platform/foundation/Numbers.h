#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace platform {

// Converts toward zero to a signed 32-bit integer, saturating at the ends of the range (NaN gives
// 0), so that any value a caller stores or a pointer reports gives a defined result.
inline std::int32_t truncateToInt32(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
  if (value <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

}  // namespace platform
