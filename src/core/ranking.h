#pragma once

#include "core/interrupt.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <span>
#include <vector>

namespace talvorix {

// Orders positions of values from the highest to the lowest; of equal ones the earlier comes first,
// and NaN come last.
struct DescendingRank {
  std::span<const double> values;

  bool operator()(std::size_t a, std::size_t b) const {
    const bool a_is_nan = std::isnan(values[a]);
    const bool b_is_nan = std::isnan(values[b]);
    if (a_is_nan != b_is_nan) {
      return b_is_nan;
    }
    return values[a] > values[b] || (!(values[b] > values[a]) && a < b);
  }
};

inline std::vector<std::size_t> descending_order(const std::vector<double>& values) {
  std::vector<std::size_t> order(values.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  InterruptPoller poll;
  const DescendingRank ranks_before{values};
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    poll();
    return ranks_before(a, b);
  });
  return order;
}

}  // namespace talvorix
