#pragma once

#include "core/geometry.h"
#include "estimation/estimator.h"
#include "spatial/ellipsoid.h"

#include <vector>

namespace talvorix {

// Blends ellipsoids, axis by axis and range by range. Of equal length and not empty, or
// std::invalid_argument is thrown. They are taken in the order of falling weight, but the k-th
// taken counts with the k-th weight of the given list, not with its own: deliberate.
Ellipsoid ensemble_model(const std::vector<double>& w, const std::vector<EllipsoidInfo>& infos);
Ellipsoid ensemble_ellipsoid(const std::vector<double>& w,
                             const std::vector<Ellipsoid>& ellipsoids);

// Ellipsoids at places, each with a weight; borrowed.
struct LocalEllipsoids {
  const Locations& locs;
  const std::vector<Ellipsoid>& ellipsoids;
  const std::vector<double>& weights;
};

// For each target the ensemble of the ellipsoids near it, with weights divided by eps plus the cube
// of the distance; the unit sphere where there are none.
std::vector<Ellipsoid> ensemble_local_ellipsoids(const Locations& target_locs,
                                                 const LocalEllipsoids& local,
                                                 const SearchLimits& limits, double eps,
                                                 int n_threads);

}  // namespace talvorix
