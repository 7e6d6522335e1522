#include "core/guide_table.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace talvorix {

GuideTable::GuideTable(std::span<const double> values) {
  // Written so that NaN counts as not ascending.
  const bool ascending = !values.empty() && values.front() >= 0.0 &&
                         std::adjacent_find(values.begin(), values.end(),
                                            std::not_fn(std::less_equal<>())) == values.end();
  n_parts_ = ascending ? static_cast<std::int64_t>(values.size()) : 0;
  begins_.assign(static_cast<std::size_t>(n_parts_) + 2, 0);
  if (!ascending) {
    begins_.back() = values.size();
    return;
  }
  for (const double value : values) {
    ++begins_[part_of(value) + 1];
  }
  std::partial_sum(begins_.begin(), begins_.end(), begins_.begin());
}

}  // namespace talvorix
