#pragma once

#include "covariance/covariance.h"

#include <cstdint>
#include <vector>

namespace talvorix {

// Random nested models around an ellipsoid, in random order: n_covs models of n_kernels structures
// of one kernel and a nugget, whose sills add up to 1. One of them, wherever the shuffle put it,
// has the given ellipsoid in all its structures and no nugget.
//
// The ranges of the structures grow within a model, and as fractions of the ellipsoid's largest
// range their vectors' norms add up to a uniform of [min_str_range, max_str_range); the angles are
// the ellipsoid's, each moved by a uniform of [-delta_angle, delta_angle) degrees. The structures
// carry the type tag spherical whatever the kernel is.
std::vector<CovarianceModel> generate_covariances(const Ellipsoid& ellipsoid, int n_kernels,
                                                  const Kernel& cov_kernel, int n_covs,
                                                  std::int64_t seed, double delta_angle,
                                                  double min_str_range, double max_str_range,
                                                  double min_sill, double max_sill);

}  // namespace talvorix
