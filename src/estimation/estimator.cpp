#include "estimation/estimator.h"

#include "core/arguments.h"

namespace talvorix {

NeiGetter create_nei_getter(const EstimationInput& input, const SearchLimits& limits) {
  require_equal_lengths("data", input.data.size(), "data_locs", input.data_locs.size());
  return create_nei_getter(input.data_locs, input.neighborhood, limits.max_neighbors,
                           limits.max_radius, limits.max_neighbors_octant, limits.dhids,
                           limits.max_neis_by_dhid);
}

}  // namespace talvorix
