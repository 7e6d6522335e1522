#pragma once

#include "core/interrupt.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <vector>

namespace talvorix {

// Positions of the values from the highest to the lowest; of equal ones the earlier comes first,
// and NaN come last.
inline std::vector<std::size_t> descending_order(const std::vector<double>& values) {
  std::vector<std::size_t> order(values.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  InterruptPoller poll;
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    poll();
    const bool a_is_nan = std::isnan(values[a]);
    const bool b_is_nan = std::isnan(values[b]);
    if (a_is_nan != b_is_nan) {
      return b_is_nan;
    }
    return values[a] > values[b] || (!(values[b] > values[a]) && a < b);
  });
  return order;
}

}  // namespace talvorix
