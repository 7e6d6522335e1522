#pragma once

#include "core/geometry.h"
#include "covariance/covariance.h"
#include "spatial/spatial_function.h"

#include <cstdint>

namespace talvorix {

// A Gaussian field with one covariance structure, as the sum of n random processes on lines in
// n directions (Matheron 1973; Emery and Lantuejoul 2006 for the processes). Cheap at any location;
// the fields of spherical and exponential structures must only be asked near locs. A structure
// whose range is tiny beside locs falls back to white noise, line by line. Throws
// std::invalid_argument when there are no locations or no lines.
SpatialFunction create_tbsim_simulator(const Locations& locs, const Covariance& cov,
                                       std::int64_t seed, int n);
// With the seeds of the structures drawn from one.
SpatialFunction create_tbsim_simulator(const Locations& locs, const CovarianceModel& covs,
                                       std::int64_t seed, int n);

}  // namespace talvorix
