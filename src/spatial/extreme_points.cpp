#include "spatial/extreme_points.h"

#include "core/arguments.h"
#include "core/parallel.h"
#include "spatial/point_columns.h"
#include "spatial/sphere_directions.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace talvorix {

namespace {

constexpr std::ptrdiff_t none = -1;

struct Extremes {
  ProjectionRange range;
  std::ptrdiff_t smallest = none;  // where the range's ends were met
  std::ptrdiff_t largest = none;
};

// So many points fit into the nearest cache while all rays of a worker pass over them.
constexpr std::size_t points_at_a_time = 64 * PointColumns::block;

void widen(const PointColumns& points, std::size_t begin, std::size_t end, const Vector3& ray,
           Extremes& extremes) {
  const ProjectionRange before = extremes.range;
  widen_by_projections(points, begin, end, ray, extremes.range);
  const auto place = [&](double value) {
    return static_cast<std::ptrdiff_t>(find_projection(points, begin, end, ray, value));
  };
  // Ends move in few of the blocks, so looking up where costs next to nothing.
  if (extremes.range.smallest < before.smallest) {
    extremes.smallest = place(extremes.range.smallest);
  }
  if (extremes.range.largest > before.largest) {
    extremes.largest = place(extremes.range.largest);
  }
}

}  // namespace

Locations extreme_points(const Locations& locations, int n_rays, std::int64_t seed, int n_threads) {
  require_count("n_rays", n_rays);
  const Locations rays = generate_random_sphere(n_rays, seed);
  const PointColumns points(locations);
  std::vector<Extremes> extremes(rays.size());
  parallel_blocks(rays.size(), check_n_threads(n_threads),
                  [&](Worker& worker, std::size_t first_ray, std::size_t last_ray) {
                    for (std::size_t begin = 0; begin < points.padded_size();
                         begin += points_at_a_time) {
                      const auto end = std::min(begin + points_at_a_time, points.padded_size());
                      for (std::size_t ray = first_ray; ray < last_ray; ++ray) {
                        worker.poll();
                        widen(points, begin, end, rays[ray], extremes[ray]);
                      }
                    }
                  });

  std::vector<bool> seen(locations.size(), false);
  Locations outline;
  for (const Extremes& of_ray : extremes) {
    for (const std::ptrdiff_t i : {of_ray.smallest, of_ray.largest}) {
      const auto index = static_cast<std::size_t>(i);
      if (i != none && !seen[index]) {
        seen[index] = true;
        outline.push_back(locations[index]);
      }
    }
  }
  return outline;
}

}  // namespace talvorix
