#include "spatial/sphere_directions.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/random.h"
#include "spatial/ellipsoid.h"

#include <cmath>

namespace talvorix {

namespace {

// The van der Corput sequence: the digits of index mirrored at the point.
double radical_inverse(std::int64_t index, std::int64_t base, double inverse_base) {
  double value = 0.0;
  double weight = inverse_base;
  for (; index > 0; index /= base) {
    value += static_cast<double>(index % base) * weight;
    weight *= inverse_base;
  }
  return value;
}

// Point of the Halton sequence of bases 2 and 3, laid on the upper half of the unit sphere.
Vector3 low_discrepancy_direction(std::int64_t index) {
  static const double two_pi = 2.0 * std::acos(-1.0);
  const double x = radical_inverse(index, 2, 0.5);
  const double z = radical_inverse(index, 3, 1.0 / 3.0);
  const double s = std::sqrt(1.0 - z * z);
  return {s * std::cos(two_pi * x), s * std::sin(two_pi * x), z};
}

// Indices wrap like the unsigned numbers they are carried as.
std::int64_t shifted(std::int64_t index, std::size_t by) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(index) + by);
}

void append_directions(Locations& points, std::size_t count, std::int64_t first_index,
                       double sign) {
  InterruptPoller poll;
  for (std::size_t i = 0; i < count; ++i) {
    poll();
    points.emplace_back(sign * low_discrepancy_direction(shifted(first_index, i)));
  }
}

void turn_at_random(Locations& points, std::int64_t seed) {
  RandomEngine rng = seeded_engine(seed);
  const double azimuth = 360.0 * uniform(rng);
  const double dip = -90.0 * uniform(rng);
  const double rake = 360.0 * uniform(rng);
  const Matrix3 turn = rotation(azimuth, dip, rake).matrix();
  InterruptPoller poll;
  for (Vector3& point : points) {
    poll();
    point = turn * point;
  }
}

}  // namespace

Locations generate_random_semisphere(int size, std::int64_t seed) {
  const std::size_t count = require_count("size", size);
  Locations points;
  points.reserve(count);
  append_directions(points, count, seed, 1.0);
  turn_at_random(points, seed);
  return points;
}

Locations generate_random_sphere(int size, std::int64_t seed) {
  const std::size_t count = require_count("size", size);
  Locations points;
  points.reserve(2 * count);
  append_directions(points, count, seed, 1.0);
  append_directions(points, count, shifted(seed, count), -1.0);
  turn_at_random(points, seed);
  return points;
}

}  // namespace talvorix
