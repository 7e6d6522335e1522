#pragma once

#include "spatial/spatial_function.h"

#include <cstdint>

namespace talvorix {

// White noise: every evaluation draws a new value from the engine of the worker that asks, so that
// the same location has another value every time. No function of the location: deliberate.
SpatialFunction create_nugget_simulator(double sigma, std::int64_t seed);

}  // namespace talvorix
