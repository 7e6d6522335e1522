#pragma once

#include "core/geometry.h"
#include "spatial/ellipsoid.h"

#include <cstdint>
#include <vector>

namespace talvorix {

// A frame of axes, as rows, for every pair of 2 n_rays directions whose cosine is below tol in
// size. The first row has length 1, the other two sqrt(1 - cosine^2).
std::vector<Matrix3> generate_rotations(int n_rays, std::int64_t seed, double tol);

// For every such frame 2 n_scales ellipsoids, whose ranges are the components of a vector of random
// direction and a length between min_range and max_range; in random order.
std::vector<Ellipsoid> generate_ellipsoids(double min_range, double max_range, int n_rays,
                                           int n_scales, std::int64_t seed, double tol);

}  // namespace talvorix
