#pragma once

#include "core/geometry.h"
#include "spatial/ellipsoid.h"
#include "spatial/neighborhood.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace talvorix {

// A Neighborhood whose points take part one by one: it starts with none active, and activate(i)
// lets location i be found from then on. Distances are those of the ellipsoid's isotropic space.
class DynamicNeighborhood {
 public:
  DynamicNeighborhood(const Locations& locations, const Ellipsoid& ellipsoid);
  DynamicNeighborhood(DynamicNeighborhood&&) noexcept;
  DynamicNeighborhood& operator=(DynamicNeighborhood&&) noexcept;
  ~DynamicNeighborhood();

  std::size_t size() const { return locations_.size(); }
  std::size_t active_size() const;

  // std::out_of_range when there is no such location, std::invalid_argument when it is active.
  void activate(std::size_t index);

  void find_nearest(const Vector3& center, std::size_t max_size, SearchScratch& scratch) const;
  void find_within(const Vector3& center, double max_radius, SearchScratch& scratch) const;

 private:
  class ActiveTree;

  Ellipsoid ellipsoid_;
  Locations locations_;
  std::vector<bool> is_active_;
  std::unique_ptr<ActiveTree> tree_;
};

}  // namespace talvorix
