#include "estimation/kriging.h"

#include "covariance/covariance_computer.h"
#include "covariance/mapped_model.h"
#include "estimation/kriging_solver.h"
#include "estimation/target_loop.h"

#include <memory>
#include <utility>

namespace talvorix {

namespace {

template <class System>
KrigingResult krige(const System& system, const EstimationInput& input, const CovarianceModel& covs,
                    const SearchLimits& limits, int n_threads) {
  const NeiGetter getter = create_nei_getter(input, limits);
  const std::size_t n_targets = input.target_locs.size();
  KrigingResult result{std::vector<double>(n_targets, 0.0), std::vector<double>(n_targets, 0.0)};
  if (n_targets == 0) {
    return result;
  }
  n_threads = check_n_threads(n_threads);
  const MappedModel model(create_cov_computer(covs, -1), input.data_locs, n_threads);
  const auto make_method = [&](Worker& worker) {
    return [solver = std::make_unique<KrigingSolver<System>>(system, model, input.data_locs,
                                                             input.data, worker)](
               const std::vector<std::size_t>& neighbors, const Vector3& target) {
      return solver->solve(neighbors, target);
    };
  };
  estimate_targets(input, getter, n_threads, make_method,
                   [&](std::size_t i, const Estimate& estimate) {
                     result.estimates[i] = estimate.value;
                     result.variances[i] = estimate.variance;
                   });
  return result;
}

}  // namespace

KrigingResult compute_simple_kriging(const EstimationInput& input, const CovarianceModel& covs,
                                     double mean, const SearchLimits& limits, int n_threads) {
  return krige(SimpleSystem{mean}, input, covs, limits, n_threads);
}

KrigingResult compute_ordinary_kriging(const EstimationInput& input, const CovarianceModel& covs,
                                       const SearchLimits& limits, int n_threads) {
  return krige(OrdinarySystem{}, input, covs, limits, n_threads);
}

Estimator create_sk_estimator(CovarianceModel covs, double mean, SearchLimits limits) {
  return [covs = std::move(covs), mean, limits = std::move(limits)](
             const Locations& target_locs, const Neighborhood& neighborhood,
             const Locations& data_locs, const std::vector<double>& data, int n_threads) {
    return compute_simple_kriging({target_locs, neighborhood, data_locs, data}, covs, mean, limits,
                                  n_threads)
        .estimates;
  };
}

Estimator create_ok_estimator(CovarianceModel covs, SearchLimits limits) {
  return [covs = std::move(covs), limits = std::move(limits)](
             const Locations& target_locs, const Neighborhood& neighborhood,
             const Locations& data_locs, const std::vector<double>& data, int n_threads) {
    return compute_ordinary_kriging({target_locs, neighborhood, data_locs, data}, covs, limits,
                                    n_threads)
        .estimates;
  };
}

}  // namespace talvorix
