#pragma once

#include "core/geometry.h"
#include "covariance/generic_covariance.h"

#include <cmath>

namespace talvorix {

// How the squared length q = |u|^2 of a lag in range units, u = M lag, changes with the three
// ranges and the three angles of M. In terms of u no digits cancel, however long and thin the
// ellipsoid is, as they would in terms of the lag.
struct MetricSlopes {
  Matrix3 matrix;
  Vector3 by_range;  // dq / d(range a) = by_range[a] u_a^2
  Matrix3 by_angle;  // dq / d(angle p) = by_angle.col(p) . (u_1 u_2, u_1 u_3, u_2 u_3)
};

// Of r1, r2, r3 and the angles in radians, as generic_anisotropy_matrix takes them.
inline MetricSlopes metric_slopes(const double* ranges_and_angles) {
  const auto& p = ranges_and_angles;
  MetricSlopes slopes;
  slopes.matrix = generic_anisotropy_matrix<double>(p[0], p[1], p[2], p[3], p[4], p[5]);
  Vector3 ranges;
  for (int a = 0; a < 3; ++a) {
    const bool reads_as_one = p[a] <= 1e-30;
    ranges[a] = reads_as_one ? 1.0 : p[a];
    slopes.by_range[a] = reads_as_one ? 0.0 : -2.0 / p[a];
  }
  // The angles turn the axes about these, in the frame of the axes.
  const double sin_b = std::sin(p[4]);
  const double cos_b = std::cos(p[4]);
  const double sin_c = std::sin(p[5]);
  const double cos_c = std::cos(p[5]);
  Matrix3 about;
  about.col(0) = Vector3(-sin_b, sin_c * cos_b, cos_c * cos_b);
  about.col(1) = Vector3(0.0, cos_c, -sin_c);
  about.col(2) = Vector3(1.0, 0.0, 0.0);
  const auto ratio = [&](int a, int b) {
    return 2.0 * (ranges[b] / ranges[a] - ranges[a] / ranges[b]);
  };
  slopes.by_angle.row(0) = ratio(0, 1) * about.row(2);
  slopes.by_angle.row(1) = -ratio(0, 2) * about.row(1);
  slopes.by_angle.row(2) = ratio(1, 2) * about.row(0);
  return slopes;
}

}  // namespace talvorix
