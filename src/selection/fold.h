#pragma once

#include "core/geometry.h"

#include <cstdint>
#include <vector>

namespace talvorix {

// A part of a data set on which models are scored.
struct Fold {
  Locations locations;
  std::vector<double> values;
};

// Cuts folds out of the data: the neighbourhoods, as far as max_distance, of n_centers data, the
// highest and others drawn from the upper half. Folds may overlap. Without any, all data are one
// fold.
std::vector<Fold> create_folds(const Locations& data_locs, const std::vector<double>& data,
                               double max_distance, int max_size, int n_centers, std::int64_t seed);

}  // namespace talvorix
