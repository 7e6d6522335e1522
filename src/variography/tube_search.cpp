#include "variography/tube_search.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace talvorix {

TubeSearch::Cells::Cells(double smallest, double largest, double radius, std::size_t most)
    : first(smallest) {
  // A cell is at least as wide as the radius, so that the next cells on either side hold all that
  // is within it; the slack covers rounding.
  const double width =
      std::max(radius * (1.0 + 1e-9), (largest - smallest) / static_cast<double>(most));
  per_unit = 1.0 / width;
  const double wanted = (largest - smallest) * per_unit;
  if (std::isfinite(per_unit) && wanted >= 0.0 && wanted <= static_cast<double>(most)) {
    count = static_cast<std::size_t>(wanted) + 1;
  } else {
    // Nothing to measure by: one cell holds everything.
    per_unit = 0.0;
  }
}

std::size_t TubeSearch::Cells::of(double coordinate) const {
  const double cell = (coordinate - first) * per_unit;
  // What is not finite may stand in any cell: it is at no distance from anything.
  return cell > 0.0 ? static_cast<std::size_t>(std::min(cell, static_cast<double>(count - 1))) : 0;
}

void TubeSearch::build(const Locations& locations, const Matrix3& matrix, double radius,
                       Worker& worker) {
  squared_radius_ = radius * radius;
  constexpr double infinity = std::numeric_limits<double>::infinity();
  Eigen::Array2d smallest(infinity, infinity);
  Eigen::Array2d largest(-infinity, -infinity);
  mapped_.clear();
  for (const Vector3& location : locations) {
    worker.poll();
    const Vector3 mapped = matrix * location;
    mapped_.push_back(
        {mapped[0], mapped[1], mapped[2], static_cast<std::uint32_t>(mapped_.size())});
    if (mapped.allFinite()) {
      smallest = smallest.min(mapped.tail<2>().array());
      largest = largest.max(mapped.tail<2>().array());
    }
  }
  const auto most = static_cast<std::size_t>(std::sqrt(static_cast<double>(locations.size()))) + 1;
  across_ = Cells(smallest[0], largest[0], radius, most);
  up_ = Cells(smallest[1], largest[1], radius, most);

  cell_start_.assign(across_.count * up_.count + 1, 0);
  cells_.clear();
  for (const MappedPoint& point : mapped_) {
    cells_.push_back(static_cast<std::uint32_t>(cell_of(point)));
    ++cell_start_[cells_.back() + 1];
  }
  for (std::size_t cell = 1; cell < cell_start_.size(); ++cell) {
    cell_start_[cell] += cell_start_[cell - 1];
  }
  // Filling moves each start to the end of its cell, which is the next one's start.
  by_cell_.resize(mapped_.size());
  for (const MappedPoint& point : mapped_) {
    by_cell_[cell_start_[cells_[point.index]]++] = point;
  }
  std::copy_backward(cell_start_.begin(), cell_start_.end() - 1, cell_start_.end());
  cell_start_.front() = 0;
}

void TubeSearch::find(std::size_t center, std::vector<std::uint32_t>& found) const {
  found.clear();
  const MappedPoint& from = mapped_[center];
  const std::size_t row = across_.of(from.across);
  const std::size_t column = up_.of(from.up);
  const std::size_t first_column = column - std::min<std::size_t>(column, 1);
  const std::size_t last_column = std::min(column + 1, up_.count - 1);
  for (std::size_t r = row - std::min<std::size_t>(row, 1);
       r <= std::min(row + 1, across_.count - 1); ++r) {
    // The cells of a row follow each other.
    const std::uint32_t end = cell_start_[r * up_.count + last_column + 1];
    for (std::uint32_t i = cell_start_[r * up_.count + first_column]; i < end; ++i) {
      const MappedPoint& point = by_cell_[i];
      const double along = point.along - from.along;
      const double across = point.across - from.across;
      const double up = point.up - from.up;
      if (along * along + across * across + up * up < squared_radius_) {
        found.push_back(point.index);
      }
    }
  }
}

}  // namespace talvorix
