#include "estimation/kriging.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "covariance/covariance_computer.h"
#include "covariance/mapped_model.h"
#include "estimation/kriging_solver.h"
#include "estimation/target_loop.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <utility>

namespace talvorix {

namespace {

[[gnu::noinline]] void add_multiple(double factor, const double* __restrict values, std::size_t n,
                                    double* __restrict sums) {
  for (std::size_t i = 0; i < n; ++i) {
    sums[i] += factor * values[i];
  }
}

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

// The estimates from each of several lists of data by one factorisation for a target.
template <class System>
std::vector<std::vector<double>> krige_each(const System& system, const Locations& target_locs,
                                            const Neighborhood& neighborhood,
                                            const Locations& data_locs,
                                            const Estimator::DataLists& data_lists,
                                            const CovarianceModel& covs, const SearchLimits& limits,
                                            int n_threads) {
  const std::size_t n_lists = data_lists.size();
  std::vector<std::vector<double>> result(n_lists, std::vector<double>(target_locs.size(), 0.0));
  if (n_lists == 0) {
    return result;
  }
  // A row for each datum, with its value in every list.
  std::vector<double> rows(data_locs.size() * n_lists);
  InterruptPoller poll;
  for (std::size_t list = 0; list < n_lists; ++list) {
    poll();
    require_equal_lengths("data", data_lists[list].size(), "data_locs", data_locs.size());
    for (std::size_t i = 0; i < data_locs.size(); ++i) {
      rows[i * n_lists + list] = data_lists[list][i];
    }
  }
  const NeiGetter getter =
      create_nei_getter({target_locs, neighborhood, data_locs, data_lists.front()}, limits);
  n_threads = check_n_threads(n_threads);
  const MappedModel model(create_cov_computer(covs, -1), data_locs, n_threads);
  visit_targets(target_locs, neighborhood, getter, n_threads, [&](Worker& worker) {
    return [&, sums = std::vector<double>(n_lists),
            solver = std::make_unique<KrigingSolver<System>>(system, model, data_locs,
                                                             data_lists.front(), worker)](
               std::size_t target, const std::vector<std::size_t>& neighbors) mutable {
      if (neighbors.empty()) {
        std::fill(sums.begin(), sums.end(), std::numeric_limits<double>::quiet_NaN());
      } else if (neighbors.size() == 1) {
        std::copy_n(&rows[neighbors.front() * n_lists], n_lists, sums.begin());
      } else {
        const auto weighting = solver->weigh(neighbors, target_locs[target]);
        std::fill(sums.begin(), sums.end(), weighting.constant);
        for (std::size_t i = 0; i < weighting.used.size(); ++i) {
          add_multiple(weighting.weights[i], &rows[weighting.used[i] * n_lists], n_lists,
                       sums.data());
        }
      }
      for (std::size_t list = 0; list < n_lists; ++list) {
        result[list][target] = sums[list];
      }
    };
  });
  return result;
}

template <class System>
Estimator create_estimator(const System& system, CovarianceModel covs, SearchLimits limits) {
  struct Parameters {
    System system;
    CovarianceModel covs;
    SearchLimits limits;
  };
  const auto bound =
      std::make_shared<const Parameters>(Parameters{system, std::move(covs), std::move(limits)});
  return {
      [bound](const Locations& target_locs, const Neighborhood& neighborhood,
              const Locations& data_locs, const std::vector<double>& data, int n_threads) {
        return krige(bound->system, {target_locs, neighborhood, data_locs, data}, bound->covs,
                     bound->limits, n_threads)
            .estimates;
      },
      [bound](const Locations& target_locs, const Neighborhood& neighborhood,
              const Locations& data_locs, const Estimator::DataLists& data_lists, int n_threads) {
        return krige_each(bound->system, target_locs, neighborhood, data_locs, data_lists,
                          bound->covs, bound->limits, n_threads);
      }};
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
  return create_estimator(SimpleSystem{mean}, std::move(covs), std::move(limits));
}

Estimator create_ok_estimator(CovarianceModel covs, SearchLimits limits) {
  return create_estimator(OrdinarySystem{}, std::move(covs), std::move(limits));
}

}  // namespace talvorix
