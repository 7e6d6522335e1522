#include "variography/lag_bins.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace talvorix {

void LagBins::reset(const std::vector<double>& distances) {
  n_lags_ = distances.size();
  lags_ = distances;
  std::sort(lags_.begin(), lags_.end(),
            [](double a, double b) { return a < b || (std::isnan(b) && !std::isnan(a)); });
  const double longest = lags_.empty() ? 0.0 : lags_.back();
  lags_.push_back(std::numeric_limits<double>::infinity());
  ruler_.steps_per_unit = last_place / longest;
  if (!(longest > 0.0) || !std::isfinite(ruler_.steps_per_unit)) {
    // Nothing to measure by: every lookup starts at the first lag.
    ruler_.steps_per_unit = 0.0;
  }

  first_lag_.assign(static_cast<std::size_t>(nowhere) + 1, 0);
  std::size_t lag = 0;
  for (std::size_t step = 0; step <= static_cast<std::size_t>(last_place); ++step) {
    while (ruler_.steps_per_unit > 0.0 && lag < n_lags_ &&
           std::floor(ruler_.place(lags_[lag])) < static_cast<double>(step)) {
      ++lag;
    }
    first_lag_[step] = static_cast<std::uint32_t>(lag);
  }
  first_lag_.back() = static_cast<std::uint32_t>(n_lags_);
  bins_.assign((n_lags_ + 1) * n_lanes, Bin());
}

LagBins::Bin LagBins::window(std::size_t lag, int window_size) const {
  if (window_size < 0) {
    return {};
  }
  const auto reach = static_cast<std::size_t>(window_size);
  Bin total;
  for (std::size_t k = lag - std::min(lag, reach); k < n_lags_ && k <= lag + reach; ++k) {
    for (std::size_t lane = 0; lane < n_lanes; ++lane) {
      total.sum += bins_[k * n_lanes + lane].sum;
      total.count += bins_[k * n_lanes + lane].count;
    }
  }
  return total;
}

}  // namespace talvorix
