#pragma once

#include "core/geometry.h"
#include "spatial/cartesian_grid.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talvorix {

// One bit for each cell of a grid, in the order of the linear index.
using CellMask = std::vector<bool>;

// A grid with a mask that selects its active cells. They are numbered by their positions in the
// ascending list of active linear indices.
class BlockModel {
 public:
  // Throws std::invalid_argument when the mask is not as long as the grid.
  BlockModel(CartesianGrid base_grid, CellMask mask);

  const CartesianGrid& base_grid() const { return base_grid_; }
  const CellMask& mask() const { return mask_; }
  // Linear indices of the active cells, ascending.
  const std::vector<std::int64_t>& active() const { return active_; }
  const Locations& locations() const { return locations_; }
  std::size_t size() const { return active_.size(); }

  // By position among the active cells; throws std::out_of_range when there is none such.
  CellTriple ijk(std::int64_t position) const { return base_grid_.ijk(linear_index(position)); }
  Vector3 location(std::int64_t position) const;
  // By cell; throws std::out_of_range when the mask is clear there.
  Vector3 location(const CellTriple& cell) const;

 private:
  std::int64_t linear_index(std::int64_t position) const;

  CartesianGrid base_grid_;
  CellMask mask_;
  std::vector<std::int64_t> active_;
  Locations locations_;
};

}  // namespace talvorix
