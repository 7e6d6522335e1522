#pragma once

#include "core/geometry.h"
#include "core/interrupt.h"
#include "spatial/ellipsoid.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace talvorix {

// A point found by a search, at its place in the list that the search structure was built from.
struct FoundPoint {
  double squared_distance;
  std::uint32_t index;
};

class SearchTree;

// Working memory of one searcher, reused from query to query; one for each worker.
struct SearchScratch {
  std::vector<std::size_t> indices;  // the result: positions in the given list, nearest first
  std::vector<FoundPoint> found;
  std::vector<int> hole_counts;
  // Polled in searches that may gather very many points; none for the workers of a loop, which
  // poll between targets.
  InterruptPoller* poll = nullptr;

  // Where the last k-nearest search was and how far it had to reach: by the triangle inequality
  // the next one need not look further than that plus the step between the two.
  const SearchTree* last_tree = nullptr;
  std::size_t last_size = 0;
  Vector3 last_center = Vector3::Zero();
  double last_reach = 0.0;
};

// Answers which of a list of locations are the nearest k to a centre, and which lie within a
// radius. With an ellipsoid, distances are those of its isotropic space, so that radius 1 is its
// surface. Queries write nothing here: one instance serves all workers at once. Copies share the
// search structure.
class Neighborhood {
 public:
  explicit Neighborhood(const Locations& locations);
  Neighborhood(const Locations& locations, const Ellipsoid& ellipsoid);

  // A neighborhood that answers as the one with these parts does.
  static Neighborhood from_parts(const Locations& mapped_locations,
                                 std::optional<Ellipsoid> ellipsoid);

  std::size_t size() const { return size_; }
  const std::optional<Ellipsoid>& ellipsoid() const { return ellipsoid_; }
  // The locations in the order given, in the space that distances are measured in.
  Locations mapped_locations() const;

  // At most max_size points, nearest first; empty when the centre is not finite.
  void find_nearest(const Vector3& center, std::size_t max_size, SearchScratch& scratch) const;
  // The points nearer than the size of max_radius, nearest first.
  void find_within(const Vector3& center, double max_radius, SearchScratch& scratch) const;

  std::vector<std::size_t> find_neighbors(const Vector3& center, long long max_size) const;
  std::vector<std::size_t> find_neighbors(const Vector3& center, double max_radius) const;
  std::size_t nearest_neighbor(const Vector3& center) const;

  // A location in the space that distances are measured in.
  Vector3 to_search_space(const Vector3& location) const {
    return ellipsoid_ ? ellipsoid_->forward(location) : location;
  }

 private:
  Neighborhood(const Locations& locations, std::optional<Ellipsoid> ellipsoid);

  std::size_t size_ = 0;
  std::optional<Ellipsoid> ellipsoid_;
  std::shared_ptr<const SearchTree> tree_;  // none when there is no location
};

}  // namespace talvorix
