#pragma once

#include "core/geometry.h"
#include "variography/experimental_variogram.h"

#include <vector>

namespace talvorix {

struct ExpVariogramSearch {
  int n_centers = 60;       // data around which pairs are looked for
  double angle_tol = 5.0;   // degrees between a pair and its direction
  int n_lags = 75;          // for each direction
  double lag_tol = 0.001;   // the shortest lag, in units of the data's box
  double bandwidth = 0.02;  // half the width of the search, in units of the data's box
  int window_size = 2;      // bins on either side that a pair also counts for
  int n_directions = 300;   // half the number of directions
  double tol = 0.01;        // how far from parallel the search's second axis is drawn
};

// A directional experimental variogram of scattered data in random directions, from the pairs that
// stand in thin tubes around a few data, most of them high-valued. Always draws from one fixed
// seed; the result does not depend on the thread count.
ExperimentalVariogram compute_exp_variogram(const Locations& data_locs,
                                            const std::vector<double>& data_values,
                                            const ExpVariogramSearch& search, int n_threads);

}  // namespace talvorix
