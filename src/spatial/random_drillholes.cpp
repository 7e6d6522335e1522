#include "spatial/random_drillholes.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/random.h"
#include "spatial/ellipsoid.h"

#include <stdexcept>
#include <string>

namespace talvorix {

namespace {

bool is_inside(const Vector3& location, const BoundingBox& box) {
  return (location.array() >= box.lower().array()).all() &&
         (location.array() <= box.upper().array()).all();
}

void check_box(const BoundingBox& box) {
  if (!box.lower().allFinite() || !box.upper().allFinite() ||
      (box.lower().array() > box.upper().array()).any()) {
    throw std::invalid_argument(
        "bounding_box is empty or not finite; drillholes need a box made from finite corners");
  }
}

void check_spacing(double spacing, const BoundingBox& box) {
  if (!(spacing > 0.0)) {
    throw std::invalid_argument("spacing is " + std::to_string(spacing) + "; it must be above 0");
  }
  constexpr double most_along_a_hole = 1e9;
  if (box.size().stableNorm() / spacing > most_along_a_hole) {
    throw std::invalid_argument(
        "spacing is so small beside the bounding_box that a hole could have more than 1e9 "
        "locations");
  }
}

}  // namespace

Drillholes create_random_drillholes(const BoundingBox& bounding_box, int n_holes, double spacing,
                                    double azimuth, double dip, double delta_angle,
                                    std::int64_t seed) {
  require_count("n_holes", n_holes);
  check_box(bounding_box);
  check_spacing(spacing, bounding_box);
  const Vector3& lower = bounding_box.lower();
  const Vector3& upper = bounding_box.upper();
  RandomEngine rng = seeded_engine(seed);
  const auto shifted = [&](double angle) {
    return angle + (2.0 * uniform(rng) - 1.0) * delta_angle;
  };
  Drillholes holes;
  InterruptPoller poll;
  for (int hole = 0; hole < n_holes; ++hole) {
    const double x = lower.x() + uniform(rng) * (upper.x() - lower.x());
    const double y = lower.y() + uniform(rng) * (upper.y() - lower.y());
    const Vector3 collar(x, y, upper.z());
    const double hole_azimuth = shifted(azimuth);
    const double hole_dip = shifted(dip);
    const Vector3 along = direction(hole_azimuth, hole_dip);
    Vector3 location = collar;
    for (int k = 1; is_inside(location, bounding_box); ++k) {
      poll();
      holes.locations.push_back(location);
      holes.dhids.push_back(hole);
      location = collar + (k * spacing) * along;
    }
    poll();
  }
  return holes;
}

}  // namespace talvorix
