#include "estimation/ensemble_estimation.h"

#include "core/interrupt.h"
#include "core/weight_power.h"
#include "covariance/covariance_computer.h"
#include "covariance/mapped_model.h"
#include "estimation/kriging_solver.h"
#include "estimation/solver_pool.h"
#include "estimation/target_loop.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <utility>

namespace talvorix {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

struct Scale {
  double mean = 0.0;
  double deviation = 1.0;
};

// Turns values into what they are above their mean, in standard deviations. Unlike where models are
// validated, sums are divided as a whole, so that constant values have a deviation of 0 and become
// NaN: nothing guards it.
Scale normalize(std::vector<double>& values) {
  const auto n = static_cast<double>(values.size());
  double sum = 0.0;
  for (const double value : values) {
    sum += value;
  }
  const double mean = sum / n;
  double squares = 0.0;
  for (const double value : values) {
    squares += (value - mean) * (value - mean);
  }
  const double deviation = std::sqrt(squares / n);
  for (double& value : values) {
    value = (value - mean) / deviation;
  }
  return {mean, deviation};
}

// The estimates of one target: those of models apart from it, and of models that are on the spot.
class ModelBlend {
 public:
  explicit ModelBlend(double max_weight) : max_weight_(max_weight) {}

  void add(double weight, double estimate) {
    apart_ += weight * estimate;
    weights_apart_ += weight;
  }
  void add_on_the_spot(double estimate) {
    on_spot_ += max_weight_ * estimate;
    weights_on_spot_ += max_weight_;
  }

  // Written so that a sum of weights which is NaN gives NaN.
  double combined() const {
    constexpr double least = 1e-10;
    if (weights_apart_ > least) {
      const double result = apart_ / weights_apart_;
      return weights_on_spot_ > least
                 ? result * (1.0 - max_weight_) + on_spot_ / weights_on_spot_ * max_weight_
                 : result;
    }
    if (weights_apart_ <= least && weights_on_spot_ > least) {
      return on_spot_ / weights_on_spot_;
    }
    return nan;
  }

 private:
  double max_weight_;
  double apart_ = 0.0;
  double weights_apart_ = 0.0;
  double on_spot_ = 0.0;
  double weights_on_spot_ = 0.0;
};

// Everything that the workers read.
template <class System, class Power>
struct Ensemble {
  const Locations& data_locs;
  const std::vector<double>& values;
  const LocalCovariances& local_covs;
  const std::vector<MappedModel>& models;
  const Neighborhood& centers;
  std::size_t max_cov_neis;
  double max_weight;
  System system;
  Power power_of;
};

// What estimates the targets of one worker.
template <class System, class Power>
class EnsembleKriging {
 public:
  EnsembleKriging(const Ensemble<System, Power>& ensemble, Worker& worker)
      : ensemble_(ensemble),
        worker_(worker),
        solvers_(ensemble.system, ensemble.models, ensemble.data_locs, ensemble.values, worker) {}

  double estimate(const std::vector<std::size_t>& neighbors, const Vector3& target) {
    ensemble_.centers.find_nearest(target, ensemble_.max_cov_neis, search_);
    ModelBlend blend(ensemble_.max_weight);
    solvers_.begin(neighbors);
    for (const std::size_t c : search_.indices) {
      worker_.poll();
      const double estimate = solvers_.solve(c, target).value;
      const double mistrust =
          (ensemble_.local_covs.centers()[c] - target).norm() * ensemble_.local_covs.errors()[c];
      if (mistrust <= 1e-20) {
        blend.add_on_the_spot(estimate);
      } else {
        blend.add(ensemble_.power_of(1.0 / mistrust), estimate);
      }
    }
    return blend.combined();
  }

 private:
  const Ensemble<System, Power>& ensemble_;
  Worker& worker_;
  SearchScratch search_;
  SolverPool<System> solvers_;
};

std::vector<MappedModel> borrowing_models(const LocalCovariances& local_covs,
                                          const Locations& data_locs) {
  std::vector<MappedModel> models;
  models.reserve(local_covs.covariances().size());
  InterruptPoller poll;
  for (const CovarianceModel& model : local_covs.covariances()) {
    poll();
    models.push_back(MappedModel::borrowing(create_cov_computer(model, -1), data_locs));
  }
  return models;
}

// Calls body with the kind of kriging.
template <class Body>
void with_system(const EnsembleParameters& parameters, Body&& body) {
  if (parameters.use_sk) {
    body(SimpleSystem{parameters.sk_mean});
  } else {
    body(OrdinarySystem{});
  }
}

}  // namespace

std::vector<double> ensemble_estimation(const EstimationInput& input,
                                        const LocalCovariances& local_covs,
                                        const EnsembleParameters& parameters,
                                        const SearchLimits& limits, int n_threads) {
  const NeiGetter getter = create_nei_getter(input, limits);
  const Neighborhood centers(local_covs.centers(), parameters.search_ellipsoid);
  std::vector<double> result(input.target_locs.size(), nan);
  if (result.empty()) {
    return result;
  }
  std::vector<double> values = input.data;
  const Scale scale = parameters.run_normalization ? normalize(values) : Scale{};
  const std::vector<MappedModel> models = borrowing_models(local_covs, input.data_locs);
  const std::size_t max_cov_neis = parameters.max_cov_neis < 1
                                       ? centers.size()
                                       : static_cast<std::size_t>(parameters.max_cov_neis);
  n_threads = check_n_threads(n_threads);
  with_system(parameters, [&]<class System>(const System& system) {
    with_weight_power(parameters.power_a, [&]<class Power>(const Power& power_of) {
      const Ensemble<System, Power> ensemble{
          input.data_locs,       values, local_covs, models, centers, max_cov_neis,
          parameters.max_weight, system, power_of};
      visit_targets(input.target_locs, input.neighborhood, getter, n_threads, [&](Worker& worker) {
        return [&, kriging = EnsembleKriging(ensemble, worker)](
                   std::size_t i, const std::vector<std::size_t>& neighbors) mutable {
          if (!neighbors.empty()) {
            result[i] =
                kriging.estimate(neighbors, input.target_locs[i]) * scale.deviation + scale.mean;
          }
        };
      });
    });
  });
  return result;
}

Estimator create_ensemble_estimator(LocalCovariances local_covs, EnsembleParameters parameters,
                                    SearchLimits limits) {
  return Estimator([local_covs = std::move(local_covs), parameters = std::move(parameters),
                    limits = std::move(limits)](
                       const Locations& target_locs, const Neighborhood& neighborhood,
                       const Locations& data_locs, const std::vector<double>& data, int n_threads) {
    return ensemble_estimation({target_locs, neighborhood, data_locs, data}, local_covs, parameters,
                               limits, n_threads);
  });
}

}  // namespace talvorix
