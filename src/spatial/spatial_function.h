#pragma once

#include "core/geometry.h"

#include <functional>
#include <vector>

namespace talvorix {

// A function of a location or a lag, carried as a value.
struct SpatialFunction : std::function<double(const Vector3&)> {
  using function::function;
};

// The function at every location.
std::vector<double> evaluate(const SpatialFunction& function, const Locations& locs, int n_threads);

}  // namespace talvorix
