#pragma once

#include <Eigen/Core>

#include <vector>

namespace talvorix {

using Vector3 = Eigen::Vector3d;
using Matrix3 = Eigen::Matrix3d;

// A location list: one contiguous run of x, y, z triples.
using Locations = std::vector<Vector3>;

}  // namespace talvorix
