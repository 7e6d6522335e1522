#pragma once

#include "core/geometry.h"

#include <cstdint>

namespace talvorix {

// The outermost points of a list along 2 n_rays directions: an outline that stands in for the list.
// Each point comes once, in the order in which the directions meet it; of points that reach equally
// far the first in the list counts. The result does not depend on the thread count.
Locations extreme_points(const Locations& locations, int n_rays, std::int64_t seed, int n_threads);

}  // namespace talvorix
