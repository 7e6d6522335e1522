#pragma once

#include "core/geometry.h"
#include "core/parallel.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talvorix {

// Finds the data within a radius of others in an anisotropic space that makes the neighbourhood a
// long thin tube. A tube spans the field, so the data are sorted into cells of the plane across it
// only: a rebuild for the next direction costs a few passes over the data, where a tree would cost
// more than all searches of that direction together. One for each worker; its memory is kept from
// direction to direction.
class TubeSearch {
 public:
  // The first row of the matrix is the direction of the tube, in units of half its length; the
  // other two go across, in units of half its width.
  void build(const Locations& locations, const Matrix3& matrix, double radius, Worker& worker);

  // All locations nearer than the radius to one of them, itself included, in a fixed order that is
  // not that of distance. Coordinates that are not finite are near nothing.
  void find(std::size_t center, std::vector<std::uint32_t>& found) const;

 private:
  struct MappedPoint {
    double along;
    double across;
    double up;
    std::uint32_t index;
  };
  // Cells along one axis of the plane.
  struct Cells {
    double first = 0.0;
    double per_unit = 0.0;
    std::size_t count = 1;

    Cells() = default;
    Cells(double smallest, double largest, double radius, std::size_t most);
    std::size_t of(double coordinate) const;
  };

  std::size_t cell_of(const MappedPoint& point) const {
    return across_.of(point.across) * up_.count + up_.of(point.up);
  }

  double squared_radius_ = 0.0;
  Cells across_;
  Cells up_;
  std::vector<MappedPoint> mapped_;        // in the order given
  std::vector<std::uint32_t> cells_;       // of each
  std::vector<MappedPoint> by_cell_;       // the same points, cell after cell
  std::vector<std::uint32_t> cell_start_;  // where each cell starts in it, and the end
};

}  // namespace talvorix
