#include "spatial/cartesian_grid.h"

#include "core/interrupt.h"
#include "core/large_pages.h"
#include "core/multiply_add.h"
#include "core/truncation.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace talvorix {

namespace {

constexpr std::array<const char*, 3> axis_names = {"first", "second", "third"};

// Number of cells in all, once it is known that there can be so many.
std::int64_t total_of(const CellTriple& counts) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (counts[axis] < 0) {
      throw std::invalid_argument("number_of_cells is " + std::to_string(counts[axis]) +
                                  " along the " + axis_names[axis] + " axis; it must be 0 or more");
    }
  }
  if (std::find(counts.begin(), counts.end(), 0) != counts.end()) {
    return 0;
  }
  constexpr auto most = static_cast<double>(std::numeric_limits<std::ptrdiff_t>::max()) /
                        static_cast<double>(sizeof(Vector3)) / 2.0;
  if (static_cast<double>(counts[0]) * static_cast<double>(counts[1]) *
          static_cast<double>(counts[2]) >
      most) {
    throw std::invalid_argument("number_of_cells is " + std::to_string(counts[0]) + " x " +
                                std::to_string(counts[1]) + " x " + std::to_string(counts[2]) +
                                ", more cells than can be numbered");
  }
  return counts[0] * counts[1] * counts[2];
}

Vector3 inverse_of(const CellTriple& counts) {
  Vector3 inverse;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    inverse[static_cast<Eigen::Index>(axis)] = 1.0 / static_cast<double>(counts[axis]);
  }
  return inverse;
}

// Of an axis without cells the normalised cell is infinite; axes at right angles to it stay finite.
Vector3 cell_diagonal(const Matrix3& to_real, const Vector3& normalised_cell) {
  if (normalised_cell.allFinite()) {
    return to_real * normalised_cell;
  }
  Vector3 sum = Vector3::Zero();
  for (Eigen::Index row = 0; row < 3; ++row) {
    for (Eigen::Index column = 0; column < 3; ++column) {
      if (to_real(row, column) != 0.0) {
        sum[row] += to_real(row, column) * normalised_cell[column];
      }
    }
  }
  return sum;
}

// Location of a cell in two steps, the first of which a run along the third axis shares. A cell
// asked for by itself is rounded as it is in the list.
class CellPlacer {
 public:
  explicit CellPlacer(const CartesianGrid& grid)
      : to_real_(grid.transformation().inv_matrix()),
        normalised_cell_(grid.normalised_cell()),
        origin_(grid.origin()) {}

  Vector3 run(std::int64_t i, std::int64_t j) const {
    const double u = static_cast<double>(i) * normalised_cell_[0];
    const double v = static_cast<double>(j) * normalised_cell_[1];
    Vector3 offset;
    for (Eigen::Index axis = 0; axis < 3; ++axis) {
      offset[axis] = multiply_add(to_real_(axis, 1), v, to_real_(axis, 0) * u);
    }
    return offset;
  }

  Vector3 place(const Vector3& run, std::int64_t k) const {
    const double w = static_cast<double>(k) * normalised_cell_[2];
    Vector3 location;
    for (Eigen::Index axis = 0; axis < 3; ++axis) {
      location[axis] = multiply_add(to_real_(axis, 2), w, run[axis]) + origin_[axis];
    }
    return location;
  }

 private:
  Matrix3 to_real_;
  Vector3 normalised_cell_;
  Vector3 origin_;
};

}  // namespace

CartesianGrid::CartesianGrid(const Vector3& length, const CellTriple& number_of_cells,
                             const Vector3& origin, const Vector3& rotation)
    : CartesianGrid(
          Ellipsoid(length[0], length[1], length[2], rotation[0], rotation[1], rotation[2]),
          number_of_cells, origin, rotation) {}

CartesianGrid::CartesianGrid(const Ellipsoid& transformation, const CellTriple& number_of_cells,
                             const Vector3& origin, const Vector3& rotation)
    : transformation_(transformation),
      origin_(origin),
      rotation_(rotation),
      counts_(number_of_cells),
      normalised_cell_(inverse_of(number_of_cells)),
      cell_size_(cell_diagonal(transformation_.inv_matrix(), normalised_cell_)),
      total_(total_of(number_of_cells)) {
  const auto n_locations = static_cast<std::size_t>(total_);
  locations_.reserve(n_locations);
  prefer_large_pages(locations_.data(), n_locations * sizeof(Vector3));
  locations_.resize(n_locations);
  const CellPlacer placer(*this);
  InterruptPoller poll;
  const std::int64_t run_length = counts_[2];
  Vector3* next = locations_.data();
  for (std::int64_t i = 0; total_ > 0 && i < counts_[0]; ++i) {
    for (std::int64_t j = 0; j < counts_[1]; ++j) {
      const Vector3 run = placer.run(i, j);
      for (std::int64_t k = 0; k < run_length;) {
        poll();
        // A run may be long; it is looked up from in pieces.
        const std::int64_t end = std::min(run_length, k + 4096);
        for (; k < end; ++k) {
          *next++ = placer.place(run, k);
        }
      }
    }
  }
}

CartesianGrid CartesianGrid::from_length_and_cell_size(const Vector3& length,
                                                       const Vector3& cell_size,
                                                       const Vector3& origin,
                                                       const Vector3& rotation) {
  CellTriple counts{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto row = static_cast<Eigen::Index>(axis);
    counts[axis] = truncated_to_int(length[row] / cell_size[row]);
    if (counts[axis] < 0) {
      throw std::invalid_argument("length over cell_size gives " + std::to_string(counts[axis]) +
                                  " cells along the " + axis_names[axis] +
                                  " axis; there must be 0 or more");
    }
  }
  return {length, counts, origin, rotation};
}

CartesianGrid CartesianGrid::from_cells(const CellTriple& number_of_cells, const Vector3& cell_size,
                                        const Vector3& origin, const Vector3& rotation) {
  Vector3 length;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto row = static_cast<Eigen::Index>(axis);
    length[row] = static_cast<double>(number_of_cells[axis]) * cell_size[row];
  }
  return {length, number_of_cells, origin, rotation};
}

std::int64_t CartesianGrid::index(const CellTriple& cell) const {
  // Indices wrap rather than overflow.
  const auto wide = [](std::int64_t value) { return static_cast<std::uint64_t>(value); };
  return static_cast<std::int64_t>(
      (wide(cell[0]) * wide(counts_[1]) + wide(cell[1])) * wide(counts_[2]) + wide(cell[2]));
}

CellTriple CartesianGrid::ijk(std::int64_t index) const {
  if (counts_[1] == 0 || counts_[2] == 0) {
    throw std::out_of_range("the grid has no cells along its second or third axis, so index " +
                            std::to_string(index) + " is none of its cells");
  }
  return {(index / counts_[2]) / counts_[1], (index / counts_[2]) % counts_[1], index % counts_[2]};
}

Vector3 CartesianGrid::location(const CellTriple& cell) const {
  const CellPlacer placer(*this);
  return placer.place(placer.run(cell[0], cell[1]), cell[2]);
}

Locations CartesianGrid::corners() const {
  Locations corners;
  for (const double u : {0.0, 1.0}) {
    for (const double v : {0.0, 1.0}) {
      for (const double w : {0.0, 1.0}) {
        corners.emplace_back(transformation_.backward(Vector3(u, v, w)) + origin_);
      }
    }
  }
  return corners;
}

}  // namespace talvorix
