#include "variography/map_variogram.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/large_pages.h"
#include "core/memory_limit.h"
#include "core/multiply_add.h"
#include "core/parallel.h"
#include "core/random.h"
#include "core/truncation.h"
#include "simulation/masked_variogram.h"
#include "spatial/bounding_box.h"
#include "spatial/ellipsoid.h"
#include "spatial/sphere_directions.h"
#include "variography/ascending_draws.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

constexpr double missing = std::numeric_limits<double>::quiet_NaN();

void require_finite(const std::string& name, const Vector3& vector) {
  if (!vector.allFinite()) {
    throw std::invalid_argument(name + " is not finite; its three numbers must be");
  }
}

void require_lattice(const Locations& corners, const MapLattice& lattice) {
  constexpr std::array<const char*, 3> names = {"nx", "ny", "nz"};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    require_positive_count(names[axis], lattice.number_of_cells[axis]);
  }
  require_finite("origin", lattice.origin);
  require_finite("rotation", lattice.rotation);
  if (corners.empty()) {
    throw std::invalid_argument("corners is empty; the lattice covers the box of at least one");
  }
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (!corners[i].allFinite()) {
      require_finite("corners[" + std::to_string(i) + "]", corners[i]);
    }
  }
}

// The data, and a grid of twice the extents less one with three spectra, are held at once.
void require_map_memory(const CellTriple& cells) {
  const auto nx = static_cast<double>(cells[0]);
  const auto ny = static_cast<double>(cells[1]);
  const auto nz = static_cast<double>(cells[2]);
  const double padded_rows = (2.0 * nx - 1.0) * (2.0 * ny - 1.0);
  require_memory("a variogram map of " + std::to_string(cells[0]) + " by " +
                     std::to_string(cells[1]) + " by " + std::to_string(cells[2]) + " cells",
                 8.0 * nx * ny * nz + padded_rows * (8.0 * (2.0 * nz - 1.0) + 48.0 * nz));
}

void require_countable_lags(const MapReading& reading) {
  const double n_directions =
      2.0 * static_cast<double>(require_count("n_directions", reading.n_directions));
  const double n_lags = n_directions * static_cast<double>(require_count("n_lags", reading.n_lags));
  constexpr double most = std::numeric_limits<int>::max();
  if (n_lags > most) {
    throw std::invalid_argument("n_directions is " + std::to_string(reading.n_directions) +
                                " and n_lags is " + std::to_string(reading.n_lags) +
                                ": more lags in all than can be numbered");
  }
  constexpr double bytes_per_direction = 80.0;
  constexpr double bytes_per_lag = 100.0;
  require_memory("the table of lags", bytes_per_direction * n_directions + bytes_per_lag * n_lags);
}

// A cell of the lattice whose box is the unit cube.
Vector3 normalised_cell(const CellTriple& n) {
  return {1.0 / static_cast<double>(n[0]), 1.0 / static_cast<double>(n[1]),
          1.0 / static_cast<double>(n[2])};
}

// The data in the cells of the lattice; cells without one are missing.
fft::array tabulated(const Ellipsoid& transformation, const MapLattice& lattice,
                     const Locations& locations, const std::vector<double>& data, int n_workers) {
  const CellTriple& n = lattice.number_of_cells;
  const Vector3 cell = normalised_cell(n);
  constexpr std::int64_t outside = -1;
  std::vector<std::int64_t> cell_of_datum(locations.size());
  parallel_for(locations.size(), n_workers, [&](Worker&, std::size_t datum) {
    const Vector3 position = transformation.forward(locations[datum] - lattice.origin);
    std::int64_t index = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto row = static_cast<Eigen::Index>(axis);
      const double along = position[row] / cell[row];
      // Toward zero: the first cell also holds what stands up to one cell before it.
      const std::int64_t i = std::isnan(along) ? outside : truncated_to_int(along);
      if (i < 0 || i >= n[axis]) {
        index = outside;
        break;
      }
      index = index * n[axis] + i;
    }
    cell_of_datum[datum] = index;
  });
  fft::array table({n[0], n[1], n[2]}, missing);
  InterruptPoller poll;
  // One after the other, so that the last datum in a cell stays there.
  for (std::size_t datum = 0; datum < data.size(); ++datum) {
    poll();
    if (cell_of_datum[datum] != outside) {
      table(cell_of_datum[datum]) = data[datum];
    }
  }
  return table;
}

// The cells of a map along one axis, which stand at -n/2 to n/2 in parts of n.
class MapAxis {
 public:
  MapAxis(std::int64_t n, double radius)
      : n_(static_cast<double>(n)),
        half_(n / 2),
        // More than what rounding can do to the ends of a run, however much of the radius cancels.
        slack_(1e-3 + 1e-7 * radius * n_) {
    coordinates_.reserve(size());
    for (std::int64_t i = -half_; i <= half_; ++i) {
      coordinates_.push_back(static_cast<double>(i) / n_);
    }
  }

  std::int64_t half() const { return half_; }
  std::size_t size() const { return static_cast<std::size_t>(2 * half_ + 1); }
  double operator[](std::size_t position) const { return coordinates_[position]; }

  struct Run {
    std::size_t begin;
    std::size_t end;
  };

  // At least the cells within the reach of a coordinate.
  Run near(double coordinate, double reach) const {
    const auto half = static_cast<double>(half_);
    const double first = std::ceil((coordinate - reach) * n_ - slack_);
    const double last = std::floor((coordinate + reach) * n_ + slack_);
    if (first > half || last < -half) {
      return {0, 0};
    }
    // What is no number covers the whole axis.
    const auto begin = first >= -half ? static_cast<std::int64_t>(first) : -half_;
    const auto end = last < half ? static_cast<std::int64_t>(last) + 1 : half_ + 1;
    return {static_cast<std::size_t>(begin + half_),
            static_cast<std::size_t>(std::max(begin, end) + half_)};
  }

 private:
  double n_;
  std::int64_t half_;
  double slack_;
  std::vector<double> coordinates_;
};

struct MeanOfPairs {
  double variogram = 0.0;
  double npairs = 0.0;
};

// The inner half of a variogram map in ascending order of lags, with what belongs to a lag side by
// side: what is read around a lag stands in few runs of memory.
class InnerMap {
 public:
  InnerMap(const fft::MaskedVariogram& map, const CellTriple& n, double radius, int n_workers)
      : squared_radius_(radius * radius),
        x_(n[0], std::abs(radius)),
        y_(n[1], std::abs(radius)),
        z_(n[2], std::abs(radius)) {
    const std::size_t size = x_.size() * y_.size() * z_.size();
    cells_.reserve(size);
    prefer_large_pages(cells_.data(), size * sizeof(MeanOfPairs));
    cells_.resize(size);
    parallel_for(x_.size() * y_.size(), n_workers, [&](Worker&, std::size_t row) {
      const std::int64_t i = static_cast<std::int64_t>(row / y_.size()) - x_.half();
      const std::int64_t j = static_cast<std::int64_t>(row % y_.size()) - y_.half();
      MeanOfPairs* cell = cells_.data() + row * z_.size();
      for (std::int64_t k = -z_.half(); k <= z_.half(); ++k) {
        *cell++ = {map.variogram(i, j, k), map.npairs(i, j, k)};
      }
    });
  }

  // Over the cells nearer to a lag than the radius, in their order.
  MeanOfPairs mean_around(const Vector3& lag, Worker& worker) const {
    MeanOfPairs mean;
    if (!(squared_radius_ > 0.0) || !lag.allFinite()) {
      return mean;
    }
    const MapAxis::Run planes = x_.near(lag.x(), std::sqrt(squared_radius_));
    for (std::size_t i = planes.begin; i < planes.end; ++i) {
      const double dx = x_[i] - lag.x();
      const double in_plane = dx * dx;
      if (!(in_plane < squared_radius_)) {
        continue;
      }
      const MapAxis::Run rows = y_.near(lag.y(), std::sqrt(squared_radius_ - in_plane));
      for (std::size_t j = rows.begin; j < rows.end; ++j) {
        const double dy = y_[j] - lag.y();
        const double in_row = multiply_add(dy, dy, in_plane);
        if (in_row < squared_radius_) {
          worker.poll();
          add_run(cells_.data() + (i * y_.size() + j) * z_.size(), lag.z(), in_row, mean);
        }
      }
    }
    return mean;
  }

 private:
  // The distance in a row grows from the lag on both ways, so the cells within are one run.
  void add_run(const MeanOfPairs* row, double center, double in_row, MeanOfPairs& mean) const {
    const auto is_within = [&](std::size_t k) {
      const double dz = z_[k] - center;
      return multiply_add(dz, dz, in_row) < squared_radius_;
    };
    auto [begin, end] = z_.near(center, std::sqrt(squared_radius_ - in_row));
    while (begin < end && !is_within(begin)) {
      ++begin;
    }
    while (begin < end && !is_within(end - 1)) {
      --end;
    }
    for (std::size_t k = begin; k < end; ++k) {
      const double pairs = row[k].npairs;
      // Where no pair was met so far this is 0 / 0, which deliberately stays.
      const double all_pairs = pairs + mean.npairs;
      mean.variogram =
          (pairs / all_pairs) * row[k].variogram + (mean.npairs / all_pairs) * mean.variogram;
      mean.npairs = all_pairs;
    }
  }

  double squared_radius_;
  MapAxis x_;
  MapAxis y_;
  MapAxis z_;
  std::vector<MeanOfPairs> cells_;
};

struct DirectedLags {
  Locations directions;
  Locations lags;  // as many for each direction, one direction after the other
};

// The directions do not depend on the seed: deliberate.
DirectedLags draw_lags(const MapReading& reading, const Matrix3& to_real) {
  constexpr std::int64_t seed_of_directions = 0;
  DirectedLags drawn{generate_random_sphere(reading.n_directions, seed_of_directions), {}};
  RandomEngine rng = seeded_engine(reading.seed);
  StandardNormal normal;
  InterruptPoller poll;
  const auto n_lags = static_cast<std::size_t>(reading.n_lags);
  drawn.lags.reserve(drawn.directions.size() * n_lags);
  for (const Vector3& direction : drawn.directions) {
    const auto lengths = ascending_draws(n_lags, poll, [&] {
      constexpr double shortest = 1e-10;
      double length = 0.0;
      do {
        length = std::abs(normal(rng));
      } while (length < shortest);
      return length;
    });
    for (const double length : lengths) {
      drawn.lags.emplace_back(to_real * (length * direction));
    }
  }
  return drawn;
}

}  // namespace

ExperimentalVariogram compute_map_variogram(const Locations& corners, const Locations& locations,
                                            const std::vector<double>& data,
                                            const MapLattice& lattice, const MapReading& reading,
                                            int n_threads) {
  require_equal_lengths("data", data.size(), "locations", locations.size());
  require_lattice(corners, lattice);
  require_countable_lags(reading);
  const CellTriple& n = lattice.number_of_cells;
  require_map_memory(n);

  const int n_workers = check_n_threads(n_threads);
  const Vector3& turn = lattice.rotation;
  const Vector3 length =
      BoundingBox(rotation(turn[0], turn[1], turn[2]).forward(corners, n_threads)).size();
  const Ellipsoid transformation(length[0], length[1], length[2], turn[0], turn[1], turn[2]);
  const double diagonal = normalised_cell(n).norm();
  const InnerMap map(
      fft::masked_variogram(tabulated(transformation, lattice, locations, data, n_workers)), n,
      reading.bandwidth * diagonal, n_workers);

  DirectedLags drawn = draw_lags(reading, transformation.inv_matrix());
  std::vector<MeanOfPairs> means(drawn.lags.size());
  parallel_for(drawn.lags.size(), n_workers, [&](Worker& worker, std::size_t t) {
    means[t] = map.mean_around(transformation.forward(drawn.lags[t]), worker);
  });

  ExperimentalVariogram::Entries kept;
  std::vector<int> direction_ids;
  InterruptPoller poll;
  for (std::size_t t = 0; t < means.size(); ++t) {
    poll();
    if (means[t].npairs >= 1.0) {
      kept.lags.push_back(drawn.lags[t]);
      kept.variogram.push_back(means[t].variogram);
      kept.npairs.push_back(truncated_to_int(means[t].npairs));
      direction_ids.push_back(static_cast<int>(t / static_cast<std::size_t>(reading.n_lags)));
    }
  }
  return {std::move(kept), std::move(direction_ids), std::move(drawn.directions)};
}

ExperimentalVariogram compute_map_variogram(const CartesianGrid& grid,
                                            const std::vector<double>& data,
                                            const CellTriple& map_cells, const MapReading& reading,
                                            int n_threads) {
  require_equal_lengths("data", data.size(), "cartesian_grid", grid.locations().size());
  return compute_map_variogram(grid.corners(), grid.locations(), data,
                               {map_cells, grid.origin(), grid.rotation()}, reading, n_threads);
}

ExperimentalVariogram compute_map_variogram(const BlockModel& block_model,
                                            const std::vector<double>& data,
                                            const CellTriple& map_cells, const MapReading& reading,
                                            int n_threads) {
  require_equal_lengths("data", data.size(), "block_model", block_model.size());
  const CartesianGrid& grid = block_model.base_grid();
  std::vector<double> spread =
      values_on_large_pages(static_cast<std::size_t>(grid.total()), missing);
  InterruptPoller poll;
  for (std::size_t position = 0; position < data.size(); ++position) {
    poll();
    spread[static_cast<std::size_t>(block_model.active()[position])] = data[position];
  }
  return compute_map_variogram(grid, spread, map_cells, reading, n_threads);
}

}  // namespace talvorix
