#pragma once

#include "variography/experimental_variogram.h"

#include <cstdint>

namespace talvorix {

struct VariogramSmoothing {
  int n_lags;      // below 1: as many for a direction as it has entries
  int max_n_neis;  // below 1: all entries nearer than max_r are neighbours
  double max_r;
  double bandwidth;   // furthest that an entry may stand from the line of the direction
  double power_a;     // of the inverse distances that entries are weighted by
  double max_weight;  // of the entries at the very lag, when there are others
  int sampling_size;
  std::int64_t seed;
};

// Resamples a variogram at random lags along its directions, as means of the entries around them.
// Throws std::runtime_error when there is no entry to make a mean of anywhere. The result does not
// depend on the number of threads.
ExperimentalVariogram smooth_variogram(const ExperimentalVariogram& vario,
                                       const VariogramSmoothing& smoothing, int n_threads);

}  // namespace talvorix
