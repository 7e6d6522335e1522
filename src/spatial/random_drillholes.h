#pragma once

#include "core/geometry.h"
#include "spatial/bounding_box.h"

#include <cstdint>
#include <vector>

namespace talvorix {

struct Drillholes {
  Locations locations;
  std::vector<int> dhids;  // for each location the number of its hole
};

// Straight holes from random collars on the top face of a box, with a location at the collar and
// every spacing after it while inside the box, faces included. Azimuth and dip, in degrees, are
// shifted for each hole by up to delta_angle either way.
Drillholes create_random_drillholes(const BoundingBox& bounding_box, int n_holes, double spacing,
                                    double azimuth, double dip, double delta_angle,
                                    std::int64_t seed);

}  // namespace talvorix
