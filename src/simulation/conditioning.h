#pragma once

#include "core/geometry.h"
#include "estimation/estimator.h"
#include "spatial/neighborhood.h"
#include "spatial/spatial_function.h"

#include <vector>

namespace talvorix {

// A conditional realisation at the targets: the simulator's field, to which what the data differ
// from it is estimated and added (Journel 1974). Exact at data when the estimator is.
std::vector<double> simulate(const Estimator& estimator, const Locations& target_locs,
                             const Neighborhood& neighborhood, const Locations& data_locs,
                             const std::vector<double>& data, const SpatialFunction& simulator,
                             int n_threads);
// A realisation of each of several fields: data are weighed once for all of them.
std::vector<std::vector<double>> simulate(const Estimator& estimator, const Locations& target_locs,
                                          const Neighborhood& neighborhood,
                                          const Locations& data_locs,
                                          const std::vector<double>& data,
                                          const std::vector<SpatialFunction>& simulators,
                                          int n_threads);

}  // namespace talvorix
