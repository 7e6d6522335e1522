#pragma once

#include "core/geometry.h"
#include "core/large_pages.h"

#include <cstddef>
#include <limits>
#include <vector>

namespace talvorix {

// The coordinates of a list of points in three columns, for loops over all of them. The columns are
// padded to whole blocks with NaN, which no comparison takes for a point.
class PointColumns {
 public:
  static constexpr std::size_t block = 16;

  explicit PointColumns(const Locations& points)
      : padded_size_((points.size() + block - 1) / block * block) {
    coordinates_.reserve(3 * padded_size_);
    prefer_large_pages(coordinates_.data(), 3 * padded_size_ * sizeof(double));
    coordinates_.resize(3 * padded_size_, std::numeric_limits<double>::quiet_NaN());
    for (std::size_t i = 0; i < points.size(); ++i) {
      set(i, points[i]);
    }
  }

  std::size_t padded_size() const { return padded_size_; }
  const double* x() const { return coordinates_.data(); }
  const double* y() const { return coordinates_.data() + padded_size_; }
  const double* z() const { return coordinates_.data() + 2 * padded_size_; }

  void set(std::size_t i, const Vector3& point) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      coordinates_[axis * padded_size_ + i] = point[static_cast<Eigen::Index>(axis)];
    }
  }

 private:
  std::size_t padded_size_;
  std::vector<double> coordinates_;
};

// The extent of points along a direction. It starts from bounds that hold no point.
struct ProjectionRange {
  double smallest = 1e30;
  double largest = -1e30;
};

// Widens the range by the projections of the points begin to end - 1, both multiples of the block.
void widen_by_projections(const PointColumns& points, std::size_t begin, std::size_t end,
                          const Vector3& direction, ProjectionRange& range);

// The first of those points whose projection is the value, which widen_by_projections found there.
std::size_t find_projection(const PointColumns& points, std::size_t begin, std::size_t end,
                            const Vector3& direction, double value);

}  // namespace talvorix
