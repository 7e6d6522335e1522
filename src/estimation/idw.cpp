#include "estimation/idw.h"

#include "core/weight_power.h"
#include "covariance/covariance_computer.h"
#include "covariance/mapped_model.h"
#include "estimation/target_loop.h"

#include <cmath>
#include <limits>
#include <utility>

namespace talvorix {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// The sums of one target: over neighbours apart from it, and over those that stand on it.
class WeightedMeans {
 public:
  explicit WeightedMeans(double max_weight) : max_weight_(max_weight) {}

  void add(double weight, double value) {
    weights_ += weight;
    values_ += weight * value;
  }
  void add_coincident(double value) {
    coincident_weights_ += max_weight_;
    coincident_values_ += max_weight_ * value;
  }

  double combined() const {
    constexpr double tolerance = 1e-30;
    const double apart = std::abs(weights_);
    const double coincident = std::abs(coincident_weights_);
    if (apart > tolerance && coincident < tolerance) {
      return values_ / weights_;
    }
    if (coincident <= tolerance) {
      return nan;
    }
    const double at_target = coincident_values_ / coincident_weights_;
    if (apart >= tolerance) {
      return values_ / weights_ * (1.0 - max_weight_) + max_weight_ * at_target;
    }
    return at_target;
  }

 private:
  double max_weight_;
  double weights_ = 0.0;
  double values_ = 0.0;
  double coincident_weights_ = 0.0;
  double coincident_values_ = 0.0;
};

// Runs over the targets. make_adder() gives a worker its own function (neighbors, target, means)
// that adds the neighbours of one target to its sums.
template <class MakeAdder>
std::vector<double> weighted_means(const EstimationInput& input, const IdwParameters& parameters,
                                   const NeiGetter& getter, int n_threads,
                                   const MakeAdder& make_adder) {
  std::vector<double> result(input.target_locs.size(), 0.0);
  const auto make_method = [&](Worker&) {
    return [&parameters, add_neighbors = make_adder()](const std::vector<std::size_t>& neighbors,
                                                       const Vector3& target) mutable {
      WeightedMeans means(parameters.max_weight);
      add_neighbors(neighbors, target, means);
      return Estimate{means.combined()};
    };
  };
  estimate_targets(input, getter, n_threads, make_method,
                   [&](std::size_t i, const Estimate& estimate) { result[i] = estimate.value; });
  return result;
}

// The weight here is a power of the distance to the letter, so only an exact 1, 2 or 3 may be
// multiplied out.
template <class Body>
decltype(auto) with_distance_power(double power, Body&& body) {
  if (power == 1.0 || power == 2.0 || power == 3.0) {
    return with_weight_power(power, body);
  }
  return body(GeneralPower{power});
}

}  // namespace

std::vector<double> idw_estimation(const EstimationInput& input, const IdwParameters& parameters,
                                   const SearchLimits& limits, int n_threads) {
  const NeiGetter getter = create_nei_getter(input, limits);
  return with_distance_power(parameters.power_a, [&](const auto& power_of) {
    const auto add_neighbors = [&input, &power_of](const std::vector<std::size_t>& neighbors,
                                                   const Vector3& target, WeightedMeans& means) {
      for (const std::size_t i : neighbors) {
        const double d = (input.data_locs[i] - target).norm();
        // A distance of exactly 1e-30 counts as apart here, and as coincident with a model.
        if (d >= 1e-30) {
          means.add(1.0 / power_of(d), input.data[i]);
        } else {
          means.add_coincident(input.data[i]);
        }
      }
    };
    return weighted_means(input, parameters, getter, check_n_threads(n_threads),
                          [&] { return add_neighbors; });
  });
}

std::vector<double> idw_estimation(const EstimationInput& input, const CovarianceModel& covs,
                                   const IdwParameters& parameters, const SearchLimits& limits,
                                   int n_threads) {
  const NeiGetter getter = create_nei_getter(input, limits);
  n_threads = check_n_threads(n_threads);
  const MappedModel model(create_cov_computer(covs, -1), input.data_locs, n_threads);
  return with_weight_power(parameters.power_a, [&](const auto& power_of) {
    const auto make_adder = [&] {
      return [&input, &power_of, points = GatheredPoints(model)](
                 const std::vector<std::size_t>& neighbors, const Vector3& target,
                 WeightedMeans& means) mutable {
        points.gather(neighbors);
        const double* covariances = points.covariances_with(target);
        for (std::size_t k = 0; k < neighbors.size(); ++k) {
          const std::size_t i = neighbors[k];
          const double d = (input.data_locs[i] - target).norm();
          if (d <= 1e-30) {
            means.add_coincident(input.data[i]);
          } else {
            means.add(1.0 / power_of(1.0 - covariances[k]), input.data[i]);
          }
        }
      };
    };
    return weighted_means(input, parameters, getter, n_threads, make_adder);
  });
}

Estimator create_idw_estimator(IdwParameters parameters, SearchLimits limits) {
  return Estimator([parameters, limits = std::move(limits)](
                       const Locations& target_locs, const Neighborhood& neighborhood,
                       const Locations& data_locs, const std::vector<double>& data, int n_threads) {
    return idw_estimation({target_locs, neighborhood, data_locs, data}, parameters, limits,
                          n_threads);
  });
}

Estimator create_idw_estimator(CovarianceModel covs, IdwParameters parameters,
                               SearchLimits limits) {
  return Estimator([covs = std::move(covs), parameters, limits = std::move(limits)](
                       const Locations& target_locs, const Neighborhood& neighborhood,
                       const Locations& data_locs, const std::vector<double>& data, int n_threads) {
    return idw_estimation({target_locs, neighborhood, data_locs, data}, covs, parameters, limits,
                          n_threads);
  });
}

}  // namespace talvorix
