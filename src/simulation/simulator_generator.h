#pragma once

#include "core/geometry.h"
#include "core/made.h"
#include "covariance/covariance.h"
#include "simulation/fourier_integral.h"
#include "spatial/ellipsoid.h"
#include "spatial/spatial_function.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace talvorix {

// Makes a field out of a seed, again and again.
struct SimulatorGenerator : std::function<SpatialFunction(std::int64_t seed)>, Made {
  using function::function;
};

// Random mixtures of the given fields, whose squared weights add up to 1: of independent fields of
// one variance they are fields of that variance. Nothing is simulated anew.
SimulatorGenerator create_simulator_pool(std::vector<SpatialFunction> simulators);

// Sums of fields, one of each generator, with seeds drawn from one.
SimulatorGenerator create_simulator_generator(std::vector<SimulatorGenerator> generators);

// A field of range 1 that is simulated once, on n_base_simulation_points nodes along each axis of
// the box of locs, and turned at random for each seed. What it is asked for is mapped by the
// ellipsoid first. Beyond the lattice its fields are 0: coordinates should be centred on the field.
SimulatorGenerator create_simulator_generator(const Ellipsoid& ellipsoid, const Locations& locs,
                                              const SpatialFunction& base,
                                              int n_base_simulation_points, int n_threads);

// The eight corners of a box, in the space of the structure, that holds the box of locs in any
// turn.
Locations rotation_corners(const Locations& locs, const Covariance& cov, int n_threads);

// Generators that turn one field of each structure, simulated by the Fourier integral method or by
// turning bands. The forms for a model draw the seeds of the structures from one. Throw
// std::invalid_argument when there are no locations or a count is below 1.
SimulatorGenerator create_fim_simulator_generator(const Locations& locs, const Covariance& cov,
                                                  std::int64_t seed, const LatticeCounts& counts,
                                                  int n_threads, int n_base_simulation_points);
SimulatorGenerator create_fim_simulator_generator(const Locations& locs,
                                                  const CovarianceModel& covs, std::int64_t seed,
                                                  const LatticeCounts& counts, int n_threads,
                                                  int n_base_simulation_points);
SimulatorGenerator create_tbsim_simulator_generator(const Locations& locs, const Covariance& cov,
                                                    std::int64_t seed, int n, int n_threads,
                                                    int n_base_simulation_points);
SimulatorGenerator create_tbsim_simulator_generator(const Locations& locs,
                                                    const CovarianceModel& covs, std::int64_t seed,
                                                    int n, int n_threads,
                                                    int n_base_simulation_points);

}  // namespace talvorix
