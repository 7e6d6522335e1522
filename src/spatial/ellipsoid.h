#pragma once

#include "core/geometry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace talvorix {

// Ranges and angles read back from an anisotropy matrix: r1 >= r2 >= r3, angles in degrees.
struct EllipsoidInfo {
  double r1;
  double r2;
  double r3;
  double azimuth;  // clockwise from +y toward +x
  double dip;      // positive upward
  double rake;     // about the major axis
};

// The library's one representation of anisotropy and orientation: the matrix from real space to
// the space in which the ellipsoid is the unit sphere, and the way back. Rows of the matrix are
// the axes divided by their ranges. No angles or ranges are kept.
class Ellipsoid {
 public:
  // The unit sphere with the axes of azimuth, dip and rake 0.
  Ellipsoid() : Ellipsoid(1.0, 1.0, 1.0, 0.0, 0.0, 0.0) {}
  explicit Ellipsoid(const Matrix3& anisotropy_matrix);
  // Angles in degrees. A range of size 1e-30 or less reads as 1; negative and NaN ranges are kept.
  Ellipsoid(double r1, double r2, double r3, double azimuth, double dip, double rake);
  explicit Ellipsoid(const EllipsoidInfo& info);

  const Matrix3& matrix() const { return matrix_; }
  const Matrix3& inv_matrix() const { return inv_matrix_; }

  Vector3 forward(const Vector3& location) const { return matrix_ * location; }
  Vector3 backward(const Vector3& location) const { return inv_matrix_ * location; }
  Locations forward(const Locations& locs, int n_threads) const;
  Locations backward(const Locations& locs, int n_threads) const;

  EllipsoidInfo info() const;
  // The axis of the largest (0), middle (1) or smallest (2) range, with the range as its length.
  Vector3 axis(int rank) const;

  // 2 n_points points on the surface.
  Locations surface(int n_points, std::int64_t seed) const;
  // n_lags surfaces of 2 n_points points, each scaled by a half-normal factor.
  Locations volume(int n_points, int n_lags, std::int64_t seed) const;

  struct Directions {
    Locations points;
    std::vector<int> direction;  // for each point, the number of the surface point it lies along
  };
  Directions directions(int n_directions, int n_lags, std::int64_t seed) const;

  std::string text() const;

 private:
  Matrix3 matrix_;
  Matrix3 inv_matrix_;
};

Ellipsoid rotation(double azimuth, double dip, double rake);

// Unit vector, angles in degrees.
Vector3 direction(double azimuth, double dip);

EllipsoidInfo extract_ellipsoid_info(const Matrix3& T);

// Rows of T in order of ascending length, so that the longest range comes first.
Matrix3 sort_matrix3d(const Matrix3& T, bool orthogonalize);

// Gram-Schmidt on the rows of T, lengths kept. The flag named sort fixes the rows' signs.
Matrix3 orthogonolize_axes(const Matrix3& T, bool sort);

}  // namespace talvorix
