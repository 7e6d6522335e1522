#pragma once

#include "core/lower_bound.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace talvorix {

// Finds in ascending values from 0 to about 1, such as cumulated weights, what lower_bound finds,
// but from where the values of each of many equal parts of [0, 1) begin (Chen and Asau 1974). That
// is a few steps on average. Values that do not ascend are searched whole.
class GuideTable {
 public:
  GuideTable() = default;
  explicit GuideTable(std::span<const double> values);

  // The values must be those that the table was made from, and u in [0, 1).
  std::size_t lower_bound(std::span<const double> values, double u) const {
    const std::size_t part = part_of(u);
    const std::size_t begin = begins_[part];
    return begin + talvorix::lower_bound(values.subspan(begin, begins_[part + 1] - begin), u);
  }

 private:
  // Rounding keeps the order, so values of an earlier part are less than u and those of a later one
  // greater, wherever exactly the parts meet. What lies at 1 or above is one part more.
  std::size_t part_of(double value) const {
    const double position = value * static_cast<double>(n_parts_);
    return static_cast<std::size_t>(
        position < static_cast<double>(n_parts_) ? static_cast<std::int64_t>(position) : n_parts_);
  }

  std::int64_t n_parts_ = 0;
  std::vector<std::size_t> begins_{0, 0};
};

}  // namespace talvorix
