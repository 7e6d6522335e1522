#include "spatial/point_columns.h"

#include "core/multiply_add.h"

#include <algorithm>

namespace talvorix {

namespace {

// Both passes over the points must round alike.
inline double projection(double x, double y, double z, const Vector3& direction) {
  return multiply_add(z, direction[2], multiply_add(y, direction[1], x * direction[0]));
}

}  // namespace

void widen_by_projections(const PointColumns& points, std::size_t begin, std::size_t end,
                          const Vector3& direction, ProjectionRange& range) {
  // NaN is neither below nor above anything, and leaves the bounds alone.
  double smallest[PointColumns::block];
  double largest[PointColumns::block];
  std::fill_n(smallest, PointColumns::block, range.smallest);
  std::fill_n(largest, PointColumns::block, range.largest);
  const double* __restrict x = points.x();
  const double* __restrict y = points.y();
  const double* __restrict z = points.z();
  for (std::size_t first = begin; first < end; first += PointColumns::block) {
    for (std::size_t lane = 0; lane < PointColumns::block; ++lane) {
      const std::size_t i = first + lane;
      const double p = projection(x[i], y[i], z[i], direction);
      smallest[lane] = p < smallest[lane] ? p : smallest[lane];
      largest[lane] = p > largest[lane] ? p : largest[lane];
    }
  }
  range.smallest = *std::min_element(smallest, smallest + PointColumns::block);
  range.largest = *std::max_element(largest, largest + PointColumns::block);
}

std::size_t find_projection(const PointColumns& points, std::size_t begin, std::size_t end,
                            const Vector3& direction, double value) {
  std::size_t i = begin;
  while (i + 1 < end &&
         projection(points.x()[i], points.y()[i], points.z()[i], direction) != value) {
    ++i;
  }
  return i;
}

}  // namespace talvorix
