#pragma once

#include "spatial/spatial_function.h"

#include <vector>

namespace talvorix {

// The sum of fields; 0 without any.
SpatialFunction create_simulator(std::vector<SpatialFunction> simulators);

}  // namespace talvorix
