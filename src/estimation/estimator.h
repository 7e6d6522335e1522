#pragma once

#include "core/geometry.h"
#include "core/made.h"
#include "spatial/nei_getter.h"
#include "spatial/neighborhood.h"

#include <functional>
#include <utility>
#include <vector>

namespace talvorix {

// A method of estimation with its parameters bound: given targets, the neighborhood of the data,
// the data and a thread count, it returns an estimate for each target. Given several lists of data
// that were measured in the same places, it returns as many lists; a method that weighs data
// without regard to their values then does so once for all of them.
class Estimator : public Made {
 public:
  using DataLists = std::vector<std::vector<double>>;
  using Single = std::function<std::vector<double>(
      const Locations& target_locs, const Neighborhood& neighborhood, const Locations& data_locs,
      const std::vector<double>& data, int n_threads)>;
  using Several = std::function<std::vector<std::vector<double>>(
      const Locations& target_locs, const Neighborhood& neighborhood, const Locations& data_locs,
      const DataLists& data_lists, int n_threads)>;

  // Takes lists of data one after the other.
  explicit Estimator(Single single);
  Estimator(Single single, Several several)
      : single_(std::move(single)), several_(std::move(several)) {}

  std::vector<double> operator()(const Locations& target_locs, const Neighborhood& neighborhood,
                                 const Locations& data_locs, const std::vector<double>& data,
                                 int n_threads) const {
    return single_(target_locs, neighborhood, data_locs, data, n_threads);
  }
  std::vector<std::vector<double>> of_each(const Locations& target_locs,
                                           const Neighborhood& neighborhood,
                                           const Locations& data_locs, const DataLists& data_lists,
                                           int n_threads) const {
    return several_(target_locs, neighborhood, data_locs, data_lists, n_threads);
  }

 private:
  Single single_;
  Several several_;
};

// Which data an estimate may use; limits at or below 0 are none.
struct SearchLimits {
  int max_neighbors = -1;         // above 0 the search takes the nearest so many
  double max_radius = -1.0;       // else all within the size of this radius
  int max_neighbors_octant = -1;  // of those, at most so many an octant
  std::vector<int> dhids = {};    // drillhole of each datum, may be empty
  int max_neis_by_dhid = -1;      // and at most so many a drillhole
};

// What an estimation reads; the lists are borrowed for the length of the call.
struct EstimationInput {
  const Locations& target_locs;
  const Neighborhood& neighborhood;
  const Locations& data_locs;
  const std::vector<double>& data;
};

// Throws std::invalid_argument when the input's lists disagree in length.
NeiGetter create_nei_getter(const EstimationInput& input, const SearchLimits& limits);

}  // namespace talvorix
