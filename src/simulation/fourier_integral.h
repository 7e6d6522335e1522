#pragma once

#include "core/geometry.h"
#include "covariance/covariance.h"
#include "spatial/spatial_function.h"

#include <cstdint>

namespace talvorix {

// Counts of the lattice along its axes; below 1 they count as 1.
struct LatticeCounts {
  int nx;
  int ny;
  int nz;
};

// A Gaussian field with one covariance structure by the Fourier integral method (Pardo-Iguzquiza
// and Chica-Olmo 1993): one realisation on a lattice in the structure's own space, around locs,
// looked up at the next lower node of a location; beyond the lattice its edge goes on. The field
// depends on the thread count, as every worker draws phases from an engine of its own. Throws
// std::invalid_argument when there are no locations.
SpatialFunction create_fim_simulator(const Locations& locs, const Covariance& cov,
                                     std::int64_t seed, const LatticeCounts& counts, int n_threads);
// With the seeds of the structures drawn from one.
SpatialFunction create_fim_simulator(const Locations& locs, const CovarianceModel& covs,
                                     std::int64_t seed, const LatticeCounts& counts, int n_threads);

}  // namespace talvorix
