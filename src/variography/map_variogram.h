#pragma once

#include "core/geometry.h"
#include "spatial/block_model.h"
#include "spatial/cartesian_grid.h"
#include "variography/experimental_variogram.h"

#include <cstdint>
#include <vector>

namespace talvorix {

// The lattice of a variogram map. Its box starts at the origin and is as long as the box of some
// corners is along its axes.
struct MapLattice {
  CellTriple number_of_cells;
  Vector3 origin = Vector3::Zero();
  Vector3 rotation = Vector3(90.0, 0.0, 0.0);  // azimuth, dip and rake in degrees
};

// How directional variograms are read off a map.
struct MapReading {
  int n_directions;
  int n_lags;
  double bandwidth;  // radius around a lag, in diagonals of a cell
  std::int64_t seed;
};

// Computes the variogram of scattered data at every lag of a lattice by Fourier transforms
// (Marcotte 1996) and reads directional variograms off that map. The result does not depend on the
// number of threads; of two data in a cell the latter counts.
ExperimentalVariogram compute_map_variogram(const Locations& corners, const Locations& locations,
                                            const std::vector<double>& data,
                                            const MapLattice& lattice, const MapReading& reading,
                                            int n_threads);

// Of data in the cells of a grid, on a map of so many cells.
ExperimentalVariogram compute_map_variogram(const CartesianGrid& grid,
                                            const std::vector<double>& data,
                                            const CellTriple& map_cells, const MapReading& reading,
                                            int n_threads);

// Of data in the active cells of a block model.
ExperimentalVariogram compute_map_variogram(const BlockModel& block_model,
                                            const std::vector<double>& data,
                                            const CellTriple& map_cells, const MapReading& reading,
                                            int n_threads);

}  // namespace talvorix
