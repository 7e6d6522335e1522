#pragma once

#include "core/interrupt.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace talvorix {

// n draws, none of them NaN, ascending.
template <class Draw>
std::vector<double> ascending_draws(std::size_t n, InterruptPoller& poll, Draw&& draw) {
  std::vector<double> values;
  values.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    poll();
    values.push_back(draw());
  }
  std::sort(values.begin(), values.end(), [&](double a, double b) {
    poll();
    return a < b;
  });
  return values;
}

}  // namespace talvorix
