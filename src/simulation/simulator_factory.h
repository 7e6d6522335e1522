#pragma once

#include "core/made.h"
#include "covariance/covariance.h"
#include "simulation/fourier_integral.h"
#include "spatial/spatial_function.h"

#include <cstdint>
#include <functional>

namespace talvorix {

// Makes a field of a covariance model out of a seed.
struct SimulatorFactory
    : std::function<SpatialFunction(const CovarianceModel& covs, std::int64_t seed)>,
      Made {
  using function::function;
};

// Factories of fields around the same locations, by the Fourier integral method and by turning
// bands. They throw std::invalid_argument when there are no locations or no lines.
SimulatorFactory create_fim_factory(Locations locs, const LatticeCounts& counts, int n_threads);
SimulatorFactory create_tbsim_factory(Locations locs, int n);

}  // namespace talvorix
