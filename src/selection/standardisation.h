#pragma once

#include <cmath>
#include <vector>

namespace talvorix {

// Values less their mean, in standard deviations. Constant ones become NaN: nothing guards it.
inline void standardise(std::vector<double>& values) {
  const auto n = static_cast<double>(values.size());
  double mean = 0.0;
  for (const double value : values) {
    mean += value / n;
  }
  double variance = 0.0;
  for (const double value : values) {
    variance += (value - mean) * (value - mean) / n;
  }
  const double deviation = std::sqrt(variance);
  for (double& value : values) {
    value = (value - mean) / deviation;
  }
}

}  // namespace talvorix
