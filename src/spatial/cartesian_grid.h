#pragma once

#include "core/geometry.h"
#include "spatial/bounding_box.h"
#include "spatial/ellipsoid.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace talvorix {

// Counts of cells, or numbers of a cell, along the first, second and third axis.
using CellTriple = std::array<std::int64_t, 3>;

// A regular, possibly rotated, lattice of locations. The linear index runs fastest along the third
// axis. The origin is the location of the first cell, not the corner of a block: the last cell
// stands one cell short of the origin plus the length.
class CartesianGrid {
 public:
  // The rotation holds azimuth, dip and rake in degrees; azimuth 90 puts the first axis on +x.
  CartesianGrid(const Vector3& length, const CellTriple& number_of_cells, const Vector3& origin,
                const Vector3& rotation);

  // The counts are length over cell_size, truncated. The length stands as given, so a remainder
  // widens the spacing beyond cell_size.
  static CartesianGrid from_length_and_cell_size(const Vector3& length, const Vector3& cell_size,
                                                 const Vector3& origin, const Vector3& rotation);
  static CartesianGrid from_cells(const CellTriple& number_of_cells, const Vector3& cell_size,
                                  const Vector3& origin, const Vector3& rotation);

  // The grid with this transformation, whose ranges are the length.
  CartesianGrid(const Ellipsoid& transformation, const CellTriple& number_of_cells,
                const Vector3& origin, const Vector3& rotation);

  // From the real box to the unit cube, but for the origin.
  const Ellipsoid& transformation() const { return transformation_; }
  const Vector3& origin() const { return origin_; }
  // Azimuth, dip and rake in degrees, as given: the transformation does not keep them.
  const Vector3& rotation() const { return rotation_; }
  // One over each count.
  const Vector3& normalised_cell() const { return normalised_cell_; }
  // The diagonal of a cell as a real offset: with a rotation these are not the edge lengths.
  const Vector3& cell_size() const { return cell_size_; }
  const CellTriple& number_of_cells() const { return counts_; }
  std::int64_t total() const { return total_; }
  const Locations& locations() const { return locations_; }

  // Indices are not held against the counts; beyond them lie locations outside the box.
  std::int64_t index(const CellTriple& cell) const;
  // Throws std::out_of_range when the grid has no cells to count by.
  CellTriple ijk(std::int64_t index) const;
  Vector3 location(const CellTriple& cell) const;
  Vector3 location(std::int64_t index) const { return location(ijk(index)); }

  // The images of the unit cube's corners, the third axis running fastest.
  Locations corners() const;
  BoundingBox bounding_box() const { return BoundingBox(corners()); }

 private:
  Ellipsoid transformation_;
  Vector3 origin_;
  Vector3 rotation_;
  CellTriple counts_;
  Vector3 normalised_cell_;
  Vector3 cell_size_;
  std::int64_t total_;
  Locations locations_;
};

}  // namespace talvorix
