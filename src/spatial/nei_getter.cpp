#include "spatial/nei_getter.h"

#include "core/arguments.h"

#include <algorithm>

namespace talvorix {

NeighborLimits::NeighborLimits(const Locations& data_locs, int max_neighbors_octant,
                               const std::vector<int>& dhids, int max_neis_by_dhid)
    : data_locs_(&data_locs),
      max_neighbors_octant_(max_neighbors_octant),
      max_neis_by_dhid_(max_neis_by_dhid) {
  if (dhids.empty()) {
    return;
  }
  require_equal_lengths("dhids", dhids.size(), "data_locs", data_locs.size());
  if (max_neis_by_dhid <= 0) {
    return;
  }
  std::vector<int> names = dhids;
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  n_holes_ = names.size();
  hole_.reserve(dhids.size());
  for (const int name : dhids) {
    hole_.push_back(
        static_cast<int>(std::lower_bound(names.begin(), names.end(), name) - names.begin()));
  }
}

void NeighborLimits::limit_octants(const Vector3& p, SearchScratch& scratch) const {
  std::array<int, 8> counts{};
  std::erase_if(scratch.indices, [&](std::size_t i) {
    // The real offset, not the one in search space; an offset of exactly 0 is on the low side.
    const Vector3 d = (*data_locs_)[i] - p;
    const int octant = (d.x() > 0.0 ? 1 : 0) + (d.y() > 0.0 ? 2 : 0) + (d.z() > 0.0 ? 4 : 0);
    return counts[static_cast<std::size_t>(octant)]++ >= max_neighbors_octant_;
  });
}

void NeighborLimits::limit_holes(SearchScratch& scratch) const {
  scratch.hole_counts.resize(n_holes_);
  for (const std::size_t i : scratch.indices) {
    scratch.hole_counts[static_cast<std::size_t>(hole_[i])] = 0;
  }
  std::erase_if(scratch.indices, [&](std::size_t i) {
    return scratch.hole_counts[static_cast<std::size_t>(hole_[i])]++ >= max_neis_by_dhid_;
  });
}

NeiGetter create_nei_getter(const Locations& data_locs, const Neighborhood& neighborhood,
                            int max_neighbors, double max_radius, int max_neighbors_octant,
                            const std::vector<int>& dhids, int max_neis_by_dhid) {
  require_equal_lengths("data_locs", data_locs.size(), "neighborhood", neighborhood.size());
  NeighborLimits limits(data_locs, max_neighbors_octant, dhids, max_neis_by_dhid);
  if (max_neighbors > 0) {
    return NearestGetter(neighborhood, max_neighbors, std::move(limits));
  }
  return RadiusGetter(neighborhood, max_radius, std::move(limits));
}

}  // namespace talvorix
