#pragma once

#include "core/geometry.h"
#include "spatial/neighborhood.h"

#include <array>
#include <cstddef>
#include <variant>
#include <vector>

namespace talvorix {

// Thins a nearest-first list of neighbours by octant and by drillhole. Points are only dropped,
// never fetched to fill a place.
class NeighborLimits {
 public:
  NeighborLimits(const Locations& data_locs, int max_neighbors_octant,
                 const std::vector<int>& dhids, int max_neis_by_dhid);

  void thin(const Vector3& p, SearchScratch& scratch) const {
    if (max_neighbors_octant_ > 0) {
      limit_octants(p, scratch);
    }
    if (max_neis_by_dhid_ > 0 && !hole_.empty()) {
      limit_holes(scratch);
    }
  }

 private:
  void limit_octants(const Vector3& p, SearchScratch& scratch) const;
  void limit_holes(SearchScratch& scratch) const;

  const Locations* data_locs_;
  int max_neighbors_octant_;
  int max_neis_by_dhid_;
  std::vector<int> hole_;  // for each datum its hole, numbered from 0 without gaps
  std::size_t n_holes_ = 0;
};

// Picks the data for a location: the result stands in scratch.indices, nearest first. The
// neighborhood and the locations are borrowed, not copied.
class NearestGetter {
 public:
  NearestGetter(const Neighborhood& neighborhood, int max_neighbors, NeighborLimits limits)
      : neighborhood_(&neighborhood),
        max_neighbors_(static_cast<std::size_t>(max_neighbors)),
        limits_(std::move(limits)) {}

  void operator()(const Vector3& p, SearchScratch& scratch) const {
    neighborhood_->find_nearest(p, max_neighbors_, scratch);
    limits_.thin(p, scratch);
  }

 private:
  const Neighborhood* neighborhood_;
  std::size_t max_neighbors_;
  NeighborLimits limits_;
};

class RadiusGetter {
 public:
  RadiusGetter(const Neighborhood& neighborhood, double max_radius, NeighborLimits limits)
      : neighborhood_(&neighborhood), max_radius_(max_radius), limits_(std::move(limits)) {}

  void operator()(const Vector3& p, SearchScratch& scratch) const {
    neighborhood_->find_within(p, max_radius_, scratch);
    limits_.thin(p, scratch);
  }

 private:
  const Neighborhood* neighborhood_;
  double max_radius_;
  NeighborLimits limits_;
};

// Which search is decided once, by std::visit outside the loop over targets.
using NeiGetter = std::variant<NearestGetter, RadiusGetter>;

// A positive max_neighbors selects the k-nearest search, on which max_radius plays no part on
// purpose; otherwise the radius search, whose default of -1 thus means radius 1. Limits at or
// below 0 are none. Throws std::invalid_argument when the lists are not as many as the
// neighborhood's locations.
NeiGetter create_nei_getter(const Locations& data_locs, const Neighborhood& neighborhood,
                            int max_neighbors, double max_radius, int max_neighbors_octant,
                            const std::vector<int>& dhids, int max_neis_by_dhid);

}  // namespace talvorix
