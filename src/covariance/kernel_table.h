#pragma once

#include "covariance/covariance.h"

namespace talvorix {

// A kernel read from a table of n entries per range, nearest-lower without interpolation, for the
// spherical, gaussian and exponential types; the structure's own kernel for the others.
//
// There is one table for each of the three types in the process. It is filled by the first caller
// with its kernel and replaced only for a larger n. A kernel made for a smaller n keeps
// multiplying by its n though it reads the longer table: that mismatch is deliberate.
Kernel get_kernel(const Covariance& cov, int n);

}  // namespace talvorix
