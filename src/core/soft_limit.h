#pragma once

#include <cmath>

namespace talvorix {

// A number of size up to 1 as it is, and beyond that 2 sqrt(|x|) - 1 with its sign: a residual that
// passes through it pulls less the further out it is. Continuous with its slope.
inline double soft_limit(double x) {
  const double size = std::abs(x);
  return size > 1.0 ? std::copysign(2.0 * std::sqrt(size) - 1.0, x) : x;
}

inline double soft_limit_slope(double x) {
  const double size = std::abs(x);
  return size > 1.0 ? 1.0 / std::sqrt(size) : 1.0;
}

}  // namespace talvorix
