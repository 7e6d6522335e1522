#pragma once

#include "estimation/ensemble_estimation.h"
#include "estimation/local_covariances.h"
#include "simulation/simulator_factory.h"
#include "spatial/spatial_function.h"

#include <cstdint>
#include <vector>

namespace talvorix {

// How the fields of local models are blended: by the inverse of the distance to their centres, and
// what share a model has whose centre is on the spot.
struct BlendParameters {
  double max_weight;
  double power_a;
};

// A field for each local model, blended with weights whose squares add up to 1, which keeps the
// variance. The fields are made with seeds drawn from one.
SpatialFunction create_ensemble_simulator(const LocalCovariances& local_covs,
                                          const SimulatorFactory& factory,
                                          const BlendParameters& blend, std::int64_t seed);

// Given fields, one for each local model, blended at locations.
std::vector<double> run_ensemble_simulation(const Locations& locs,
                                            std::vector<SpatialFunction> simulators,
                                            const BlendParameters& blend,
                                            const LocalCovariances& local_covs, int n_threads);

std::vector<double> unconditional_ensemble_simulation(const Locations& locs,
                                                      const LocalCovariances& local_covs,
                                                      const SimulatorFactory& factory,
                                                      const BlendParameters& blend,
                                                      std::int64_t seed, int n_threads);

// Conditioned to the data by ensemble_estimation with the same local models.
std::vector<double> ensemble_simulation(const EstimationInput& input,
                                        const LocalCovariances& local_covs,
                                        const EnsembleParameters& parameters,
                                        const SearchLimits& limits, const SimulatorFactory& factory,
                                        std::int64_t seed, int n_threads);

}  // namespace talvorix
