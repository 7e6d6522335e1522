#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace talvorix {

// Index of the first of the ascending values that is not below v; their number when none is. No
// branch depends on the values: the search goes wrong about half of them.
inline std::size_t lower_bound(std::span<const double> values, double v) {
  const double* first = values.data();
  std::size_t n = values.size();
  if (n == 0) {
    return 0;
  }
  while (n > 1) {
    const std::size_t half = n / 2;
    first += half * static_cast<std::size_t>(first[half - 1] < v);
    n -= half;
  }
  return static_cast<std::size_t>(first - values.data()) + static_cast<std::size_t>(*first < v);
}

// The same for several at once: their searches wait for memory together rather than in turn.
template <std::size_t n_queries>
std::array<std::size_t, n_queries> lower_bounds(std::span<const double> values, const double* v) {
  std::array<std::size_t, n_queries> found{};
  std::size_t n = values.size();
  if (n == 0) {
    return found;
  }
  const double* const first = values.data();
  while (n > 1) {
    const std::size_t half = n / 2;
    for (std::size_t q = 0; q < n_queries; ++q) {
      found[q] += half * static_cast<std::size_t>(first[found[q] + half - 1] < v[q]);
    }
    n -= half;
  }
  for (std::size_t q = 0; q < n_queries; ++q) {
    found[q] += static_cast<std::size_t>(first[found[q]] < v[q]);
  }
  return found;
}

}  // namespace talvorix
