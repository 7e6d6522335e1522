#include "simulation/conditioning.h"

#include "core/arguments.h"

#include <cstddef>

namespace talvorix {

namespace {

std::vector<double> residuals_at_data(const Locations& data_locs, const std::vector<double>& data,
                                      const SpatialFunction& simulator, int n_threads) {
  std::vector<double> residuals = evaluate(simulator, data_locs, n_threads);
  for (std::size_t i = 0; i < data.size(); ++i) {
    residuals[i] = data[i] - residuals[i];
  }
  return residuals;
}

void add_field(const SpatialFunction& simulator, const Locations& target_locs, int n_threads,
               std::vector<double>& estimates) {
  const std::vector<double> field = evaluate(simulator, target_locs, n_threads);
  for (std::size_t i = 0; i < field.size(); ++i) {
    estimates[i] = field[i] + estimates[i];
  }
}

}  // namespace

std::vector<double> simulate(const Estimator& estimator, const Locations& target_locs,
                             const Neighborhood& neighborhood, const Locations& data_locs,
                             const std::vector<double>& data, const SpatialFunction& simulator,
                             int n_threads) {
  require_equal_lengths("data", data.size(), "data_locs", data_locs.size());
  std::vector<double> result =
      estimator(target_locs, neighborhood, data_locs,
                residuals_at_data(data_locs, data, simulator, n_threads), n_threads);
  add_field(simulator, target_locs, n_threads, result);
  return result;
}

std::vector<std::vector<double>> simulate(const Estimator& estimator, const Locations& target_locs,
                                          const Neighborhood& neighborhood,
                                          const Locations& data_locs,
                                          const std::vector<double>& data,
                                          const std::vector<SpatialFunction>& simulators,
                                          int n_threads) {
  require_equal_lengths("data", data.size(), "data_locs", data_locs.size());
  Estimator::DataLists residuals;
  residuals.reserve(simulators.size());
  for (const SpatialFunction& simulator : simulators) {
    residuals.push_back(residuals_at_data(data_locs, data, simulator, n_threads));
  }
  std::vector<std::vector<double>> results =
      estimator.of_each(target_locs, neighborhood, data_locs, residuals, n_threads);
  for (std::size_t i = 0; i < results.size(); ++i) {
    add_field(simulators[i], target_locs, n_threads, results[i]);
  }
  return results;
}

}  // namespace talvorix
