#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace talvorix {

// Truncates to a 32-bit integer; numbers beyond its ends become the ends, and NaN 0.
inline std::int32_t truncated_to_int(double value) {
  constexpr double least = std::numeric_limits<std::int32_t>::min();
  constexpr double most = std::numeric_limits<std::int32_t>::max();
  return std::isnan(value) ? 0 : static_cast<std::int32_t>(std::clamp(value, least, most));
}

}  // namespace talvorix
