#include "spatial/orientation_generator.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/random.h"
#include "spatial/sphere_directions.h"

#include <cmath>
#include <cstddef>

namespace talvorix {

std::vector<Matrix3> generate_rotations(int n_rays, std::int64_t seed, double tol) {
  require_count("n_rays", n_rays);
  RandomEngine rng = seeded_engine(seed);
  const Locations rays = generate_random_sphere(n_rays, static_cast<std::int64_t>(rng()));
  std::vector<Matrix3> frames;
  InterruptPoller poll;
  for (std::size_t i = 0; i < rays.size(); ++i) {
    const Vector3 u = rays[i].normalized();
    for (std::size_t j = i + 1; j < rays.size(); ++j) {
      poll();
      const double c = u.dot(rays[j]);
      if (std::abs(c) < tol) {
        // The second and third rows keep the length that the subtraction leaves: deliberate, the
        // ranges of the ellipsoids made from them carry it.
        const Vector3 w = rays[j].normalized() - c * u;
        Matrix3 frame;
        frame << u.transpose(), w.transpose(), u.cross(w).transpose();
        frames.push_back(frame);
      }
    }
  }
  return frames;
}

std::vector<Ellipsoid> generate_ellipsoids(double min_range, double max_range, int n_rays,
                                           int n_scales, std::int64_t seed, double tol) {
  const std::size_t n_shapes = 2 * require_count("n_scales", n_scales);
  RandomEngine rng = seeded_engine(seed);
  const std::vector<Matrix3> frames = generate_rotations(n_rays, seed, tol);
  std::vector<Ellipsoid> ellipsoids;
  ellipsoids.reserve(frames.size() * n_shapes);
  InterruptPoller poll;
  for (const Matrix3& frame : frames) {
    poll();
    for (const Vector3& s : generate_random_sphere(n_scales, static_cast<std::int64_t>(rng()))) {
      poll();
      const double length = uniform(rng) * (max_range - min_range) + min_range;
      // A component may be negative, which turns an axis round, or 0: nothing guards it.
      const Vector3 ranges = length * s;
      const Matrix3 matrix = ranges.cwiseInverse().asDiagonal() * frame;
      ellipsoids.emplace_back(sort_matrix3d(matrix, true));
    }
  }
  shuffle(ellipsoids, rng);
  return ellipsoids;
}

}  // namespace talvorix
