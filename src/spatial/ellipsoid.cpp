#include "spatial/ellipsoid.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/parallel.h"
#include "core/random.h"
#include "spatial/sphere_directions.h"

#include <Eigen/LU>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace talvorix {

namespace {

const double pi = std::acos(-1.0);

double positive_range(double range) { return std::abs(range) <= 1e-30 ? 1.0 : range; }

// Turns about z, y and x, as they act on row vectors of axes; angles in radians.
Matrix3 turn_about_z(double a) {
  Matrix3 A;
  A << std::cos(a), std::sin(a), 0, -std::sin(a), std::cos(a), 0, 0, 0, 1;
  return A;
}
Matrix3 turn_about_y(double b) {
  Matrix3 B;
  B << std::cos(b), 0, -std::sin(b), 0, 1, 0, std::sin(b), 0, std::cos(b);
  return B;
}
Matrix3 turn_about_x(double c) {
  Matrix3 C;
  C << 1, 0, 0, 0, std::cos(c), std::sin(c), 0, -std::sin(c), std::cos(c);
  return C;
}

Matrix3 anisotropy_matrix(double r1, double r2, double r3, double azimuth, double dip,
                          double rake) {
  const Vector3 inverse_ranges(1.0 / positive_range(r1), 1.0 / positive_range(r2),
                               1.0 / positive_range(r3));
  const Matrix3 A = turn_about_z((90.0 - azimuth) / 180.0 * pi);
  const Matrix3 B = turn_about_y(-dip / 180.0 * pi);
  const Matrix3 C = turn_about_x(rake / 180.0 * pi);
  const Matrix3 CB = C * B;
  const Matrix3 R = CB * A;
  return inverse_ranges.asDiagonal() * R;
}

// Which way along its line a row points: toward the first of the reference axes that is not at
// right angles to it.
Vector3 oriented(const Vector3& row, const std::array<int, 3>& reference_axes) {
  const Vector3 v = row / row.norm();
  for (int k = 0; k < 3; ++k) {
    const Vector3 e = Vector3::Unit(reference_axes[static_cast<std::size_t>(k)]);
    const double minus = (v - e).norm();
    const double plus = (v + e).norm();
    if (k == 2 || std::abs(minus - plus) > 1e-8) {
      return minus > plus ? Vector3(-row) : row;
    }
  }
  return row;
}

Locations mapped(const Matrix3& M, const Locations& locs, int n_threads) {
  Locations result(locs.size());
  parallel_for(locs.size(), check_n_threads(n_threads),
               [&](Worker&, std::size_t i) { result[i] = M * locs[i]; });
  return result;
}

}  // namespace

Ellipsoid::Ellipsoid(const Matrix3& anisotropy_matrix)
    : matrix_(anisotropy_matrix), inv_matrix_(anisotropy_matrix.inverse()) {}

Ellipsoid::Ellipsoid(double r1, double r2, double r3, double azimuth, double dip, double rake)
    : Ellipsoid(anisotropy_matrix(r1, r2, r3, azimuth, dip, rake)) {}

Ellipsoid::Ellipsoid(const EllipsoidInfo& info)
    : Ellipsoid(info.r1, info.r2, info.r3, info.azimuth, info.dip, info.rake) {}

Locations Ellipsoid::forward(const Locations& locs, int n_threads) const {
  return mapped(matrix_, locs, n_threads);
}

Locations Ellipsoid::backward(const Locations& locs, int n_threads) const {
  return mapped(inv_matrix_, locs, n_threads);
}

EllipsoidInfo Ellipsoid::info() const {
  return extract_ellipsoid_info(sort_matrix3d(matrix_, true));
}

Vector3 Ellipsoid::axis(int rank) const {
  const Vector3 row = sort_matrix3d(matrix_, true).row(rank).transpose();
  return row / row.squaredNorm();
}

Locations Ellipsoid::surface(int n_points, std::int64_t seed) const {
  Locations points = generate_random_sphere(n_points, seed);
  InterruptPoller poll;
  for (Vector3& point : points) {
    poll();
    point = inv_matrix_ * point;
  }
  return points;
}

Locations Ellipsoid::volume(int n_points, int n_lags, std::int64_t seed) const {
  const std::size_t rounds = require_count("n_lags", n_lags);
  Locations points;
  points.reserve(rounds * 2 * require_count("n_points", n_points));
  RandomEngine rng = seeded_engine(seed);
  StandardNormal normal;
  InterruptPoller poll;
  for (std::size_t round = 0; round < rounds; ++round) {
    poll();
    const double factor = std::abs(normal(rng));
    const auto round_seed =
        static_cast<std::int64_t>(static_cast<std::uint64_t>(seed) + points.size());
    for (const Vector3& point : surface(n_points, round_seed)) {
      points.emplace_back(point * factor);
    }
  }
  return points;
}

Ellipsoid::Directions Ellipsoid::directions(int n_directions, int n_lags, std::int64_t seed) const {
  const std::size_t rounds = require_count("n_lags", n_lags);
  const Locations axes = surface(n_directions, seed);
  Directions result;
  result.points.reserve(axes.size() * rounds);
  result.direction.reserve(axes.size() * rounds);
  RandomEngine rng = seeded_engine(seed);
  StandardNormal normal;
  InterruptPoller poll;
  for (std::size_t i = 0; i < axes.size(); ++i) {
    for (std::size_t round = 0; round < rounds; ++round) {
      poll();
      result.points.emplace_back(axes[i] * std::abs(normal(rng)));
      result.direction.push_back(static_cast<int>(i));
    }
  }
  return result;
}

std::string Ellipsoid::text() const {
  const EllipsoidInfo e = info();
  std::array<char, 2200> buffer;
  const int length = std::snprintf(buffer.data(), buffer.size(),
                                   "{r1: %f, r2: %f, r3: %f, azimuth: %f, dip: %f, rake: %f} ",
                                   e.r1, e.r2, e.r3, e.azimuth, e.dip, e.rake);
  return {buffer.data(), static_cast<std::size_t>(length)};
}

Ellipsoid rotation(double azimuth, double dip, double rake) {
  return {1.0, 1.0, 1.0, azimuth, dip, rake};
}

Vector3 direction(double azimuth, double dip) {
  return anisotropy_matrix(1.0, 1.0, 1.0, azimuth, dip, 0.0).row(0).transpose();
}

Matrix3 orthogonolize_axes(const Matrix3& T, bool sort) {
  const Vector3 t1 = T.row(1).transpose();
  const Vector3 t2 = T.row(2).transpose();
  Vector3 u1 = T.row(0).transpose();
  Vector3 u2 = t1 - (t1.dot(u1) / u1.dot(u1)) * u1;
  Vector3 u3 = t2 - (t2.dot(u1) / u1.dot(u1)) * u1 - (t2.dot(u2) / u2.dot(u2)) * u2;
  if (sort) {
    // Each row's sign is fixed by itself, so the frame may come out left-handed.
    u1 = oriented(u1, {0, 1, 2});
    u2 = oriented(u2, {1, 0, 2});
    u3 = oriented(u3, {2, 0, 1});
  }
  Matrix3 result;
  result << u1.transpose(), u2.transpose(), u3.transpose();
  return result;
}

Matrix3 sort_matrix3d(const Matrix3& T, bool orthogonalize) {
  const Vector3 lengths = T.rowwise().norm();
  std::array<int, 3> order{0, 1, 2};
  // NaN lengths compare as equal to one another and after every number, to keep the order total.
  std::stable_sort(order.begin(), order.end(), [&](int i, int j) {
    return lengths[i] < lengths[j] || (std::isnan(lengths[j]) && !std::isnan(lengths[i]));
  });
  Matrix3 sorted;
  for (int k = 0; k < 3; ++k) {
    sorted.row(k) = T.row(order[static_cast<std::size_t>(k)]);
  }
  return orthogonalize ? orthogonolize_axes(sorted, true) : sorted;
}

EllipsoidInfo extract_ellipsoid_info(const Matrix3& T) {
  const Matrix3 P = sort_matrix3d(T, true);
  Vector3 ranges;
  for (int k = 0; k < 3; ++k) {
    const double length = P.row(k).norm();
    ranges[k] = 1.0 / (length <= 0.0 ? 1.0 : length);
  }
  const Matrix3 R = ranges.asDiagonal() * P;

  double dip = 0.0;
  if (std::abs(R(0, 2)) < 0.99999999) {
    dip = std::asin(-R(0, 2));
  } else {
    dip = R(0, 2) >= 0.0 ? -pi / 2.0 : pi / 2.0;
  }
  double turn = 0.0;
  double rake = 0.0;
  if (std::abs(std::cos(dip)) > 1e-6) {
    turn = std::atan2(R(0, 1), R(0, 0));
    rake = std::atan2(R(1, 2), R(2, 2));
  } else if (dip > 0.0) {
    // A vertical major axis: turn and rake are one rotation, all of it reported as turn.
    turn = std::atan2(R(2, 1), R(2, 0));
  } else {
    turn = std::fmod(3.0 * pi - std::atan2(-R(2, 1), R(2, 0)), 2.0 * pi);
  }
  return {ranges[0],         ranges[1],
          ranges[2],         std::fmod(450.0 - turn / pi * 180.0, 360.0),
          dip / pi * -180.0, rake / pi * 180.0};
}

}  // namespace talvorix
