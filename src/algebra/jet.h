#pragma once

#include <ceres/jet.h>

namespace talvorix {

// A number with seven derivatives: as many parameters are differentiated at once.
using Jet = ceres::Jet<double, 7>;

}  // namespace talvorix
