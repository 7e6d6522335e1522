#include "simulation/conditioning.h"

#include "core/arguments.h"

#include <cstddef>

namespace talvorix {

std::vector<double> simulate(const Estimator& estimator, const Locations& target_locs,
                             const Neighborhood& neighborhood, const Locations& data_locs,
                             const std::vector<double>& data, const SpatialFunction& simulator,
                             int n_threads) {
  require_equal_lengths("data", data.size(), "data_locs", data_locs.size());
  std::vector<double> residuals = evaluate(simulator, data_locs, n_threads);
  for (std::size_t i = 0; i < data.size(); ++i) {
    residuals[i] = data[i] - residuals[i];
  }
  const std::vector<double> estimates =
      estimator(target_locs, neighborhood, data_locs, residuals, n_threads);
  std::vector<double> result = evaluate(simulator, target_locs, n_threads);
  for (std::size_t i = 0; i < result.size(); ++i) {
    result[i] += estimates[i];
  }
  return result;
}

}  // namespace talvorix
