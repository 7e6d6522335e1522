#include "simulation/ensemble_simulator.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/random.h"
#include "core/weight_power.h"
#include "simulation/conditioning.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>

namespace talvorix {

namespace {

// What the local fields weigh at one location.
class BlendWeights {
 public:
  template <class Power>
  BlendWeights(const Locations& centers, const Vector3& location, double max_weight,
               const Power& power)
      : max_weight_(max_weight) {
    for (const Vector3& center : centers) {
      const double d = (center - location).norm();
      if (is_on_spot(d)) {
        on_spot_ += max_weight;
      } else {
        apart_ += power(1.0 / d);
      }
    }
  }

  template <class Power>
  double of(const Vector3& center, const Vector3& location, const Power& power) const {
    constexpr double least = 1e-10;
    const double d = (center - location).norm();
    const double w = is_on_spot(d) ? 0.0 : power(1.0 / d);
    const double e = is_on_spot(d) ? max_weight_ : 0.0;
    if (apart_ <= least) {
      return on_spot_ <= least ? 0.0 : std::sqrt(e / on_spot_);
    }
    if (on_spot_ <= least) {
      return std::sqrt(w / apart_);
    }
    return std::sqrt(w / apart_ * (1.0 - max_weight_) + e / on_spot_ * max_weight_);
  }

 private:
  static bool is_on_spot(double d) { return d <= 1e-20; }

  double max_weight_;
  double apart_ = 0.0;
  double on_spot_ = 0.0;
};

template <class Power>
class BlendedField final : public SpatialField {
 public:
  BlendedField(Locations centers, std::vector<SpatialFunction> fields, double max_weight,
               Power power)
      : centers_(std::move(centers)),
        fields_(std::move(fields)),
        max_weight_(max_weight),
        power_(power) {}

  double value(const Vector3& location, int worker) const override {
    const BlendWeights weights(centers_, location, max_weight_, power_);
    double sum = 0.0;
    for (std::size_t j = 0; j < fields_.size(); ++j) {
      sum += weights.of(centers_[j], location, power_) * fields_[j].field().value(location, worker);
    }
    return sum;
  }

  void values(std::span<const Vector3> locations, double* values, int worker,
              PollRef poll) const override {
    std::array<double, 256> of_field;
    while (!locations.empty()) {
      const std::size_t n = std::min(locations.size(), of_field.size());
      std::vector<BlendWeights> weights;
      weights.reserve(n);
      for (const Vector3& location : locations.first(n)) {
        poll();
        weights.emplace_back(centers_, location, max_weight_, power_);
      }
      std::fill_n(values, n, 0.0);
      for (std::size_t j = 0; j < fields_.size(); ++j) {
        poll();
        fields_[j].field().values(locations.first(n), of_field.data(), worker, poll);
        for (std::size_t i = 0; i < n; ++i) {
          values[i] += weights[i].of(centers_[j], locations[i], power_) * of_field[i];
        }
      }
      locations = locations.subspan(n);
      values += n;
    }
  }

 private:
  Locations centers_;
  std::vector<SpatialFunction> fields_;
  double max_weight_;
  Power power_;
};

std::vector<SpatialFunction> local_simulators(const LocalCovariances& local_covs,
                                              const SimulatorFactory& factory, std::int64_t seed) {
  RandomEngine rng = seeded_engine(seed);
  std::vector<SpatialFunction> simulators;
  simulators.reserve(local_covs.covariances().size());
  InterruptPoller poll;
  for (const CovarianceModel& model : local_covs.covariances()) {
    poll();
    simulators.push_back(factory(model, static_cast<std::int64_t>(rng())));
  }
  return simulators;
}

SpatialFunction blended(const LocalCovariances& local_covs, std::vector<SpatialFunction> simulators,
                        const BlendParameters& blend) {
  require_equal_lengths("simulators", simulators.size(), "centers", local_covs.centers().size());
  return with_weight_power(blend.power_a, [&](auto power) {
    return SpatialFunction(std::make_shared<BlendedField<decltype(power)>>(
        local_covs.centers(), std::move(simulators), blend.max_weight, power));
  });
}

}  // namespace

SpatialFunction create_ensemble_simulator(const LocalCovariances& local_covs,
                                          const SimulatorFactory& factory,
                                          const BlendParameters& blend, std::int64_t seed) {
  return blended(local_covs, local_simulators(local_covs, factory, seed), blend);
}

std::vector<double> run_ensemble_simulation(const Locations& locs,
                                            std::vector<SpatialFunction> simulators,
                                            const BlendParameters& blend,
                                            const LocalCovariances& local_covs, int n_threads) {
  return evaluate(blended(local_covs, std::move(simulators), blend), locs, n_threads);
}

std::vector<double> unconditional_ensemble_simulation(const Locations& locs,
                                                      const LocalCovariances& local_covs,
                                                      const SimulatorFactory& factory,
                                                      const BlendParameters& blend,
                                                      std::int64_t seed, int n_threads) {
  return run_ensemble_simulation(locs, local_simulators(local_covs, factory, seed), blend,
                                 local_covs, n_threads);
}

std::vector<double> ensemble_simulation(const EstimationInput& input,
                                        const LocalCovariances& local_covs,
                                        const EnsembleParameters& parameters,
                                        const SearchLimits& limits, const SimulatorFactory& factory,
                                        std::int64_t seed, int n_threads) {
  const SpatialFunction simulator = create_ensemble_simulator(
      local_covs, factory, {parameters.max_weight, parameters.power_a}, seed);
  return simulate(create_ensemble_estimator(local_covs, parameters, limits), input.target_locs,
                  input.neighborhood, input.data_locs, input.data, simulator, n_threads);
}

}  // namespace talvorix
