#include "estimation/estimator.h"

#include "core/arguments.h"

#include <memory>

namespace talvorix {

Estimator::Estimator(Single single) {
  // What the method holds may be large, so both forms share it.
  const auto method = std::make_shared<const Single>(std::move(single));
  single_ = [method](const Locations& target_locs, const Neighborhood& neighborhood,
                     const Locations& data_locs, const std::vector<double>& data, int n_threads) {
    return (*method)(target_locs, neighborhood, data_locs, data, n_threads);
  };
  several_ = [method](const Locations& target_locs, const Neighborhood& neighborhood,
                      const Locations& data_locs, const DataLists& data_lists, int n_threads) {
    std::vector<std::vector<double>> estimates;
    estimates.reserve(data_lists.size());
    for (const std::vector<double>& data : data_lists) {
      estimates.push_back((*method)(target_locs, neighborhood, data_locs, data, n_threads));
    }
    return estimates;
  };
}

NeiGetter create_nei_getter(const EstimationInput& input, const SearchLimits& limits) {
  require_equal_lengths("data", input.data.size(), "data_locs", input.data_locs.size());
  return create_nei_getter(input.data_locs, input.neighborhood, limits.max_neighbors,
                           limits.max_radius, limits.max_neighbors_octant, limits.dhids,
                           limits.max_neis_by_dhid);
}

}  // namespace talvorix
