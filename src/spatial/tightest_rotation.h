#pragma once

#include "core/geometry.h"
#include "spatial/bounding_box.h"
#include "spatial/ellipsoid.h"

#include <cstdint>

namespace talvorix {

struct RotationSearch {
  int sample_size = 30000;
  int n_iterations = 20000;
  bool use_fixed_samples = true;
  int n_rays = 600;
};

struct RotatedBox {
  Ellipsoid rotation;
  BoundingBox box;  // of the outline in the rotated frame
};

// A random search for the rotation in which the outline of the locations has the smallest box,
// measured by the sum of the logarithms of its sizes plus 1. Depends on the thread count, as every
// worker draws from an engine of its own.
RotatedBox optimize_rotation(const Locations& locations, const RotationSearch& search,
                             std::int64_t seed, int n_threads);

}  // namespace talvorix
